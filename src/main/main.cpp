#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "commands/commands.h"
#include "commands/registry.h"
#include "ecu/lapi/com.h"
#include "ecu/lapi/var.h"
#include "main/options.h"
#include "program/process.h"
#include "program/progress_line.h"
#include "program/startup.h"
#include "program/sysparams.h"

namespace {

using commands::Arguments;

/// A platform library may send what was published while its caller goes on, and hear of a failure
/// later: time for both. Ours waits in `disconnect`.
constexpr timespec PAUSE_BEFORE_DISCONNECT{0, 100'000'000};

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

int run_over_connection(Arguments& args) {
    auto configuration =
        program::load_configuration(PROGRAM_NAME, {opt_host, opt_port, opt_loglevel});
    auto client = program::create_transport(configuration);
    // Held for the whole run; commands create their own.
    std::shared_ptr<ecu::lapi::var::ISystemParameterClient> sysparams;
    const program::ProgressLine progress(PROGRAM_NAME, client, isatty(STDOUT_FILENO) == 0);
    return program::run_connected(PROGRAM_NAME, *client, [&] {
        sysparams = program::create_sysparams(client);
        client->connect();
        client->start();
        const int status = program::attempt(PROGRAM_NAME, [&] {
            return execute_command(client, args) ? EXIT_SUCCESS : EXIT_FAILURE;
        });
        nanosleep(&PAUSE_BEFORE_DISCONNECT, nullptr);
        return status;
    });
}

}  // namespace

int main(int argc, char** argv) {
    program::widen_standard_output();
    program::grow_heap_in_large_steps();
    return program::run_program(PROGRAM_NAME, [&] {
        Arguments args;
        if (parse_opts(argc, argv, args)) return run_over_connection(args);
        usage();
        return EXIT_FAILURE;
    });
}
