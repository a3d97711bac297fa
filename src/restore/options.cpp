#include "restore/options.h"

#include <iostream>

namespace restore {

std::optional<Options> parse_options(int argc, char** argv) {
    Options options;
    const auto arguments = parse_command_line(argc, argv, PROGRAM_NAME, options.common,
                                              {flag_option('n', "dry-run", options.only_show)});
    if (!arguments || arguments->size() != 1) return std::nullopt;
    options.file = arguments->front();
    return options;
}

void usage() {
    write_version(PROGRAM_NAME);
    std::cerr << R"(
USAGE: korvid-restore [OPTIONS] FILE

Writes the parameters in FILE ("-": standard input), the text that `korvid get` prints,
to the unit: what differs, its DID and XCPID too, in one request. Prints a line for each
parameter that it changed; on standard error the OTAIDs that the unit refused, and a
summary. Parameters that FILE does not name are left alone.

OPTIONS:
  -n, --dry-run          show what differs and write nothing
  -H, --host HOST        the broker's host, overrides the configuration
  -p, --port PORT        the broker's port, overrides the configuration
  -l, --loglevel LEVEL   one of EMERG, ALERT, CRITICAL, ERROR, WARNING, NOTICE, INFO, DEBUG
                         (default: WARNING); up to ERROR neither summary nor progress
                         is shown
  -h, --help             show this help
  -v, --version          show the version

The exit status is 0 when the unit now has what FILE says, or with -n when the two could
be compared, whether or not they differ, and 1 otherwise.
)" << std::endl;
}

}  // namespace restore
