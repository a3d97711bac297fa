#pragma once

#include <string>

namespace lapi_mqtt {

/// True for UTF-8 without control characters and the like: what MQTT takes for text.
bool is_text(const std::string& bytes);

/// Text from anywhere as a terminal may show it: control characters, characters that reorder or
/// hide text, and bytes that are no UTF-8 stand in it escaped, as "\n", "\x1b" or "\u202e".
std::string printable(const std::string& text);

}  // namespace lapi_mqtt
