#pragma once

#include <string>
#include <vector>

#include "program/options.h"
#include "topic_printer/topic_printer.h"

namespace monitor {

/// The program's name in its texts and towards the broker.
inline constexpr char PROGRAM_NAME[] = "korvid-monitor";

/// The command line of korvid-monitor.
struct Options {
    program::CommonOptions common;
    DisplayFlags shown;
    std::vector<std::string> topics;
};

/// Throws program::UsageError.
Options parse_options(int argc, char** argv);

}  // namespace monitor
