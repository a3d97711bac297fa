#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "program/options.h"

namespace unit {

inline constexpr char PROGRAM_NAME[] = "korvid-unit";

/// The command line of korvid-unit.
struct Options {
    CommonOptions common;
    std::string store = "korvid-unit.db";
    std::string import_from;  ///< empty: nothing; "-": standard input
    bool replace = false;     ///< the store is to hold nothing else
    std::set<std::uint32_t> read_only;
    bool broker = false;
};

/// Nothing when the usage is to be shown.
std::optional<Options> parse_options(int argc, char** argv);

/// Writes the usage to standard error.
void usage();

}  // namespace unit
