#include "dump/compose.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "dump/hex.h"

namespace dump {
namespace {

constexpr std::size_t LABELS_SIZE = 192;  // the labels and numbers of a block take less

/// Fills a buffer that is large enough. A full read composes a block a parameter, so that this
/// writes in place instead of appending.
class BlockWriter {
public:
    explicit BlockWriter(char* buffer) : at(buffer) {}

    char* end() const { return at; }

    BlockWriter& text(std::string_view bytes) {
        std::memcpy(at, bytes.data(), bytes.size());
        at += bytes.size();
        return *this;
    }

    template <typename Number>
    BlockWriter& number(Number value, int base) {
        constexpr int MAX_DIGITS = 16;
        at = std::to_chars(at, at + MAX_DIGITS, value, base).ptr;
        return *this;
    }

    BlockWriter& otaid(std::uint32_t otaid) {
        number(otaid, 10).text(otaid < 0x10 ? " - 0x00" : otaid < 0x100 ? " - 0x0" : " - 0x");
        return number(otaid, 16);
    }

    BlockWriter& hex_bytes(const std::string& bytes) {
        char* shown = at;
        for (const char byte : bytes) {
            const auto& filled = SHOWN_BYTES[static_cast<unsigned char>(byte)];
            std::memcpy(shown, filled.data(), filled.size());
            shown += SHOWN_BYTE_SIZE;
        }
        at = shown;
        return *this;
    }

private:
    char* at;
};

}  // namespace

std::string_view compose(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry) {
    const std::string& data = entry.data();
    const std::size_t max_size = LABELS_SIZE + (1 + SHOWN_BYTE_SIZE) * data.size();
    if (buffer.size() < max_size) buffer.resize(max_size);
    BlockWriter writer(buffer.data());
    writer.text("SysParam (").number(otaid, 10).text("):\n  OTAID: ").otaid(entry.otaid());
    writer.text("\n  DID: ").number(entry.did(), 16);
    writer.text("\n  XCPID: ").number(entry.xcpid(), 16);
    writer.text("\n  data(char) [").number(data.size(), 16).text("]: '").text(data);
    writer.text("'\n  data(hex) [").number(data.size(), 16).text("]: ").hex_bytes(data).text("\n");
    return {buffer.data(), static_cast<std::size_t>(writer.end() - buffer.data())};
}

std::string compose_otaid(std::uint32_t otaid) {
    char text[LABELS_SIZE];
    return {text, BlockWriter(text).otaid(otaid).end()};
}

}  // namespace dump
