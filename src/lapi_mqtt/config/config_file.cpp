#include "lapi_mqtt/config/config_file.h"

namespace lapi_mqtt {
namespace {

std::string trimmed(const std::string& text) {
    constexpr char BLANKS[] = " \t\r";
    const auto first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

}  // namespace

ConfigFile parse_config(std::istream& input) {
    ConfigFile file;
    std::string text;
    for (int line = 1; std::getline(input, text); ++line) {
        const std::string content = trimmed(text);
        if (content.empty() || content.front() == '#') continue;
        const auto equals = content.find('=');
        if (equals == std::string::npos) {
            file.faults.push_back({line, "no '=' in '" + content + "'"});
            continue;
        }
        std::string key = trimmed(content.substr(0, equals));
        if (key.empty()) {
            file.faults.push_back({line, "no key before '='"});
            continue;
        }
        std::string value = trimmed(content.substr(equals + 1));
        if (value.find(" #") != std::string::npos || value.find("\t#") != std::string::npos) {
            file.faults.push_back(
                {line, "'" + value + "' holds a '#'; a comment stands on a line of its own"});
            continue;
        }
        file.entries.push_back({line, std::move(key), std::move(value)});
    }
    return file;
}

}  // namespace lapi_mqtt
