#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "program/options.h"

namespace unit {

inline constexpr char PROGRAM_NAME[] = "korvid-unit";

/// The command line of korvid-unit.
struct Options {
    program::CommonOptions common;
    std::string store = "korvid-unit.db";
    std::string import_from;  ///< empty: nothing; "-": standard input
    bool replace = false;     ///< the store is to hold nothing else
    std::set<std::uint32_t> read_only;
    bool broker = false;
};

/// Throws program::UsageError.
Options parse_options(int argc, char** argv);

}  // namespace unit
