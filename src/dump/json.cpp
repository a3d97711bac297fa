#include "dump/json.h"

#include "dump/hex.h"
#include "dump/rapidjson.h"

namespace dump {
namespace {

/// A terminal might obey some control characters.
bool is_shown(unsigned codepoint) {
    const bool is_control = codepoint < ' ' || (codepoint >= 0x7f && codepoint <= 0x9f);
    return !is_control || codepoint == '\t' || codepoint == '\n';
}

/// What RapidJSON writes to.
struct StringStream {
    using Ch = char;
    void Put(char character) { text += character; }
    void Flush() {}

    std::string& text;
};

}  // namespace

void append_string(std::string& json, std::string_view text) {
    StringStream stream{json};
    rapidjson::Writer<StringStream>(stream).String(text.data(), text.size());
}

void append_value(std::string& json, std::string_view bytes) {
    json.reserve(json.size() + 4 * bytes.size());  // or a large value would be copied as it grows
    json += R"("data":")";
    for (const char byte : bytes) json += shown_byte(byte).substr(2, 2);  // behind "0x"
    json += '"';
    if (!is_utf8(bytes, is_shown)) return;
    json += R"(,"text":)";
    append_string(json, bytes);
}

}  // namespace dump
