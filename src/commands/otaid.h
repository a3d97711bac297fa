#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace commands {

/// The only mark of a hexadecimal OTAID.
inline constexpr std::string_view HEX_PREFIX = "0x";

/// The OTAID that an argument begins with, in base 16 behind HEX_PREFIX, else in base 10; what
/// follows its digits is ignored. Nothing, and a message on standard output, when it begins with
/// none or with one outside the signed 32-bit range.
std::optional<std::int32_t> otaid_of_argument(const std::string& argument);

}  // namespace commands
