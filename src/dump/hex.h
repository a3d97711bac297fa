#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace dump {

inline constexpr std::size_t SHOWN_BYTE_SIZE = 5;

/// Each byte as "0xff ", filled up to a size that is copied in one go.
inline constexpr auto SHOWN_BYTES = [] {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::array<std::array<char, 8>, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = {'0', 'x', DIGITS[byte >> 4], DIGITS[byte & 0xf], ' '};
    }
    return table;
}();

/// A byte as a block shows it: "0xff ".
constexpr std::string_view shown_byte(char byte) {
    return {SHOWN_BYTES[static_cast<unsigned char>(byte)].data(), SHOWN_BYTE_SIZE};
}

}  // namespace dump
