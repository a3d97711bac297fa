#include "lapi_mqtt/config/config_file.h"

#include <algorithm>

namespace lapi_mqtt {
namespace {

std::string trimmed(const std::string& text) {
    constexpr char BLANKS[] = " \t\r";
    const auto first = text.find_first_not_of(BLANKS);
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

/// What is wrong with a value's form; empty when nothing is.
std::string form_error(const std::string& value) {
    if (value.find(" #") != std::string::npos || value.find("\t#") != std::string::npos) {
        return "'" + value + "' holds a '#'; a comment stands on a line of its own";
    }
    const bool is_quoted = value.size() > 1 && value.front() == value.back() &&
                           (value.front() == '"' || value.front() == '\'');
    return is_quoted ? "the value " + value + " stands in quotes; write it without them" : "";
}

/// Takes a line apart that is neither empty nor a comment.
ConfigLine parse_line(int number, const std::string& content,
                      const std::vector<ConfigLine>& before) {
    ConfigLine line;
    line.number = number;
    const auto equals = content.find('=');
    line.key = trimmed(content.substr(0, equals));
    if (equals != std::string::npos) line.value = trimmed(content.substr(equals + 1));
    const auto same = std::find_if(before.begin(), before.end(), [&line](const ConfigLine& other) {
        return other.error.empty() && other.key == line.key;
    });
    if (equals == std::string::npos) {
        line.error = "no '=' in '" + content + "'";
    } else if (line.key.empty()) {
        line.error = "no key before '='";
    } else if (same != before.end()) {
        line.error = "'" + line.key + "' is set in line " + std::to_string(same->number) +
                     ", too; remove one";
    } else {
        line.error = form_error(line.value);
    }
    return line;
}

}  // namespace

std::vector<ConfigLine> parse_config(std::istream& input) {
    std::vector<ConfigLine> lines;
    std::string text;
    for (int number = 1; std::getline(input, text); ++number) {
        const std::string content = trimmed(text);
        if (content.empty() || content.front() == '#') continue;
        lines.push_back(parse_line(number, content, lines));
    }
    return lines;
}

}  // namespace lapi_mqtt
