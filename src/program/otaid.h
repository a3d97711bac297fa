#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace program {

/// The OTAID that is the whole of `text`, as a signed or unsigned 32-bit number: base 16 behind
/// "0x", else base 10.
std::optional<std::uint32_t> parse_whole_otaid(const std::string& text);

}  // namespace program
