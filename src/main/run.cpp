#include "main/run.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/registry.h"
#include "ecu/lapi/com.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"
#include "main/options.h"
#include "main/usage.h"
#include "program/progress_line.h"
#include "program/startup.h"
#include "program/sysparams.h"

namespace korvid {
namespace {

using commands::Arguments;

/// A platform library may send what was published while its caller goes on, and hear of a failure
/// later: time for both. Ours waits in `disconnect`.
constexpr timespec PAUSE_BEFORE_DISCONNECT{0, 100'000'000};

/// What a run holds of the platform, in order of creation.
struct Connection {
    std::unique_ptr<ecu::lapi::config::Configuration> configuration;
    std::optional<program::ProgressLine> progress;
    commands::Client client;
    // Held for the whole run; commands create their own.
    std::shared_ptr<ecu::lapi::var::ISystemParameterClient> sysparams;
};

bool open(Connection& connection) {
    connection.configuration =
        program::load_configuration(PROGRAM_NAME, {opt_host, opt_port, opt_loglevel});
    connection.progress.emplace(PROGRAM_NAME);
    connection.client = program::create_transport(connection.configuration);
    connection.sysparams = program::create_sysparams(connection.client);
    connection.progress->watch(connection.client);
    connection.client->connect();
    connection.client->start();
    return true;
}

bool execute_command(commands::Client& client, Arguments& args) {
    if (args.empty()) return commands::GetCmd("get").execute(client, args);
    const std::string word = args.front();
    args.erase(args.begin());
    const auto command =
        std::find_if(command_registry.begin(), command_registry.end(),
                     [&word](const auto* candidate) { return candidate->name == word; });
    if (command != command_registry.end()) return (*command)->execute(client, args);
    std::cerr << PROGRAM_NAME << " syntax error!\n" << std::endl;
    usage();
    return false;
}

}  // namespace

int run(int argc, char** argv) {
    ecu::lapi::logging::set_log_mode(ecu::lapi::logging::LogMode::console);
    Arguments args;
    if (!parse_opts(argc, argv, args)) {
        usage();
        std::exit(1);
    }

    Connection connection;
    bool succeeded = program::attempt(PROGRAM_NAME, [&] { return open(connection); });
    if (succeeded) {
        succeeded = program::attempt(PROGRAM_NAME,
                                     [&] { return execute_command(connection.client, args); });
        nanosleep(&PAUSE_BEFORE_DISCONNECT, nullptr);
    }
    if (connection.client) {
        succeeded = program::close_connection(PROGRAM_NAME, *connection.client) && succeeded;
    }
    return succeeded ? 0 : 1;
}

}  // namespace korvid
