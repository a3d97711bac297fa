#pragma once

#include <cstddef>
#include <cstdint>

namespace lapi_mqtt {

constexpr unsigned WIRE_TYPE_BITS = 3;
enum WireType : unsigned { VARINT = 0, FIXED64 = 1, LENGTH_DELIMITED = 2, FIXED32 = 5 };

constexpr std::uint64_t tag_of(int field, WireType type) {
    return static_cast<std::uint64_t>(field) << WIRE_TYPE_BITS | type;
}

/// Reads the fields of one message in the Protocol Buffers encoding. Once it met a malformed piece
/// it is no longer good and at its end. Borrows the bytes.
class WireReader {
public:
    WireReader(const std::uint8_t* begin, std::size_t size) : at(begin), end(begin + size) {}

    bool is_good() const { return good; }
    std::size_t size() const { return static_cast<std::size_t>(end - at); }
    const char* data() const { return reinterpret_cast<const char*>(at); }

    /// The tag of the next field; 0 at the end.
    std::uint64_t tag() {
        constexpr std::ptrdiff_t MOST_BYTES = 5;
        if (at == end) return 0;
        const std::uint8_t* const begin = at;
        const std::uint64_t tag = varint();
        const bool is_tag = tag >> WIRE_TYPE_BITS != 0 && tag <= UINT32_MAX;
        return is_tag && at - begin <= MOST_BYTES ? tag : fail();
    }

    std::uint64_t varint() {
        constexpr std::uint8_t MORE = 0x80;
        if (at != end && *at < MORE) return *at++;
        std::uint64_t value = 0;
        for (unsigned shift = 0; at != end && shift < 64; shift += 7) {
            const std::uint8_t byte = *at++;
            value |= static_cast<std::uint64_t>(byte & ~MORE) << shift;
            if (byte < MORE) return value;
        }
        return fail();
    }

    /// A uint32 field; bits beyond it are dropped, as the generated classes do.
    std::uint32_t number() { return static_cast<std::uint32_t>(varint()); }

    /// The bytes behind a length.
    WireReader bytes() { return take(varint()); }

    /// Passes over a field that is not known.
    void skip(std::uint64_t tag) {
        switch (tag & ((1U << WIRE_TYPE_BITS) - 1)) {
            case VARINT:
                varint();
                break;
            case FIXED64:
                take(sizeof(std::uint64_t));
                break;
            case LENGTH_DELIMITED:
                bytes();
                break;
            case FIXED32:
                take(sizeof(std::uint32_t));
                break;
            default:
                fail();
        }
    }

private:
    WireReader take(std::uint64_t count) {
        if (count > size()) count = fail();
        const WireReader taken(at, static_cast<std::size_t>(count));
        at += count;
        return taken;
    }

    std::uint64_t fail() {
        good = false;
        at = end;
        return 0;
    }

    const std::uint8_t* at;
    const std::uint8_t* end;
    bool good = true;
};

}  // namespace lapi_mqtt
