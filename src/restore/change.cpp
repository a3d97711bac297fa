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

// Characters that are quoted by an escape, and its letter.
constexpr std::string_view ESCAPED = "\n\r\t\"\\";
constexpr std::string_view ESCAPES = "nrt\"\\";

bool is_quotable(char character) {
    return (character >= ' ' && character <= '~') || ESCAPED.find(character) < ESCAPED.size();
}

std::string quoted(std::string_view text) {
    std::string shown = "\"";
    for (const char character : text) {
        const std::size_t escape = ESCAPED.find(character);
        const bool is_escaped = escape < ESCAPED.size();
        if (is_escaped) shown += '\\';
        shown += is_escaped ? ESCAPES[escape] : character;
    }
    return shown + '"';
}

std::string in_bytes(std::string_view value) {
    std::string shown;
    for (const char byte : value) shown += dump::shown_byte(byte);
    shown.pop_back();  // a blank
    return shown;
}

std::string shown_value(std::string_view value, std::size_t first_difference) {
    const bool is_text = std::all_of(value.begin(), value.end(), is_quotable);
    const std::size_t max_size = is_text ? MAX_CHARACTERS : MAX_BYTES;
    const bool whole = value.size() <= max_size;
    const std::size_t from = whole || first_difference < max_size ? 0 : first_difference - LEAD;
    const std::string_view part = value.substr(from, max_size);
    return (from > 0 ? "..." : "") + (is_text ? quoted : in_bytes)(part) +
           (from + part.size() < value.size() ? "..." : "") +
           (whole ? "" : " (" + std::to_string(value.size()) + " bytes)");
}

std::string hex(std::uint32_t number) {
    char digits[8];
    return {digits, std::to_chars(digits, digits + sizeof digits, number, 16).ptr};
}

/// The parameter that only one side has.
std::string all_fields(const Entry& entry) {
    return ", DID " + hex(entry.did()) + ", XCPID " + hex(entry.xcpid()) + ", data " +
           shown_value(entry.data(), 0);
}

/// The fields in which the two sides differ.
std::string changed_fields(const Entry& was, const Entry& is) {
    std::string shown;
    const auto add = [&shown](const char* label, const std::string& old, const std::string& now) {
        shown.append(shown.empty() ? " " : ", ").append(label) += old + " -> " + now;
    };
    if (was.did() != is.did()) add("DID ", hex(was.did()), hex(is.did()));
    if (was.xcpid() != is.xcpid()) add("XCPID ", hex(was.xcpid()), hex(is.xcpid()));
    if (was.data() != is.data()) {
        const std::string& old = was.data();
        const std::string& now = is.data();
        const auto at = std::mismatch(old.begin(), old.end(), now.begin(), now.end()).first;
        const auto first = static_cast<std::size_t>(at - old.begin());
        add("data ", shown_value(old, first), shown_value(now, first));
    }
    return shown;
}

dump::Member side(const char* key, const Entry* entry) {
    if (entry == nullptr) return {key, nullptr};
    return {key, dump::members_of(*entry)};
}

}  // namespace

std::string change_line(const Change& change) {
    const auto& [otaid, was, is, refused] = change;
    return dump::compose_otaid(otaid) + ':' +
           (was == nullptr  ? " new" + all_fields(*is)
            : is == nullptr ? " not in the file" + all_fields(*was)
                            : changed_fields(*was, *is)) +
           '\n';
}

std::string_view change_json(const Change& change) {
    std::vector<dump::Member> members{
        {"otaid", std::uint64_t{change.otaid}}, side("was", change.was), side("is", change.is)};
    if (change.refused) members.push_back({"refused", true});
    return dump::json_line(members);
}

}  // namespace restore
