#include "dump/compose.h"

#include <array>
#include <charconv>
#include <cstring>

namespace dump {
namespace {

constexpr char HEX_DIGITS[] = "0123456789abcdef";
constexpr int OTAID_DIGITS = 3;
constexpr std::size_t LABELS_SIZE = 192;  // room for the labels and numbers of a block

/// A byte as "0xff ", filled up to a size that is copied in one go.
struct ShownByte {
    char text[8];
};

constexpr std::array<ShownByte, 256> shown_bytes() {
    std::array<ShownByte, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        table[byte] = {{'0', 'x', HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 0xf], ' '}};
    }
    return table;
}
constexpr std::array<ShownByte, 256> SHOWN_BYTES = shown_bytes();

/// Fills a buffer that is large enough. A full read composes a block a parameter, so that this
/// writes in place instead of appending.
class BlockWriter {
public:
    explicit BlockWriter(char* buffer) : at(buffer) {}

    char* end() const { return at; }

    template <std::size_t SIZE>
    BlockWriter& label(const char (&text)[SIZE]) {
        return copy(text, SIZE - 1);
    }

    BlockWriter& copy(const char* bytes, std::size_t size) {
        std::memcpy(at, bytes, size);
        at += size;
        return *this;
    }

    BlockWriter& decimal(std::uint32_t number) {
        at = std::to_chars(at, at + MOST_DIGITS, number).ptr;
        return *this;
    }

    BlockWriter& hex(std::uint64_t number, int least_digits = 1) {
        int digits = least_digits;
        while (digits < MOST_DIGITS && number >> (4 * digits) != 0) ++digits;
        while (digits-- > 0) *at++ = HEX_DIGITS[number >> (4 * digits) & 0xf];
        return *this;
    }

    BlockWriter& hex_bytes(const std::string& bytes) {
        char* shown = at;
        for (const char character : bytes) {
            const auto byte = static_cast<unsigned char>(character);
            std::memcpy(shown, SHOWN_BYTES[byte].text, sizeof SHOWN_BYTES[byte].text);
            shown += SHOWN_BYTE_SIZE;
        }
        at = shown;
        return *this;
    }

private:
    static constexpr int MOST_DIGITS = 16;

    char* at;
};

}  // namespace

std::size_t compose_into(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry) {
    const std::string& data = entry.data();
    const std::size_t room = LABELS_SIZE + (1 + SHOWN_BYTE_SIZE) * data.size();
    if (buffer.size() < room) buffer.resize(room);
    BlockWriter writer(buffer.data());
    writer.label("SysParam (").decimal(otaid).label("):\n");
    writer.label("  OTAID: ").decimal(entry.otaid());
    writer.label(" - 0x").hex(entry.otaid(), OTAID_DIGITS).label("\n");
    writer.label("  DID: ").hex(entry.did()).label("\n");
    writer.label("  XCPID: ").hex(entry.xcpid()).label("\n");
    writer.label("  data(char) [").hex(data.size()).label("]: '");
    writer.copy(data.data(), data.size()).label("'\n");
    writer.label("  data(hex) [").hex(data.size()).label("]: ").hex_bytes(data).label("\n");
    return static_cast<std::size_t>(writer.end() - buffer.data());
}

bool begins_with_hex(std::string_view text, const std::string& data) {
    if (text.size() / SHOWN_BYTE_SIZE < data.size()) return false;
    const char* shown = text.data();
    for (const char character : data) {
        const auto byte = static_cast<unsigned char>(character);
        if (std::memcmp(shown, SHOWN_BYTES[byte].text, SHOWN_BYTE_SIZE) != 0) return false;
        shown += SHOWN_BYTE_SIZE;
    }
    return true;
}

std::string compose(std::uint32_t otaid, const ecu::lapi::pb::SystemParameterEntry& entry) {
    std::string text;
    text.resize(compose_into(text, otaid, entry));
    return text;
}

}  // namespace dump
