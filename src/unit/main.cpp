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
#include "program/sysparams.h"
#include "program/termination.h"
#include "unit/broker_process.h"
#include "unit/options.h"
#include "unit/parameter_service.h"
#include "unit/sec_store_service.h"
#include "unit/store/store.h"

namespace unit {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::config::Configuration;
using ecu::lapi::var::ParameterMap;
using lapi_mqtt::TransportError;

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

/// Asks whether another unit serves on the broker: clients would get an answer now from the one and
/// now from the other. Throws when there is one, or no connection; where that cannot be found out,
/// a WARNING says why.
void require_alone(const Configuration& configuration) {
    using Kind = TransportError::Kind;
    // A client of its own, without a last will: it would say that the other unit is gone.
    auto own = std::make_unique<Configuration>(configuration);
    const auto client = program::create_transport(own);
    client->connect();
    client->start();
    bool is_served = true;
    try {
        program::create_sysparams(client)->get_parameter(0, 0);
    } catch (const TransportError& error) {
        if (error.kind() == Kind::not_connected) throw;
        is_served = error.kind() == Kind::refused;
        if (error.kind() == Kind::outcome_unknown) {
            logging::write(logging::WARNING,
                           "Somebody listens for requests, but does not answer: ", error.what());
        } else if (error.kind() == Kind::failed) {
            logging::write(logging::WARNING,
                           "Cannot ask whether another unit serves: ", error.what(),
                           ". Without the right to publish there, a second unit goes unnoticed and "
                           "both answer clients");
        }
    }
    client->disconnect();
    client->stop();
    if (!is_served) return;
    throw std::runtime_error("another unit already serves parameters on the broker at " +
                             lapi_mqtt::broker_name(configuration));
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
        const int broker_end = broker ? broker->end_descriptor() : -1;
        const auto end = program::wait_for_termination(broker_end, POLLIN, LEAVE_TIMEOUT);
        if (end != program::WaitEnd::signal) throw std::runtime_error("the broker ended");
        return EXIT_SUCCESS;
    });
}

}  // namespace
}  // namespace unit

int main(int argc, char** argv) {
    return program::run_program(unit::PROGRAM_NAME,
                                [&] { return unit::serve(unit::parse_options(argc, argv)); });
}
