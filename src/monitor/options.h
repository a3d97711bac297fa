#pragma once

#include <optional>
#include <string>
#include <vector>

#include "program/options.h"
#include "topic_printer/topic_printer.h"

/// The program's name in its texts and towards the broker.
inline constexpr char MONITOR_NAME[] = "korvid-monitor";

/// The command line of korvid-monitor.
struct MonitorOptions {
    CommonOptions common;
    DisplayFlags shown;
    std::vector<std::string> topics;
};

/// Nothing when the usage is to be shown.
std::optional<MonitorOptions> parse_monitor_options(int argc, char** argv);

/// Writes korvid-monitor's usage text to standard error.
void monitor_usage();
