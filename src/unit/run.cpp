#include "unit/run.h"

#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "dump/parse.h"
#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "program/startup.h"
#include "unit/broker_process.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/sec_store_service.h"
#include "unit/store.h"

namespace unit {
namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

/// What ends the unit, or may. Blocked before the first thread starts, so that only `sigwait`
/// sees them.
sigset_t block_end_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

std::string read_all(const std::string& name) {
    std::ifstream file;
    if (name != "-") file.open(name);
    std::istream& input = name == "-" ? std::cin : file;
    std::string text{std::istreambuf_iterator<char>(input), {}};
    if (!input) throw std::runtime_error("cannot read '" + name + "'");
    return text;
}

std::vector<Entry> read_import(const std::string& name) {
    if (name.empty()) return {};
    return dump::parse(read_all(name), name == "-" ? "standard input" : name);
}

void wait_for_the_end(const sigset_t& signals, const std::unique_ptr<BrokerProcess>& broker) {
    for (;;) {
        int number = 0;
        sigwait(&signals, &number);
        if (number != SIGCHLD) return;
        if (broker && !broker->is_running()) throw std::runtime_error("the broker ended");
    }
}

bool serve(const Options& options) {
    auto configuration = load_configuration(PROGRAM_NAME, options.common);
    const sigset_t signals = block_end_signals();
    const auto imported = read_import(options.import_from);
    Store store(options.store);
    if (!imported.empty()) {
        store.write(imported);
        logging::write(logging::INFO, "Imported ", imported.size(), " parameters");
    }

    ParameterService parameters(store, options.read_only);
    const std::string port = configuration->get("port");
    std::unique_ptr<BrokerProcess> broker;  // outlives the client
    const auto client = com::create_client(configuration, com::TransportType::mqtt);
    if (options.broker) broker = std::make_unique<BrokerProcess>(std::stoi(port));
    client->connect();
    client->start();
    const bool served = guarded(PROGRAM_NAME, [&] {
        parameters.start(*client);
        SecStoreService::start(store, *client);
        std::cout << "ready" << std::endl;
        wait_for_the_end(signals, broker);
        return true;
    });
    return close_connection(PROGRAM_NAME, *client) && served;
}

}  // namespace

int run(int argc, char** argv) {
    logging::set_log_mode(logging::LogMode::console);
    const auto options = parse_options(argc, argv);
    if (!options) {
        usage();
        return 1;
    }
    return guarded(PROGRAM_NAME, [&] { return serve(*options); }) ? 0 : 1;
}

}  // namespace unit
