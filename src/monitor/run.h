#pragma once

namespace monitor {

/// One run of korvid-monitor: prints the messages on the command line's topics until it is ended.
/// Returns the exit status.
int run(int argc, char** argv);

}  // namespace monitor
