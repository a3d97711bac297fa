#include "main/usage.h"

#include <iostream>

#include "commands/registry.h"
#include "main/options.h"

using korvid::PROGRAM_NAME;

void usage() {
    version();
    std::cerr << "\n"
              << "USAGE: " << PROGRAM_NAME << " [OPTIONS] [COMMAND]\n\n"
              << "COMMAND: \n";
    for (const auto* command : command_registry) {
        std::cerr << command->help_text(PROGRAM_NAME) << "\n";
    }
    std::cerr << "OPTIONS:\n"
              << "  -p, --port PORT         a port which shall be used, override config\n"
              << "  -H, --host HOST         a hostname which shall be used, override config\n"
              << "  -l, --loglevel          Enforces the loglevel and overrides the LOG_LEVEL.\n"
              << "        Possibles values: EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, "
                 "DEBUG\n"
              << "        Default: " << opt_loglevel << "\n"
              << "  -h, --help              show this help\n"
              << "  -v, --version          show version\n"
              << std::endl;
}
