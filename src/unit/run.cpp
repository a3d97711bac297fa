#include "unit/run.h"

#include <poll.h>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "dump/read.h"
#include "ecu/lapi/logging.h"
#include "lapi_mqtt/service_client.h"
#include "program/startup.h"
#include "program/termination.h"
#include "unit/broker_process.h"
#include "unit/import.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/require_alone.h"
#include "unit/sec_store_service.h"
#include "unit/store/store.h"

namespace unit {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;

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

void await_end(const BrokerProcess* broker) {
    const int broker_end = broker != nullptr ? broker->end_descriptor() : -1;
    if (program::wait_for_termination(broker_end, POLLIN, LEAVE_TIMEOUT) !=
        program::WaitEnd::signal) {
        throw std::runtime_error("the broker ended");
    }
}

/// Returns when clients are answered.
void begin_to_serve(const Options& options, const std::optional<std::vector<Entry>>& imported,
                    Store& store, ParameterService& parameters, lapi_mqtt::IServiceClient& client) {
    if (imported) import_into(store, *imported, options.import_from, options.replace);
    parameters.start(client);
    SecStoreService::start(store, client);
    client.show_presence();
    program::defer_termination_signals();
    std::cout << "ready" << std::endl;
}

int serve(const Options& options) {
    program::end_at_termination_signals();
    auto configuration = configure(options);
    const std::string port = Configuration(*configuration)["port"];  // looked up in a copy
    std::optional<std::vector<Entry>> imported;
    if (!options.import_from.empty()) imported = dump::read_file(options.import_from);

    Store store(options.store);
    ParameterService parameters(store, options.read_only);
    std::unique_ptr<BrokerProcess> broker;  // outlives the client
    if (!options.broker) require_alone(*configuration);
    const auto client = lapi_mqtt::create_service_client(configuration);
    if (options.broker) broker = std::make_unique<BrokerProcess>(std::stoi(port));
    client->connect();
    client->start();
    return program::run_connected(PROGRAM_NAME, *client, [&] {
        begin_to_serve(options, imported, store, parameters, *client);
        await_end(broker.get());
        return EXIT_SUCCESS;
    });
}

}  // namespace

int run(int argc, char** argv) {
    return program::run_program(PROGRAM_NAME, [&] { return serve(parse_options(argc, argv)); });
}

}  // namespace unit
