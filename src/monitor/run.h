#pragma once

/// One run of korvid-monitor: prints the messages on the command line's topics until it is ended.
/// Returns the exit status, or ends the process where no connection is needed.
int run_monitor(int argc, char** argv);
