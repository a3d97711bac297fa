#pragma once

#include <istream>
#include <string>
#include <vector>

namespace lapi_mqtt {

/// One "key = value" line.
struct ConfigEntry {
    int line;  ///< counted from 1
    std::string key;
    std::string value;
};

/// A line that cannot be taken, and why.
struct ConfigError {
    int line;
    std::string cause;
};

struct ConfigFile {
    std::vector<ConfigEntry> entries;
    std::vector<ConfigError> errors;
};

/// Reads "key = value" lines; blanks around keys and values do not count. A line that begins with
/// '#' is a comment. A comment behind a value, a value in quotes and a key's second line are
/// errors.
ConfigFile parse_config(std::istream& input);

}  // namespace lapi_mqtt
