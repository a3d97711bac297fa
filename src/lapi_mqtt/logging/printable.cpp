#include "lapi_mqtt/logging/printable.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace lapi_mqtt {
namespace {

/// Ranges of characters that change how the text around them looks, and are not seen themselves.
constexpr std::pair<std::uint32_t, std::uint32_t> DECEPTIVE[] = {
    {0x00ad, 0x00ad},   {0x034f, 0x034f},   {0x061c, 0x061c}, {0x115f, 0x1160}, {0x17b4, 0x17b5},
    {0x180b, 0x180f},   {0x200b, 0x200f},   {0x2028, 0x202e}, {0x2060, 0x206f}, {0x3164, 0x3164},
    {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},   {0xffa0, 0xffa0}, {0xfff0, 0xfffb}, {0x1bca0, 0x1bca3},
    {0x1d173, 0x1d17a}, {0xe0000, 0xe0fff},
};

/// False for control characters and for those that Unicode keeps out of texts.
bool is_of_text(std::uint32_t character) {
    const bool is_control = character < 0x20 || (character >= 0x7f && character < 0xa0);
    const bool is_none =
        (character >= 0xfdd0 && character < 0xfdf0) || (character & 0xfffeU) == 0xfffe;
    return !is_control && !is_none;
}

bool is_shown(std::uint32_t character) {
    if (!is_of_text(character)) return false;
    return std::none_of(std::begin(DECEPTIVE), std::end(DECEPTIVE), [character](const auto& range) {
        return character >= range.first && character <= range.second;
    });
}

/// A character of UTF-8 at the front of `text`; a length of 0 when there is none.
struct Character {
    std::uint32_t code = 0;
    std::size_t length = 0;
};

Character first_of(std::string_view text) {
    constexpr std::uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
    const auto byte_at = [text](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte_at(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead >= 0xf8 ? 0 : lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc0 || length == 0 || text.size() < length) return {};
    std::uint32_t code = lead & (0x7fU >> length);
    for (std::size_t at = 1; at < length; ++at) {
        if ((byte_at(at) & 0xc0U) != 0x80) return {};
        code = code << 6U | (byte_at(at) & 0x3fU);
    }
    const bool is_surrogate = code >= 0xd800 && code < 0xe000;
    if (code < LEAST[length] || code > 0x10ffff || is_surrogate) return {};
    return {code, length};
}

std::string formatted(const char* format, unsigned number) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

std::string escaped(std::uint32_t code) {
    if (code == '\n') return "\\n";
    if (code == '\r') return "\\r";
    if (code == '\t') return "\\t";
    return formatted(code < 0x80 ? "\\x%02x" : code < 0x10000 ? "\\u%04x" : "\\U%08x", code);
}

}  // namespace

bool is_text(const std::string& bytes) {
    for (std::string_view left = bytes; !left.empty();) {
        const Character character = first_of(left);
        if (character.length == 0 || !is_of_text(character.code)) return false;
        left.remove_prefix(character.length);
    }
    return true;
}

std::string printable(const std::string& text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::string_view left = text; !left.empty();) {
        const Character character = first_of(left);
        if (character.length == 0) {
            shown += formatted("\\x%02x", static_cast<unsigned char>(left.front()));
            left.remove_prefix(1);
            continue;
        }
        if (is_shown(character.code)) {
            shown += left.substr(0, character.length);
        } else {
            shown += escaped(character.code);
        }
        left.remove_prefix(character.length);
    }
    return shown;
}

}  // namespace lapi_mqtt
