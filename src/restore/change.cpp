#include "restore/change.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "dump/compose.h"
#include "dump/hex.h"
#include "dump/json_record.h"

namespace restore {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

// How much of a value is shown at most, and how much of it stands before the first difference.
constexpr std::size_t MAX_CHARACTERS = 48;
constexpr std::size_t MAX_BYTES = 16;
constexpr std::size_t LEAD = 4;

void append_hex(std::string& line, std::uint32_t number) {
    char digits[8];
    line.append(digits, std::to_chars(digits, digits + sizeof digits, number, 16).ptr);
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
    for (const char byte : bytes) line += dump::shown_byte(byte);
    line.pop_back();  // a blank
}

void append_value(std::string& line, std::string_view value, std::size_t first_difference) {
    const bool is_text = std::all_of(value.begin(), value.end(), is_quotable);
    const std::size_t max_size = is_text ? MAX_CHARACTERS : MAX_BYTES;
    const bool whole = value.size() <= max_size;
    const std::size_t from = whole || first_difference < max_size ? 0 : first_difference - LEAD;
    const std::string_view part = value.substr(from, max_size);

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

void append_fields(std::string& line, const char* what, const Entry& entry) {
    line.append(what).append(", DID ");
    append_hex(line, entry.did());
    line += ", XCPID ";
    append_hex(line, entry.xcpid());
    line += ", data ";
    append_value(line, entry.data(), 0);
    line += ',';
}

void compose_side(dump::JsonLines& json, const char* key, const Entry* entry) {
    if (entry == nullptr) return json.null(key);
    json.begin(key);
    dump::add_fields(json, *entry);
    json.end();
}

}  // namespace

std::string change_line(const Change& change) {
    const auto& [otaid, was, is, refused] = change;
    std::string line = dump::compose_otaid(otaid) + ':';
    if (was == nullptr) {
        append_fields(line, " new", *is);
    } else if (is == nullptr) {
        append_fields(line, " not in the file", *was);
    } else {
        append_number_change(line, " DID ", was->did(), is->did());
        append_number_change(line, " XCPID ", was->xcpid(), is->xcpid());
        append_value_change(line, was->data(), is->data());
    }
    line.back() = '\n';  // in place of the last comma
    return line;
}

void compose_change(dump::JsonLines& json, const Change& change) {
    json.begin();
    json.number("otaid", change.otaid);
    compose_side(json, "was", change.was);
    compose_side(json, "is", change.is);
    if (change.refused) json.flag("refused", true);
    json.end();
}

}  // namespace restore
