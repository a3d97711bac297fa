#pragma once

#include <cstdint>
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
    bool json = false;
    std::uint32_t count = 0;    ///< of messages to wait for; 0: no limit
    std::uint32_t seconds = 0;  ///< to wait at most; 0: no limit
    std::vector<std::string> topics;
};

/// Throws program::UsageError.
Options parse_options(int argc, char** argv);

}  // namespace monitor
