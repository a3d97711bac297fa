#include <iostream>

#include "commands/commands.h"
#include "commands/otaid.h"
#include "dump/compose.h"
#include "ecu/lapi/logging.h"
#include "ecu/lapi/var.h"
#include "program/sysparams.h"

namespace commands {

namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::var::ISystemParameterClient;

/// Prints the six lines of a parameter stored under `otaid`, in one write and without a flush.
void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry) {
    static std::string buffer;  // which keeps its memory for the next one
    std::cout << dump::compose(buffer, otaid, entry);
}

bool print_all(ISystemParameterClient& sysparams) {
    logging::write(logging::INFO, "Read all System Parameters!");
    const auto parameters = sysparams.get_parameters(0);
    for (const auto& [otaid, entry] : parameters) print_sysparam(otaid, entry);
    return !parameters.empty();
}

bool print_one(ISystemParameterClient& sysparams, const std::string& argument) {
    const auto otaid = otaid_of_argument(argument);
    if (!otaid) return false;
    const auto key = static_cast<std::uint32_t>(*otaid);
    const auto [found, entry] = sysparams.get_parameter(key, 0);
    if (!found) {
        std::cerr << "Unable to find param with key: " << *otaid << std::endl;
        return false;
    }
    print_sysparam(key, entry);
    return true;
}

}  // namespace

bool GetCmd::execute(Client& client, const Arguments& args) const {
    const auto sysparams = program::create_sysparams(client);
    if (args.empty()) return print_all(*sysparams);
    bool all_printed = true;
    for (const auto& argument : args) all_printed = print_one(*sysparams, argument) && all_printed;
    return all_printed;
}

std::string GetCmd::help_text(const char* program) const {
    return "  get [OTAID]...\n"
           "\n"
           "     Description: \n"
           "        Get system parameters based on the given OTAIDs.\n"
           "        If not OTAID is provide, all will be fetched!\n"
           "     Examples: \n"
           "           " +
           std::string(program) + " get 42 23\n";
}

}  // namespace commands
