#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "dump/scanner.h"

/// JSON Lines: a parameter is an object of "otaid", "did", "xcpid" and its value as "data", two
/// hexadecimal digits a byte, and as "text".
namespace dump {

/// What the object of a parameter names.
struct Object {
    std::uint32_t otaid = 0;
    std::optional<std::uint32_t> did;
    std::optional<std::uint32_t> xcpid;
    std::optional<std::string> data;
};

/// The object in the next line that is not blank; nothing at the end. Throws std::runtime_error
/// "NAME:LINE: cause" for a line that is no such object.
std::optional<Object> next_object(Scanner& scanner);

/// Composes objects, a line each.
class JsonLines {
public:
    JsonLines();
    JsonLines(const JsonLines&) = delete;
    JsonLines& operator=(const JsonLines&) = delete;
    ~JsonLines();

    void begin();                 ///< an object that is a line
    void begin(const char* key);  ///< an object in the one that was begun before
    void end();

    void number(const char* key, std::uint64_t value);
    void flag(const char* key, bool value);
    void text(const char* key, std::string_view value);  ///< valid UTF-8
    void null(const char* key);

    /// "data", and "text" where the bytes are valid UTF-8 without control characters other than tab
    /// and line end.
    void value(std::string_view bytes);

    /// The object composed last, with a line end. Valid until the next one is begun.
    std::string_view line() const;

private:
    struct Writer;
    std::unique_ptr<Writer> writer;
};

}  // namespace dump
