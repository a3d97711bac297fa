#pragma once

namespace json {

/// One run of korvid-json: prints the parameters of a dump as JSON Lines. Returns the exit status.
int run(int argc, char** argv);

}  // namespace json
