#include "dump/json.h"

// The library's own type of sizes has 32 bits.
#define RAPIDJSON_NO_SIZETYPEDEFINE
#include <cstddef>
namespace rapidjson {
using SizeType = std::size_t;
}

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "dump/hex.h"
#include "program/otaid.h"

namespace dump {
namespace {

enum Field : std::size_t { OTAID, DID, XCPID, DATA, TEXT, FIELD_COUNT };
constexpr std::string_view KEYS[] = {"otaid", "did", "xcpid", "data", "text"};

/// Control characters, of which a terminal might obey some, but for tab and line end.
bool is_control(unsigned codepoint) {
    return (codepoint < ' ' && codepoint != '\t' && codepoint != '\n') ||
           (codepoint >= 0x7f && codepoint <= 0x9f);
}

/// Whether the bytes are valid UTF-8, of characters that `accepted` accepts.
template <typename Accepted>
bool is_utf8(std::string_view bytes, Accepted accepted) {
    rapidjson::MemoryStream stream(bytes.data(), bytes.size());
    while (stream.Tell() < bytes.size()) {
        unsigned codepoint = 0;
        if (!rapidjson::UTF8<>::Decode(stream, &codepoint) || !accepted(codepoint)) return false;
    }
    return true;
}

/// Nothing unless there are two digits a byte.
std::optional<std::string> bytes_of_hex(std::string_view digits) {
    if (digits.size() % 2 != 0) return std::nullopt;
    std::string bytes;
    bytes.reserve(digits.size() / 2);
    for (; !digits.empty(); digits.remove_prefix(2)) {
        const char* const end = digits.data() + 2;
        std::uint8_t byte = 0;
        if (std::from_chars(digits.data(), end, byte, 16).ptr != end) return std::nullopt;
        bytes += static_cast<char>(byte);
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
    /// The object, once it is complete.
    Object take() {
        if (!has[OTAID]) fail(R"("otaid" is missing)");
        if (!has[TEXT]) return std::move(object);
        if (has[DATA] && text != object.data) fail(R"("data" and "text" differ)");
        object.data = std::move(text);
        return std::move(object);
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
        return is_whole && is_open && set_number(number) ? true : refuse();
    }

    bool String(const char* characters, std::size_t size, bool /*copy*/) {
        return is_open && set_text({characters, size}) ? true : refuse();
    }

private:
    bool set_number(std::uint32_t number) {
        if (field == OTAID) object.otaid = number;
        if (field == DID) object.did = number;
        if (field == XCPID) object.xcpid = number;
        return field <= XCPID;
    }

    bool set_text(std::string_view found) {
        if (field == OTAID) {
            const auto otaid = program::parse_whole_otaid(std::string(found));
            if (otaid) object.otaid = *otaid;
            return otaid.has_value();
        }
        if (field == DATA) {
            object.data = bytes_of_hex(found);
            return object.data.has_value();
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

    Object object;
    std::string text;
    Field field = FIELD_COUNT;
    bool has[FIELD_COUNT] = {};
    bool is_open = false;
};

Object parse_object(std::string_view line) {
    constexpr unsigned FLAGS =
        rapidjson::kParseValidateEncodingFlag | rapidjson::kParseNumbersAsStringsFlag;
    rapidjson::MemoryStream stream(line.data(), line.size());
    ObjectHandler handler;
    const auto result = rapidjson::Reader().Parse<FLAGS>(stream, handler);
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

std::optional<Object> next_object(Scanner& scanner) {
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

struct JsonLines::Writer {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> json{buffer};
};

JsonLines::JsonLines() : writer(std::make_unique<Writer>()) {}
JsonLines::~JsonLines() = default;

void JsonLines::begin() {
    writer->buffer.Clear();
    writer->json.Reset(writer->buffer);
    writer->json.StartObject();
}

void JsonLines::begin(const char* key) {
    writer->json.Key(key);
    writer->json.StartObject();
}

void JsonLines::end() {
    writer->json.EndObject();
    if (writer->json.IsComplete()) writer->buffer.Put('\n');
}

void JsonLines::number(const char* key, std::uint64_t value) {
    writer->json.Key(key);
    writer->json.Uint64(value);
}

void JsonLines::flag(const char* key, bool value) {
    writer->json.Key(key);
    writer->json.Bool(value);
}

void JsonLines::text(const char* key, std::string_view value) {
    writer->json.Key(key);
    writer->json.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
}

void JsonLines::null(const char* key) {
    writer->json.Key(key);
    writer->json.Null();
}

void JsonLines::value(std::string_view bytes) {
    std::string digits;
    digits.reserve(2 * bytes.size());
    for (const char byte : bytes) digits += shown_byte(byte).substr(2, 2);  // behind "0x"
    text("data", digits);
    if (is_utf8(bytes, [](unsigned codepoint) { return !is_control(codepoint); })) {
        text("text", bytes);
    }
}

std::string_view JsonLines::line() const {
    return {writer->buffer.GetString(), writer->buffer.GetSize()};
}

}  // namespace dump
