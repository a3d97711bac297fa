#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "dump/scanner.h"

/// JSON Lines: a parameter is an object of "otaid", "did", "xcpid" and its value as "data", two
/// hexadecimal digits a byte, and as "text".
namespace dump {

struct Member;

/// Any bytes: the members "data", and "text" where they are valid UTF-8 without control characters
/// other than tab and line end.
struct Bytes {
    std::string_view bytes;
};

/// A member of an object that is composed. Texts are valid UTF-8 and outlive it.
struct Member {
    const char* key;  ///< of Bytes: none
    std::variant<std::nullptr_t, bool, std::uint64_t, std::string_view, Bytes, std::vector<Member>>
        value;
};

/// An object as a line, with its end. Valid until the next one is composed.
std::string_view json_line(const std::vector<Member>& members);

/// What the object of a parameter names.
struct Object {
    std::uint32_t otaid = 0;
    std::optional<std::uint32_t> did;
    std::optional<std::uint32_t> xcpid;
    std::optional<std::string> data;
};

/// The object in the next line that is not blank; nothing at the end. Throws std::runtime_error
/// "NAME:LINE: cause" for a line that is no such object.
std::optional<Object> next_object(Scanner& scanner);

}  // namespace dump
