#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The notation of OTAIDs on the command line.
namespace commands {

/// The only mark of a hexadecimal OTAID.
inline constexpr std::string_view HEX_PREFIX = "0x";

/// The OTAID that `text` begins with: base 16 behind HEX_PREFIX, else base 10; what follows the
/// digits is ignored. Throws std::invalid_argument when there is no digit, std::out_of_range
/// outside the signed 32-bit range.
std::int32_t parse_otaid(const std::string& text);

/// The OTAID that an argument names; nothing, and a message on standard output, when it names none.
std::optional<std::int32_t> otaid_of_argument(const std::string& argument);

}  // namespace commands
