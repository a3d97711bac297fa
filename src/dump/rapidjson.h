#pragma once

// The library's own type of sizes has 32 bits.
#define RAPIDJSON_NO_SIZETYPEDEFINE
#include <cstddef>
namespace rapidjson {
using SizeType = std::size_t;
}

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/writer.h>

#include <string_view>

namespace dump {

/// Whether the bytes are valid UTF-8, of characters that `accepted` accepts.
template <typename Accepted>
bool is_utf8(std::string_view bytes, Accepted accepted) {
    rapidjson::MemoryStream stream(bytes.data(), bytes.size());
    while (stream.Tell() < bytes.size()) {
        unsigned codepoint = 0;
        if (!rapidjson::UTF8<>::Decode(stream, &codepoint) || !accepted(codepoint)) return false;
    }
    return true;
}

}  // namespace dump
