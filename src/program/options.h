#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// Options that every program has: -H, -p and -l, beside -h and -v.
struct CommonOptions {
    std::string host;  ///< empty: as configured
    std::string port;  ///< empty: as configured
    std::string loglevel = "WARNING";
};

/// An option of one program, with or without (0) a letter. `take` gets its argument, or an empty
/// text, and returns false when the usage is to be shown.
struct OwnOption {
    char letter;
    const char* name;
    bool has_argument;
    std::function<bool(const char* argument)> take;
};

/// An option whose argument becomes `value`, and one that sets `value` to true.
OwnOption text_option(char letter, const char* name, std::string& value);
OwnOption flag_option(char letter, const char* name, bool& value);

/// Takes the command line's options and returns its other arguments; nothing when the usage is to
/// be shown. -v writes the version line and ends the process with status 0.
std::optional<std::vector<std::string>> parse_command_line(int argc, char** argv,
                                                           const char* program,
                                                           CommonOptions& common,
                                                           const std::vector<OwnOption>& own);

/// Writes "PROGRAM: BUILD DESCRIPTION" to standard error.
void write_version(const char* program);
