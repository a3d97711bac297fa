#include "dump/json_record.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "dump/json.h"
#include "dump/rapidjson.h"
#include "program/otaid.h"

namespace dump {
namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;

enum Field : std::size_t { OTAID, DID, XCPID, DATA, TEXT, FIELD_COUNT };
constexpr std::string_view KEYS[] = {"otaid", "did", "xcpid", "data", "text"};

/// Nothing unless there are two digits a byte.
std::optional<std::string> bytes_of_hex(std::string_view digits) {
    const auto is_digit = [](char any) {
        const char lower = static_cast<char>(any | ' ');
        return (any >= '0' && any <= '9') || (lower >= 'a' && lower <= 'f');
    };
    const auto value = [](char digit) { return digit <= '9' ? digit - '0' : digit % 16 + 9; };
    if (digits.size() % 2 != 0 || !std::all_of(digits.begin(), digits.end(), is_digit)) {
        return std::nullopt;
    }
    std::string bytes(digits.size() / 2, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(16 * value(digits[2 * i]) + value(digits[2 * i + 1]));
    }
    return bytes;
}

[[noreturn]] void fail(const std::string& cause) {
    throw std::runtime_error(cause);
}

/// In quotes, safe on a terminal and of bounded length.
std::string quoted(std::string_view text) {
    constexpr std::size_t MAX_SHOWN = 40;
    std::string shown(text.substr(0, MAX_SHOWN));
    std::replace_if(
        shown.begin(), shown.end(), [](char any) { return any < ' ' || any > '~'; }, '?');
    return '"' + shown + '"';
}

/// Notes the members of an object. Anything else is an error at once, so that nesting
/// is not followed.
class ObjectHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ObjectHandler> {
public:
    /// The record, once the object is complete.
    Entry take() {
        if (!has[OTAID]) fail(R"("otaid" is missing)");
        if (has[DATA] && has[TEXT] && text != entry.data()) fail(R"("data" and "text" differ)");
        if (has[TEXT] && !has[DATA]) entry.set_data(std::move(text));
        return std::move(entry);
    }

    bool StartObject() { return is_open ? refuse() : (is_open = true); }
    static bool EndObject(std::size_t /*members*/) { return true; }
    bool StartArray() { return refuse(); }
    bool Default() { return refuse(); }  // true, false, null

    bool Key(const char* characters, std::size_t size, bool /*copy*/) {
        const std::string_view name(characters, size);
        field = static_cast<Field>(std::find(KEYS, KEYS + FIELD_COUNT, name) - KEYS);
        if (field == FIELD_COUNT) fail("unknown key " + quoted(name));
        if (has[field]) fail(quoted(name) + " stands twice");
        return has[field] = true;
    }

    bool RawNumber(const char* digits, std::size_t size, bool /*copy*/) {
        std::uint32_t number = 0;
        const auto [end, error] = std::from_chars(digits, digits + size, number);
        const bool is_whole = error == std::errc() && end == digits + size;
        if (!is_whole || !is_open || field > XCPID) return refuse();
        if (field == OTAID) entry.set_otaid(number);
        if (field == DID) entry.set_did(number);
        if (field == XCPID) entry.set_xcpid(number);
        return true;
    }

    bool String(const char* characters, std::size_t size, bool /*copy*/) {
        return is_open && take_text({characters, size}) ? true : refuse();
    }

private:
    bool take_text(std::string_view found) {
        if (field == OTAID) {
            const auto otaid = program::parse_whole_otaid(std::string(found));
            if (otaid) entry.set_otaid(*otaid);
            return otaid.has_value();
        }
        if (field == DATA) {
            auto bytes = bytes_of_hex(found);
            if (bytes) entry.set_data(std::move(*bytes));
            return bytes.has_value();
        }
        text = found;
        // An escaped half of a surrogate pair gets past the parser.
        return field == TEXT && is_utf8(found, [](unsigned) { return true; });
    }

    bool refuse() const {
        if (!is_open) fail("expected an object");
        const char* const expected[] = {"an OTAID", "a whole number of 32 bits",
                                        "a whole number of 32 bits",
                                        "a text of two hexadecimal digits a byte", "valid text"};
        fail(quoted(KEYS[field]) + " has to be " + expected[field]);
    }

    Entry entry;
    std::string text;
    Field field = FIELD_COUNT;
    bool has[FIELD_COUNT] = {};
    bool is_open = false;
};

Entry parse_object(std::string_view line) {
    constexpr unsigned FLAGS =
        rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;
    rapidjson::MemoryStream stream(line.data(), line.size());
    ObjectHandler handler;
    static thread_local rapidjson::Reader reader;  // which keeps its buffer for the next line
    const auto result = reader.Parse<FLAGS>(stream, handler);
    if (result.IsError()) {
        // As when jq has spread an object over lines.
        const bool is_cut = result.Offset() >= line.size();
        fail("column " + std::to_string(result.Offset() + 1) + ": " +
             rapidjson::GetParseError_En(result.Code()) +
             (is_cut ? " An object has to stand in one line." : ""));
    }
    // A NUL is the end to the parser.
    if (stream.Tell() < line.size()) fail("there is more behind the object");
    return handler.take();
}

}  // namespace

void append_fields(std::string& json, const Entry& entry) {
    json.append(R"("did":)").append(std::to_string(entry.did()));
    json.append(R"(,"xcpid":)").append(std::to_string(entry.xcpid())) += ',';
    append_value(json, entry.data());
}

std::optional<Entry> next_object(Scanner& scanner) {
    while (!scanner.at_end()) {
        const std::size_t line = scanner.line();
        const std::string_view text = scanner.rest_of_line();
        if (text.find_first_not_of(" \t\r") == std::string_view::npos) continue;
        try {
            return parse_object(text);
        } catch (const std::runtime_error& error) {
            scanner.fail_at(line, error.what());
        }
    }
    return std::nullopt;
}

}  // namespace dump
