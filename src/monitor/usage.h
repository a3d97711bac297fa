#pragma once

/// The program's name in its texts and towards the broker.
inline constexpr char MONITOR_NAME[] = "korvid-monitor";

/// Writes korvid-monitor's usage text to standard error.
void monitor_usage();
