#include "main/options.h"

#include <getopt.h>

#include <cstdlib>
#include <iostream>

#include "program/build_description.h"

std::string opt_loglevel = "WARNING";
std::string opt_host;
std::string opt_port;
bool opt_payload = false;
bool opt_payload_size = false;
bool opt_qos = false;
bool opt_timestamp = false;

namespace {

constexpr char SHORT_OPTIONS[] = "p:H:l:hvPQTS";

constexpr option long_options[] = {
    {"payload", no_argument, nullptr, 'P'},        {"qos", no_argument, nullptr, 'Q'},
    {"timestamp", no_argument, nullptr, 'T'},      {"payload-size", no_argument, nullptr, 'S'},
    {"port", required_argument, nullptr, 'p'},     {"host", required_argument, nullptr, 'H'},
    {"loglevel", required_argument, nullptr, 'l'}, {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0},
};

/// Takes one option; false when it ends the parsing.
bool take_option(int letter) {
    switch (letter) {
        case 'H':
            opt_host = optarg;
            return true;
        case 'p':
            opt_port = optarg;
            return true;
        case 'l':
            opt_loglevel = optarg;
            return true;
        case 'P':
            opt_payload = true;
            return true;
        case 'Q':
            opt_qos = true;
            return true;
        case 'S':
            opt_payload_size = true;
            return true;
        case 'T':
            opt_timestamp = true;
            return true;
        case 'v':
            version();
            std::exit(0);
        default:
            return false;
    }
}

}  // namespace

bool parse_opts(int argc, char** argv, std::vector<std::string>& args) {
    int index = 0;
    int letter = 0;
    while ((letter = getopt_long(argc, argv, SHORT_OPTIONS, long_options, &index)) != -1) {
        if (!take_option(letter)) return false;
    }
    while (optind < argc) args.emplace_back(argv[optind++]);
    return true;
}

void version() {
    std::cerr << korvid::PROGRAM_NAME << ": " << program::build_description << std::endl;
}
