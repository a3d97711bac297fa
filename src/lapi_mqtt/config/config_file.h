#pragma once

#include <istream>
#include <string>
#include <vector>

namespace lapi_mqtt {

/// One "key = value" line.
struct ConfigLine {
    int number = 0;  ///< counted from 1
    std::string key;
    std::string value;
    std::string error;  ///< why it cannot be used; empty when it can
};

/// Reads "key = value" lines; blanks around keys and values do not count. A line that begins with
/// '#' is a comment. A comment behind a value, a value in quotes and a key's second line are
/// errors.
std::vector<ConfigLine> parse_config(std::istream& input);

}  // namespace lapi_mqtt
