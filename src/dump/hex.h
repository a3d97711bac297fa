#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace dump {

inline constexpr char HEX_DIGITS[] = "0123456789abcdef";

/// A byte as "0xff ", filled up to a size that is copied in one go.
struct ShownByte {
    char text[8];
};
inline constexpr std::size_t SHOWN_BYTE_SIZE = 5;

constexpr std::array<ShownByte, 256> shown_bytes() {
    std::array<ShownByte, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = {{'0', 'x', HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 0xf], ' '}};
    }
    return table;
}
inline constexpr std::array<ShownByte, 256> SHOWN_BYTES = shown_bytes();

/// A byte as a block shows it: "0xff ".
constexpr std::string_view shown_byte(char byte) {
    return {SHOWN_BYTES[static_cast<unsigned char>(byte)].text, SHOWN_BYTE_SIZE};
}

}  // namespace dump
