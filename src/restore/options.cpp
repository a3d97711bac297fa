#include "restore/options.h"

namespace restore {

constexpr program::Help HELP{
    PROGRAM_NAME, "[OPTIONS] FILE",
    R"(Writes the parameters in FILE ("-": standard input), the text that `korvid get` prints
or JSON Lines, to the unit: what differs, its DID and XCPID too, in one request. Prints a
line for each parameter that it changed; on standard error the OTAIDs that the unit
refused, and a summary. Parameters that FILE does not name are left alone.
)",
    R"(
With -l ERROR neither summary nor progress is shown. The exit status is 0 when the unit now
has what FILE says, or with -n when the two could be compared, whether or not they differ,
and 1 otherwise.
)"};

Options parse_options(int argc, char** argv) {
    using program::flag_option;
    Options options;
    const auto arguments = program::parse_command_line(
        argc, argv, HELP,
        {
            flag_option('n', "dry-run", "show what differs and write nothing", options.only_show),
            flag_option(0, "exit-code",
                        "with -n: end with 3 when anything differs, parameters that FILE\n"
                        "does not name included; print nothing but the differences",
                        options.exit_code),
            flag_option(0, "json", "print the changes as JSON Lines", options.json),
        },
        program::common_options(options.common));
    if (options.exit_code && !options.only_show) throw program::UsageError("--exit-code needs -n");
    if (arguments.size() != 1) throw program::UsageError("one FILE has to be named");
    options.file = arguments.front();
    return options;
}

}  // namespace restore
