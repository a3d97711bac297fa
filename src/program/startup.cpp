#include "program/startup.h"

#include <cstdlib>
#include <stdexcept>

#include "ecu/lapi/logging.h"

namespace program {

namespace logging = ecu::lapi::logging;

void apply(const CommonOptions& options, ecu::lapi::config::Configuration& configuration) {
    if (!options.host.empty()) configuration["host"] = options.host;
    if (!options.port.empty()) configuration["port"] = options.port;
}

std::unique_ptr<ecu::lapi::config::Configuration> load_configuration(const std::string& client_name,
                                                                     const CommonOptions& options) {
    auto configuration = std::make_unique<ecu::lapi::config::Configuration>();
    (*configuration)["client_name"] = client_name;
    logging::configure_logging(options.loglevel);
    if (!configuration->verify()) {
        logging::write(logging::ERROR, "Configuration verification failed!");
        std::exit(1);
    }
    apply(options, *configuration);
    return configuration;
}

std::shared_ptr<ecu::lapi::com::ITransportClient> create_transport(
    std::unique_ptr<ecu::lapi::config::Configuration>& configuration) {
    using namespace ecu::lapi;
    auto client = com::create_client(configuration, com::TransportType::mqtt);
    if (!client) throw std::runtime_error("no transport client could be created");
    return client;
}

int run_program(const std::string& name, const std::function<int()>& work) {
    secure_standard_streams();
    logging::set_log_mode(logging::LogMode::console);
    return attempt(name, work);
}

int run_connected(const std::string& program, ecu::lapi::com::ITransportClient& client,
                  const std::function<int()>& work) {
    const int status = attempt(program, work);
    const int disconnected = attempt(program, [&client] { return client.disconnect(), 0; });
    const int stopped = attempt(program, [&client] { return client.stop(), 0; });
    return disconnected == EXIT_SUCCESS && stopped == EXIT_SUCCESS ? status : EXIT_FAILURE;
}

}  // namespace program
