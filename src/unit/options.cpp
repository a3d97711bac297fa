#include "unit/options.h"

#include <getopt.h>

#include <charconv>
#include <cstdlib>
#include <iostream>

#include "main/build_description.h"

namespace unit {
namespace {

constexpr option LONG_OPTIONS[] = {
    {"host", required_argument, nullptr, 'H'},     {"port", required_argument, nullptr, 'p'},
    {"loglevel", required_argument, nullptr, 'l'}, {"db", required_argument, nullptr, 'd'},
    {"import", required_argument, nullptr, 'i'},   {"read-only", required_argument, nullptr, 'r'},
    {"broker", no_argument, nullptr, 'b'},         {"version", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0},
};

bool complain(const std::string& text) {
    std::cerr << PROGRAM_NAME << ": " << text << '\n';
    return false;
}

/// The whole of `text`, as decimal or, after "0x", hexadecimal.
std::optional<std::uint32_t> parse_otaid(const std::string& text) {
    const bool hexadecimal = text.rfind("0x", 0) == 0;
    const char* const begin = text.data() + (hexadecimal ? 2 : 0);
    const char* const end = text.data() + text.size();
    std::uint32_t otaid = 0;
    const auto [stopped, error] = std::from_chars(begin, end, otaid, hexadecimal ? 16 : 10);
    if (error != std::errc() || stopped != end) return std::nullopt;
    return otaid;
}

bool take(int letter, Options& options) {
    switch (letter) {
        case 'H':
            options.host = optarg;
            return true;
        case 'p':
            options.port = optarg;
            return true;
        case 'l':
            options.loglevel = optarg;
            return true;
        case 'd':
            options.store = optarg;
            return true;
        case 'i':
            options.import_from = optarg;
            return true;
        case 'b':
            options.broker = true;
            return true;
        case 'r': {
            const auto otaid = parse_otaid(optarg);
            if (!otaid) return complain(std::string("'") + optarg + "' is not an OTAID");
            options.read_only.insert(*otaid);
            return true;
        }
        case 'v':
            std::cerr << PROGRAM_NAME << ": " << build_description << std::endl;
            std::exit(EXIT_SUCCESS);
        default:
            return false;
    }
}

bool is_consistent(const Options& options) {
    if (!options.broker || options.host.empty() || options.host == "127.0.0.1" ||
        options.host == "localhost") {
        return true;
    }
    return complain("the broker of -b runs on 127.0.0.1, not on '" + options.host + "'");
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv) {
    Options options;
    for (;;) {
        const int letter = getopt_long(argc, argv, "H:p:l:d:i:r:bvh", LONG_OPTIONS, nullptr);
        if (letter == -1) break;
        if (!take(letter, options)) return std::nullopt;
    }
    if (optind < argc) {
        complain(std::string("unexpected argument '") + argv[optind] + "'");
        return std::nullopt;
    }
    if (!is_consistent(options)) return std::nullopt;
    if (options.broker) options.host = "127.0.0.1";
    return options;
}

void usage() {
    std::cerr << PROGRAM_NAME << ": " << build_description << R"(

USAGE: korvid-unit [OPTIONS]

Serves system parameters and the secure store from an SQLite file, through a broker.
Prints "ready" on standard output once it serves; SIGTERM and SIGINT end it.

OPTIONS:
  -H, --host HOST        the broker's host, override config
  -p, --port PORT        the broker's port, override config
  -l, --loglevel LEVEL   EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG
  -d, --db FILE          the store (default: korvid-unit.db in the working directory)
  -i, --import FILE      first load parameters from FILE ("-": standard input), in the
                         text that `korvid get` prints
  -r, --read-only OTAID  refuse writes of this parameter (may be repeated)
  -b, --broker           also run a broker on that port of 127.0.0.1, as long as this runs
  -h, --help             show this help
  -v, --version          show version
)" << std::endl;
}

}  // namespace unit
