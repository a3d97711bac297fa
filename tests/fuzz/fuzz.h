#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline void require(bool holds) {
    if (!holds) std::abort();
}

/// The texts that an input is made of, at least one, with a record separator between them.
inline std::vector<std::string> texts_of(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> texts(1);
    for (std::size_t at = 0; at < size; ++at) {
        data[at] == 0x1e ? texts.emplace_back() : texts.back() += static_cast<char>(data[at]);
    }
    return texts;
}
