#pragma once

#include <string>

#include "program/options.h"

namespace restore {

/// The program's name in its texts and towards the broker.
inline constexpr char PROGRAM_NAME[] = "korvid-restore";

/// The command line of korvid-restore.
struct Options {
    program::CommonOptions common;
    bool only_show = false;
    bool exit_code = false;  ///< the exit status tells whether anything differs
    bool json = false;
    std::string file;  ///< of parameters; "-": standard input
};

/// Throws program::UsageError.
Options parse_options(int argc, char** argv);

}  // namespace restore
