#include "main/options.h"

#include <getopt.h>

#include <cstdlib>
#include <iostream>

#include "commands/registry.h"
#include "program/build_description.h"

constexpr char SHORT_OPTIONS[] = "p:H:l:hvPQTS";

constexpr option long_options[] = {
    {"payload", no_argument, nullptr, 'P'},        {"qos", no_argument, nullptr, 'Q'},
    {"timestamp", no_argument, nullptr, 'T'},      {"payload-size", no_argument, nullptr, 'S'},
    {"port", required_argument, nullptr, 'p'},     {"host", required_argument, nullptr, 'H'},
    {"loglevel", required_argument, nullptr, 'l'}, {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0},
};

bool parse_opts(int argc, char** argv, std::vector<std::string>& args) {
    int letter = 0;
    while ((letter = getopt_long(argc, argv, SHORT_OPTIONS, long_options, nullptr)) != -1) {
        if (letter == 'H') opt_host = optarg;
        if (letter == 'p') opt_port = optarg;
        if (letter == 'l') opt_loglevel = optarg;
        if (letter == 'P') opt_payload = true;
        if (letter == 'Q') opt_qos = true;
        if (letter == 'S') opt_payload_size = true;
        if (letter == 'T') opt_timestamp = true;
        if (letter == 'v') {
            version();
            std::exit(0);
        }
        if (letter == 'h' || letter == '?') return false;
    }
    while (optind < argc) args.emplace_back(argv[optind++]);
    return true;
}

void version() {
    std::cerr << PROGRAM_NAME << ": " << program::build_description << std::endl;
}

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
