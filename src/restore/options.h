#pragma once

#include <optional>
#include <string>

#include "program/options.h"

namespace restore {

/// The program's name in its texts and towards the broker.
inline constexpr char PROGRAM_NAME[] = "korvid-restore";

/// The command line of korvid-restore.
struct Options {
    CommonOptions common;
    bool only_show = false;
    std::string file;  ///< of the dump; "-": standard input
};

/// Nothing when the usage is to be shown.
std::optional<Options> parse_options(int argc, char** argv);

/// Writes korvid-restore's usage text to standard error.
void usage();

}  // namespace restore
