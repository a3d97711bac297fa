#pragma once

namespace unit {

/// The whole of korvid-unit; returns the exit status.
int run(int argc, char** argv);

}  // namespace unit
