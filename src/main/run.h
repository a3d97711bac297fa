#pragma once

namespace korvid {

/// One run of korvid: executes the command line's one command over a connection of its own.
/// Returns the exit status, or ends the process where no connection is needed.
int run(int argc, char** argv);

}  // namespace korvid
