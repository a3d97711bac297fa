#pragma once

#include <google/protobuf/io/coded_stream.h>

#include <cstdint>

/// Protobuf's encoding of one field, for readers that take a message apart field by field.
namespace protocol {

inline constexpr std::uint32_t VARINT = 0;
inline constexpr std::uint32_t FIXED_64 = 1;
inline constexpr std::uint32_t LENGTH_DELIMITED = 2;
inline constexpr std::uint32_t FIXED_32 = 5;

constexpr std::uint32_t make_tag(int field, std::uint32_t wire_type) {
    return static_cast<std::uint32_t>(field) << 3U | wire_type;
}

/// Skips the field whose tag was just read. False when it is malformed or a group, which no message
/// of ours has.
inline bool skip_field(google::protobuf::io::CodedInputStream& input, std::uint32_t tag) {
    if (tag >> 3U == 0) return false;  // fields count from 1
    std::uint64_t number = 0;
    int size = 0;
    switch (tag & 7U) {
        case VARINT:
            return input.ReadVarint64(&number);
        case FIXED_64:
            return input.Skip(8);
        case LENGTH_DELIMITED:
            return input.ReadVarintSizeAsInt(&size) && input.Skip(size);
        case FIXED_32:
            return input.Skip(4);
        default:
            return false;
    }
}

}  // namespace protocol
