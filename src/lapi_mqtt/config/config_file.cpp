#include "lapi_mqtt/config/config_file.h"

#include <algorithm>
#include <optional>

namespace lapi_mqtt {
namespace {

std::string trimmed(const std::string& text) {
    constexpr char BLANKS[] = " \t\r";
    const auto first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/// What is wrong with a value's form, if anything.
std::optional<std::string> form_error(const std::string& value) {
    if (value.find(" #") != std::string::npos || value.find("\t#") != std::string::npos) {
        return "'" + value + "' holds a '#'; a comment stands on a line of its own";
    }
    const bool is_quoted = value.size() > 1 && value.front() == value.back() &&
                           (value.front() == '"' || value.front() == '\'');
    if (!is_quoted) return std::nullopt;
    return "the value " + value + " stands in quotes; write it without them";
}

/// Takes a line that is neither empty nor a comment; returns what is wrong with it, if anything.
std::optional<std::string> take(const std::string& content, int line,
                                std::vector<ConfigEntry>& entries) {
    const auto equals = content.find('=');
    if (equals == std::string::npos) return "no '=' in '" + content + "'";
    std::string key = trimmed(content.substr(0, equals));
    if (key.empty()) return "no key before '='";
    std::string value = trimmed(content.substr(equals + 1));
    if (auto error = form_error(value)) return error;
    const auto same = std::find_if(entries.begin(), entries.end(),
                                   [&key](const ConfigEntry& other) { return other.key == key; });
    if (same != entries.end()) {
        return "'" + key + "' is set in line " + std::to_string(same->line) + ", too; remove one";
    }
    entries.push_back({line, std::move(key), std::move(value)});
    return std::nullopt;
}

}  // namespace

ConfigFile parse_config(std::istream& input) {
    ConfigFile file;
    std::string text;
    for (int line = 1; std::getline(input, text); ++line) {
        const std::string content = trimmed(text);
        if (content.empty() || content.front() == '#') continue;
        if (auto error = take(content, line, file.entries)) {
            file.errors.push_back({line, std::move(*error)});
        }
    }
    return file;
}

}  // namespace lapi_mqtt
