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
    using program::into;
    Options options;
    const auto arguments = program::parse_command_line(
        argc, argv, HELP,
        {
            {'n', "dry-run", nullptr, "show what differs and write nothing",
             into(options.only_show)},
            {0, "exit-code", nullptr,
             "with -n: end with 3 when anything differs, parameters that FILE\n"
             "does not name included; print nothing but the differences",
             into(options.exit_code)},
            {0, "json", nullptr, "print the changes as JSON Lines", into(options.json)},
        },
        &options.common);
    if (options.exit_code && !options.only_show) throw program::UsageError("--exit-code needs -n");
    if (arguments.size() != 1) throw program::UsageError("one FILE has to be named");
    options.file = arguments.front();
    return options;
}

}  // namespace restore
