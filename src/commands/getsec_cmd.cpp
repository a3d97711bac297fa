#include <iostream>

#include "commands/commands.h"
#include "ecu/lapi/logging.h"
#include "secstore/sec_store.h"

namespace commands {

namespace logging = ecu::lapi::logging;

bool GetSecCmd::execute(Client& client, const Arguments& /*args*/) const {
    logging::write(logging::DEBUG, "Attempt to receive SecStore!");
    SecStore store(client);
    // Not copied: a blob may take a large part of the unit's memory.
    const std::string& blob = store.get_data();
    if (blob.empty()) {
        logging::write(logging::ERROR, "No data could be received from SecStore!");
        return false;
    }
    std::cout << "SecStore blob size: " << blob.size() << std::endl;
    std::cout.write(blob.data(), static_cast<std::streamsize>(blob.size())) << std::endl;
    return true;
}

std::string GetSecCmd::help_text(const char* program) const {
    return "  getsec\n"
           "\n"
           "     Description: \n"
           "        Gets the secure store entry from the NOR.\n"
           "     Example:\n"
           "        " +
           std::string(program) + " getsec \n";
}

}  // namespace commands
