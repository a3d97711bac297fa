#include "restore/change_line.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace restore {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

// The most of a value that is shown, and how much of it stands before the first difference.
constexpr std::size_t MOST_CHARACTERS = 48;
constexpr std::size_t MOST_BYTES = 16;
constexpr std::size_t LEAD = 4;
constexpr int OTAID_DIGITS = 3;

void append_hex(std::string& line, std::uint32_t number, int least_digits = 1) {
    char digits[8];
    auto* const end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
    const auto count = end - digits;
    if (count < least_digits) line.append(static_cast<std::size_t>(least_digits - count), '0');
    line.append(digits, end);
}

/// The letter of a character's escape; 0 when it stands for itself, or cannot be quoted.
char escape_of(char character) {
    switch (character) {
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        case '"':
        case '\\':
            return character;
        default:
            return 0;
    }
}

bool is_quotable(char character) {
    return (character >= ' ' && character <= '~') || escape_of(character) != 0;
}

void append_quoted(std::string& line, std::string_view text) {
    line += '"';
    for (const char character : text) {
        const char escape = escape_of(character);
        if (escape != 0) line += '\\';
        line += escape != 0 ? escape : character;
    }
    line += '"';
}

void append_bytes(std::string& line, std::string_view bytes) {
    const char* separator = "0x";
    for (const char byte : bytes) {
        line += separator;
        append_hex(line, static_cast<unsigned char>(byte), 2);
        separator = " 0x";
    }
}

void append_value(std::string& line, std::string_view value, std::size_t first_difference) {
    const bool is_text = std::all_of(value.begin(), value.end(), is_quotable);
    const std::size_t most = is_text ? MOST_CHARACTERS : MOST_BYTES;
    const bool whole = value.size() <= most;
    const std::size_t from = whole || first_difference < most ? 0 : first_difference - LEAD;
    const std::string_view part = value.substr(from, most);

    if (from > 0) line += "...";
    (is_text ? append_quoted : append_bytes)(line, part);
    if (from + part.size() < value.size()) line += "...";
    if (!whole) line.append(" (").append(std::to_string(value.size())).append(" bytes)");
}

void append_number_change(std::string& line, const char* label, std::uint32_t was,
                          std::uint32_t is) {
    if (was == is) return;
    line += label;
    append_hex(line, was);
    line += " -> ";
    append_hex(line, is);
    line += ',';
}

void append_value_change(std::string& line, const std::string& was, const std::string& is) {
    if (was == is) return;
    const auto difference = std::mismatch(was.begin(), was.end(), is.begin(), is.end()).first;
    const auto at = static_cast<std::size_t>(difference - was.begin());
    line += " data ";
    append_value(line, was, at);
    line += " -> ";
    append_value(line, is, at);
    line += ',';
}

}  // namespace

std::string change_line(std::uint32_t otaid, const Entry* was, const Entry& is) {
    std::string line = std::to_string(otaid) + " - 0x";
    append_hex(line, otaid, OTAID_DIGITS);
    line += ':';
    if (was == nullptr) {
        line += " new, DID ";
        append_hex(line, is.did());
        line += ", XCPID ";
        append_hex(line, is.xcpid());
        line += ", data ";
        append_value(line, is.data(), 0);
        return line + '\n';
    }
    append_number_change(line, " DID ", was->did(), is.did());
    append_number_change(line, " XCPID ", was->xcpid(), is.xcpid());
    append_value_change(line, was->data(), is.data());
    line.back() = '\n';  // in place of the last comma
    return line;
}

}  // namespace restore
