#pragma once

#include <string>
#include <vector>

/// The program's name in every text that it writes, however it was invoked.
inline constexpr char PROGRAM_NAME[] = "korvid";

/// Values of the command line's options; only read once `parse_opts` has returned.
inline std::string opt_loglevel = "WARNING";  ///< not validated
inline std::string opt_host;                  ///< empty: as configured
inline std::string opt_port;                  ///< empty: as configured
inline bool opt_payload = false;
inline bool opt_payload_size = false;
inline bool opt_qos = false;
inline bool opt_timestamp = false;

/// Takes the options and appends the other arguments to `args`. Returns false when the usage is to
/// be shown: for -h, an unknown option or a missing argument. -v writes the version and ends the
/// process with status 0.
bool parse_opts(int argc, char** argv, std::vector<std::string>& args);

/// Writes the version line to standard error.
void version();

/// Writes the usage text, with every command's help, to standard error.
void usage();
