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

/// A line that is none, and why.
struct ConfigFault {
    int line;
    std::string cause;
};

struct ConfigFile {
    std::vector<ConfigEntry> entries;
    std::vector<ConfigFault> faults;
};

/// Reads "key = value" lines. A line that begins with '#' is a comment, one behind a value is a
/// fault; blanks around keys and values do not count.
ConfigFile parse_config(std::istream& input);

}  // namespace lapi_mqtt
