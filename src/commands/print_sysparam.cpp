#include "commands/print_sysparam.h"

#include <iostream>

namespace commands {

namespace {

constexpr char HEX_DIGITS[] = "0123456789abcdef";
constexpr std::size_t OTAID_DIGITS = 3;
constexpr std::size_t LABELS_SIZE = 160;    // room for the labels and numbers of a block
constexpr std::size_t SHOWN_BYTE_SIZE = 6;  // a byte as it is, and as "0xff "

void append_hex(std::string& text, std::size_t number, std::size_t least_digits = 1) {
    std::size_t digits = 1;
    while (number >> (4 * digits) != 0 && digits < 2 * sizeof number) ++digits;
    if (digits < least_digits) digits = least_digits;
    while (digits-- > 0) text += HEX_DIGITS[number >> (4 * digits) & 0xf];
}

void append_hex_bytes(std::string& text, const std::string& bytes) {
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        const char shown[] = {'0', 'x', HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 0xf], ' '};
        text.append(shown, sizeof shown);
    }
}

}  // namespace

std::string compose_sysparam(std::uint32_t otaid,
                             const ecu::lapi::pb::SystemParameterEntry& entry) {
    const std::string& data = entry.data();
    std::string text;
    text.reserve(LABELS_SIZE + SHOWN_BYTE_SIZE * data.size());
    text.append("SysParam (").append(std::to_string(otaid)).append("):\n");
    text.append("  OTAID: ").append(std::to_string(entry.otaid())).append(" - 0x");
    append_hex(text, entry.otaid(), OTAID_DIGITS);
    text.append("\n  DID: ");
    append_hex(text, entry.did());
    text.append("\n  XCPID: ");
    append_hex(text, entry.xcpid());
    text.append("\n  data(char) [");
    append_hex(text, data.size());
    text.append("]: '").append(data).append("'\n  data(hex) [");
    append_hex(text, data.size());
    text.append("]: ");
    append_hex_bytes(text, data);
    return text += '\n';
}

void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry) {
    const std::string text = compose_sysparam(otaid, entry);
    std::cout.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace commands
