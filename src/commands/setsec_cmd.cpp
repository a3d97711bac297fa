#include "commands/commands.h"
#include "ecu/lapi/logging.h"
#include "secstore/sec_store.h"

namespace commands {

namespace logging = ecu::lapi::logging;

bool SetSecCmd::execute(Client& client, const Arguments& args) const {
    if (args.size() != 1) {
        logging::write(logging::ERROR, "A file need to be provided!");
        return false;
    }
    SecStore store(client);
    const std::string& path = args.front();
    const std::string content = SecStore::read_file_to_str(path);
    if (content.empty()) {
        logging::write(logging::ERROR, "Unable to read in file: ", path);
        return false;
    }
    store.set_data(content);
    return true;
}

std::string SetSecCmd::help_text(const char* program) const {
    return "  setsec FILE\n"
           "\n"
           "     Description: \n"
           "        Sets the secure store data with the give FILE content.\n"
           "     Example:\n"
           "        " +
           std::string(program) + " setsec secfileb64_10kb\n";
}

}  // namespace commands
