#pragma once

#include <string>
#include <string_view>

/// JSON Lines: a parameter is an object of "otaid", "did", "xcpid" and its value as "data", two
/// hexadecimal digits a byte, and as "text".
namespace dump {

/// Appends a text of valid UTF-8.
void append_string(std::string& json, std::string_view text);

/// Appends the members of a value: "data", and "text" where the bytes are valid UTF-8 without
/// control characters other than tab and line end.
void append_value(std::string& json, std::string_view bytes);

}  // namespace dump
