#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

/// The command lines of korvid-restore, korvid-monitor, korvid-unit and korvid-json.
namespace program {

/// A command line that cannot be followed.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& what_is_wrong)
        : std::runtime_error(what_is_wrong + "; try -h") {}
};

/// An option, with or without (0) a letter.
struct Option {
    char letter;
    const char* name;
    const char* value;  ///< what the help calls its value; null for a flag
    const char* help;   ///< lines
    std::function<void(const std::string& value)> take;  ///< a flag gets an empty text
};

/// What an option takes: its value becomes `target`, or a flag sets `target` to true.
inline auto into(std::string& target) {
    return [&target](const std::string& value) { target = value; };
}
inline auto into(bool& target) {
    return [&target](const std::string&) { target = true; };
}

/// The values of -H, -p and -l.
struct CommonOptions {
    std::string host;  ///< empty: as configured
    std::string port;  ///< empty: as configured
    std::string loglevel = "WARNING";
};

/// What -h shows around the options.
struct Help {
    const char* program;
    const char* arguments;    ///< what stands behind the program's name
    const char* description;  ///< in front of the options
    const char* remarks;      ///< behind them
};

/// Takes the command line's options and returns its other arguments. Besides `options` these are
/// -H, -p and -l unless `common` is null, and -h and -v, which write to standard output and end the
/// process with status 0. Throws UsageError.
std::vector<std::string> parse_command_line(int argc, char** argv, const Help& help,
                                            std::vector<Option> options, CommonOptions* common);

}  // namespace program
