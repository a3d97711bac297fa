#include "dump/compose.h"

#include <charconv>
#include <cstring>

#include "dump/hex.h"

namespace dump {
namespace {

constexpr int MIN_OTAID_DIGITS = 3;
constexpr std::size_t LABELS_SIZE = 192;  // the labels and numbers of a block take less

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
        at = std::to_chars(at, at + MAX_DIGITS, number).ptr;
        return *this;
    }

    BlockWriter& hex(std::uint64_t number, int min_digits = 1) {
        int digits = min_digits;
        while (digits < MAX_DIGITS && number >> (4 * digits) != 0) ++digits;
        while (digits-- > 0) *at++ = HEX_DIGITS[number >> (4 * digits) & 0xf];
        return *this;
    }

    BlockWriter& otaid(std::uint32_t otaid) {
        return decimal(otaid).label(" - 0x").hex(otaid, MIN_OTAID_DIGITS);
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
    static constexpr int MAX_DIGITS = 16;

    char* at;
};

}  // namespace

std::size_t compose_into(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry) {
    const std::string& data = entry.data();
    const std::size_t max_size = LABELS_SIZE + (1 + SHOWN_BYTE_SIZE) * data.size();
    if (buffer.size() < max_size) buffer.resize(max_size);
    BlockWriter writer(buffer.data());
    writer.label("SysParam (").decimal(otaid).label("):\n");
    writer.label("  OTAID: ").otaid(entry.otaid()).label("\n");
    writer.label("  DID: ").hex(entry.did()).label("\n");
    writer.label("  XCPID: ").hex(entry.xcpid()).label("\n");
    writer.label("  data(char) [").hex(data.size()).label("]: '");
    writer.copy(data.data(), data.size()).label("'\n");
    writer.label("  data(hex) [").hex(data.size()).label("]: ").hex_bytes(data).label("\n");
    return static_cast<std::size_t>(writer.end() - buffer.data());
}

std::string compose_otaid(std::uint32_t otaid) {
    char text[LABELS_SIZE];
    return {text, BlockWriter(text).otaid(otaid).end()};
}

bool begins_with_hex(std::string_view text, std::string_view data) {
    if (text.size() / SHOWN_BYTE_SIZE < data.size()) return false;
    const char* shown = text.data();
    for (const char byte : data) {
        if (std::memcmp(shown, shown_byte(byte).data(), SHOWN_BYTE_SIZE) != 0) return false;
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
