#include "unit/run.h"

#include <poll.h>

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>

#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "program/end_signal.h"
#include "program/startup.h"
#include "protocol/topics.h"
#include "unit/broker_process.h"
#include "unit/import.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/sec_store_service.h"
#include "unit/store/store.h"

namespace unit {
namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;

/// The unit requests only once, to learn whether another one answers.
constexpr char REQUEST_TIMEOUT_MS[] = "2000";

/// A broker of our own has no host, credentials and certificates but ours.
std::unique_ptr<Configuration> configure(const Options& options) {
    std::unique_ptr<Configuration> configuration;
    if (options.broker) {
        logging::configure_logging(options.common.loglevel);
        configuration = std::make_unique<Configuration>(Configuration::defaults());
        Configuration& own = *configuration;
        own["client_name"] = PROGRAM_NAME;
        own["host"] = options.common.host;
        own["port"] =
            options.common.port.empty() ? Configuration().get("port") : options.common.port;
    } else {
        configuration = load_configuration(PROGRAM_NAME, options.common);
    }
    (*configuration)["request_timeout_ms"] = REQUEST_TIMEOUT_MS;
    return configuration;
}

/// Clients would get an answer now from the one and now from the other.
void require_alone(com::ITransportClient& client, const std::string& place) {
    if (ParameterService::is_served(client)) {
        throw std::runtime_error("another unit already serves parameters on the broker at " +
                                 place);
    }
}

void await_end(EndSignal& end_signal, const BrokerProcess* broker) {
    const int broker_end = broker != nullptr ? broker->end_descriptor() : -1;
    if (!end_signal.wait(broker_end, POLLIN)) throw std::runtime_error("the broker ended");
}

/// Returns when clients are answered.
void begin_to_serve(const Options& options, const std::optional<std::vector<Entry>>& imported,
                    Store& store, ParameterService& parameters, com::ITransportClient& client) {
    if (imported) import_into(store, *imported, options.import_from, options.replace);
    parameters.start(client);
    SecStoreService::start(store, client);
    client.show_presence();
    std::cout << "ready" << std::endl;
}

bool serve(const Options& options) {
    auto configuration = configure(options);
    const std::string port = configuration->get("port");
    const std::string place = configuration->get("host") + ":" + port;
    std::optional<EndSignal> end_signal(std::in_place);
    std::optional<std::vector<Entry>> imported;
    if (!options.import_from.empty()) {
        imported = read_import(options.import_from, *end_signal);
        if (!imported) return true;
    }

    Store store(options.store);
    ParameterService parameters(store, options.read_only);
    std::unique_ptr<BrokerProcess> broker;  // outlives the client
    const auto client = create_transport(configuration);
    if (options.broker) broker = std::make_unique<BrokerProcess>(std::stoi(port));
    client->set_presence({protocol::PRESENCE_TOPIC, protocol::PRESENT, protocol::ABSENT});
    client->connect();
    client->start();
    const bool served = guarded(PROGRAM_NAME, [&] {
        if (!broker) require_alone(*client, place);
        begin_to_serve(options, imported, store, parameters, *client);
        await_end(*end_signal, broker.get());
        return true;
    });
    end_signal.reset();  // a further signal need not wait for the goodbye
    return close_connection(PROGRAM_NAME, *client) && served;
}

}  // namespace

int run(int argc, char** argv) {
    logging::set_log_mode(logging::LogMode::console);
    return run_program(PROGRAM_NAME, parse_options(argc, argv), usage, serve);
}

}  // namespace unit
