#pragma once

namespace restore {

/// One run of korvid-restore: writes a dump to the unit, or shows what differs. Returns the exit
/// status, or ends the process where no connection is needed.
int run(int argc, char** argv);

}  // namespace restore
