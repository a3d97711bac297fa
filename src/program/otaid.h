#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The notation of OTAIDs on command lines: base 16 behind HEX_PREFIX, else base 10.

/// The only mark of a hexadecimal OTAID.
inline constexpr std::string_view HEX_PREFIX = "0x";

/// The OTAID that `text` begins with; what follows its digits is ignored. Throws
/// std::invalid_argument when there is no digit, std::out_of_range outside the signed 32-bit range.
std::int32_t parse_otaid(const std::string& text);

/// The OTAID that is the whole of `text`, which may also be an unsigned 32-bit number.
std::optional<std::uint32_t> parse_whole_otaid(const std::string& text);
