#include "program/startup.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "ecu/lapi/logging.h"

namespace program {

namespace logging = ecu::lapi::logging;

void secure_standard_streams() {
    std::signal(SIGPIPE, SIG_IGN);
    int lowest_free = 0;
    do {
        lowest_free = open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (lowest_free >= 0 && lowest_free <= STDERR_FILENO);
    if (lowest_free > STDERR_FILENO) close(lowest_free);
}

void grow_heap_in_large_steps() {
#ifdef M_TOP_PAD  // not every C library can be asked
    constexpr int STEP_BYTES = 16 << 20;
    mallopt(M_TOP_PAD, STEP_BYTES);
#endif
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
    if (!options.host.empty()) (*configuration)["host"] = options.host;
    if (!options.port.empty()) (*configuration)["port"] = options.port;
    return configuration;
}

std::shared_ptr<ecu::lapi::com::ITransportClient> create_transport(
    std::unique_ptr<ecu::lapi::config::Configuration>& configuration) {
    using namespace ecu::lapi;
    auto client = com::create_client(configuration, com::TransportType::mqtt);
    if (!client) throw std::runtime_error("no transport client could be created");
    return client;
}

bool attempt(const std::string& program, const std::function<bool()>& step) {
    try {
        return step();
    } catch (const std::exception& error) {
        std::cerr << program << ": " << error.what() << std::endl;
    } catch (...) {
        std::cerr << program << ": an error of an unknown kind" << std::endl;
    }
    return false;
}

int run_program(const std::string& name, const std::function<bool()>& work) {
    secure_standard_streams();
    logging::set_log_mode(logging::LogMode::console);
    return attempt(name, work) ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool close_connection(const std::string& program, ecu::lapi::com::ITransportClient& client) {
    const bool disconnected = attempt(program, [&client] { return client.disconnect(), true; });
    return attempt(program, [&client] { return client.stop(), true; }) && disconnected;
}

}  // namespace program
