#include "unit/options.h"

#include <iostream>

#include "program/otaid.h"

namespace unit {
namespace {

bool complain(const std::string& text) {
    std::cerr << PROGRAM_NAME << ": " << text << '\n';
    return false;
}

bool add_read_only(Options& options, const std::string& text) {
    const auto otaid = parse_whole_otaid(text);
    if (!otaid) return complain("'" + text + "' is not an OTAID");
    options.read_only.insert(*otaid);
    return true;
}

bool is_consistent(const Options& options) {
    if (options.replace && options.import_from.empty()) {
        return complain("--replace needs --import");
    }
    if (!options.broker || options.common.host.empty() || options.common.host == "127.0.0.1" ||
        options.common.host == "localhost") {
        return true;
    }
    return complain("the broker of -b runs on 127.0.0.1, not on '" + options.common.host + "'");
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv) {
    Options options;
    const auto arguments = parse_command_line(
        argc, argv, PROGRAM_NAME, options.common,
        {
            text_option('d', "db", options.store),
            text_option('i', "import", options.import_from),
            flag_option(0, "replace", options.replace),
            {'r', "read-only", true,
             [&](const char* argument) { return add_read_only(options, argument); }},
            flag_option('b', "broker", options.broker),
        });
    if (!arguments) return std::nullopt;
    if (!arguments->empty()) {
        complain("unexpected argument '" + arguments->front() + "'");
        return std::nullopt;
    }
    if (!is_consistent(options)) return std::nullopt;
    if (options.broker) options.common.host = "127.0.0.1";
    return options;
}

void usage() {
    write_version(PROGRAM_NAME);
    std::cerr << R"(
USAGE: korvid-unit [OPTIONS]

Serves system parameters and the secure store from an SQLite file, through a broker.
Prints "ready" on standard output once it serves; SIGTERM and SIGINT end it.

OPTIONS:
  -H, --host HOST        the broker's host, override config
  -p, --port PORT        the broker's port, override config
  -l, --loglevel LEVEL   EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG
  -d, --db FILE          the store (default: korvid-unit.db in the working directory)
  -i, --import FILE      first load parameters from FILE ("-": standard input), in the
                         text that `korvid get` prints; others in the store stay
      --replace          with -i: the store then holds these parameters and no others
  -r, --read-only OTAID  refuse writes of this parameter (may be repeated)
  -b, --broker           also run a broker on that port of 127.0.0.1, as long as this runs;
                         of the configuration only the port counts then
  -h, --help             show this help
  -v, --version          show version
)" << std::endl;
}

}  // namespace unit
