#include <poll.h>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "dump/read.h"
#include "ecu/lapi/logging.h"
#include "lapi_mqtt/service_client.h"
#include "program/input.h"
#include "program/startup.h"
#include "program/termination.h"
#include "unit/broker_process.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/require_alone.h"
#include "unit/sec_store_service.h"
#include "unit/store/store.h"

namespace unit {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;
using ecu::lapi::var::ParameterMap;

/// Service managers allow more before they kill a process.
constexpr std::chrono::seconds LEAVE_TIMEOUT{10};

/// Our own broker needs neither an account nor TLS: of this machine's configuration it uses only
/// the port.
std::unique_ptr<Configuration> configure(const Options& options) {
    if (!options.broker) return program::load_configuration(PROGRAM_NAME, options.common);
    logging::configure_logging(options.common.loglevel);
    auto configuration = lapi_mqtt::default_configuration();
    Configuration& own = *configuration;
    own["client_name"] = PROGRAM_NAME;
    own["port"] = Configuration()["port"];
    program::apply(options.common, own);
    return configuration;
}

/// Puts the parameters of the file into the store and reports on standard error what that changed.
void import_into(Store& store, const ParameterMap& parameters, const Options& options) {
    const std::string name = program::input_name(options.import_from);
    if (options.replace && parameters.empty()) {
        throw std::runtime_error(name + " holds no parameters: the store was not replaced");
    }
    const ImportResult result = store.import(parameters, options.replace);
    std::cerr << PROGRAM_NAME << ": imported " << parameters.size() << " parameters from " << name
              << ": " << result.added << " added, " << result.changed << " changed, "
              << result.unchanged << " unchanged; "
              << (options.replace ? "removed " : "the store holds ") << result.others << " others"
              << std::endl;
}

void await_end(const std::optional<BrokerProcess>& broker) {
    const int broker_end = broker ? broker->end_descriptor() : -1;
    if (program::wait_for_termination(broker_end, POLLIN, LEAVE_TIMEOUT) !=
        program::WaitEnd::signal) {
        throw std::runtime_error("the broker ended");
    }
}

int serve(const Options& options) {
    program::end_at_termination_signals();
    auto configuration = configure(options);
    const std::string port = Configuration(*configuration)["port"];  // looked up in a copy
    std::optional<ParameterMap> imported;
    if (!options.import_from.empty()) imported = dump::read_file(options.import_from);

    Store store(options.store);
    ParameterService parameters(store, options.read_only);
    std::optional<BrokerProcess> broker;  // outlives the client
    if (!options.broker) require_alone(*configuration);
    const auto client = lapi_mqtt::create_service_client(configuration);
    if (options.broker) broker.emplace(std::stoi(port));
    client->connect();
    client->start();
    return program::run_connected(PROGRAM_NAME, *client, [&] {
        if (imported) import_into(store, *imported, options);
        parameters.start(*client);
        SecStoreService::start(store, *client);
        client->show_presence();
        program::defer_termination_signals();
        std::cout << "ready" << std::endl;  // clients are answered
        await_end(broker);
        return EXIT_SUCCESS;
    });
}

}  // namespace
}  // namespace unit

int main(int argc, char** argv) {
    return program::run_program(unit::PROGRAM_NAME,
                                [&] { return unit::serve(unit::parse_options(argc, argv)); });
}
