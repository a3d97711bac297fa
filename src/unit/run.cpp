#include "unit/run.h"

#include <poll.h>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"
#include "lapi_mqtt/service_client.h"
#include "program/startup.h"
#include "program/termination.h"
#include "protocol/topics.h"
#include "unit/broker_process.h"
#include "unit/import.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/sec_store_service.h"
#include "unit/store/store.h"

namespace unit {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;

/// The unit requests only once, to learn whether another one answers.
constexpr char REQUEST_TIMEOUT_MS[] = "2000";

/// A service manager waits longer.
constexpr std::chrono::seconds LEAVE_TIMEOUT{10};

/// A broker of our own has no host, credentials and certificates but ours.
std::unique_ptr<Configuration> configure(const Options& options) {
    std::unique_ptr<Configuration> configuration;
    if (options.broker) {
        logging::configure_logging(options.common.loglevel);
        configuration = lapi_mqtt::default_configuration();
        Configuration& own = *configuration;
        own["client_name"] = PROGRAM_NAME;
        own["host"] = options.common.host;
        own["port"] = options.common.port.empty() ? Configuration()["port"] : options.common.port;
    } else {
        configuration = program::load_configuration(PROGRAM_NAME, options.common);
    }
    (*configuration)["request_timeout_ms"] = REQUEST_TIMEOUT_MS;
    return configuration;
}

/// Clients would get an answer now from the one and now from the other. Who only asks has no last
/// will: it would say that the other unit is gone.
void require_alone(const Configuration& configuration, const std::string& place) {
    auto own = std::make_unique<Configuration>(configuration);
    const auto client = program::create_transport(own);
    client->connect();
    client->start();
    const bool is_served =
        ParameterService::is_served(*ecu::lapi::var::create_sysparams_client(client));
    client->disconnect();
    client->stop();
    if (is_served) {
        throw std::runtime_error("another unit already serves parameters on the broker at " +
                                 place);
    }
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

bool serve(const Options& options) {
    auto configuration = configure(options);
    auto values = *configuration;
    const std::string port = values["port"];
    const std::string place = values["host"] + ":" + port;
    program::end_at_termination_signals();
    std::optional<std::vector<Entry>> imported;
    if (!options.import_from.empty()) imported = read_import(options.import_from);

    Store store(options.store);
    ParameterService parameters(store, options.read_only);
    std::unique_ptr<BrokerProcess> broker;  // outlives the client
    if (options.broker) {
        broker = std::make_unique<BrokerProcess>(std::stoi(port));
    } else {
        require_alone(*configuration, place);
    }
    const auto client = lapi_mqtt::create_service_client(
        configuration, {protocol::PRESENCE_TOPIC, protocol::PRESENT, protocol::ABSENT});
    client->connect();
    client->start();
    const bool served = program::attempt(PROGRAM_NAME, [&] {
        begin_to_serve(options, imported, store, parameters, *client);
        await_end(broker.get());
        return true;
    });
    return program::close_connection(PROGRAM_NAME, *client) && served;
}

}  // namespace

int run(int argc, char** argv) {
    return program::run_program(PROGRAM_NAME, [&] { return serve(parse_options(argc, argv)); });
}

}  // namespace unit
