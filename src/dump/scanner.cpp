#include "dump/scanner.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <stdexcept>

namespace dump {
namespace {

constexpr std::size_t READ_SIZE = 64UL * 1024;

/// What editors and mail programs do to a dump, which is exact to the byte; empty when it is
/// neither.
std::string likely_cause(std::string_view expected, std::string_view found) {
    if (expected == "\n" && found.front() == '\r') {
        return ": the file has CRLF line ends, a dump has none";
    }
    const bool ends_with_blank = expected.back() == ' ';
    expected.remove_suffix(1);
    found = found.substr(0, found.find_first_of("\r\n"));
    if (!ends_with_blank || found != expected) return "";
    return ": the blank at the end of the line was stripped";
}

}  // namespace

Scanner::Scanner(Source text_source, std::string text_name)
    : source(std::move(text_source)), name(std::move(text_name)) {}

void Scanner::fail_at(std::size_t line, const std::string& cause) const {
    throw std::runtime_error(name + ":" + std::to_string(line) + ": " + cause);
}

bool Scanner::read_more() {
    end -= position;
    std::memmove(buffer.data(), buffer.data() + position, end);
    position = 0;
    if (buffer.size() < end + READ_SIZE) buffer.resize(end + READ_SIZE);
    const std::size_t count = source(buffer.data() + end, READ_SIZE);
    end += count;
    return count > 0;
}

std::string_view Scanner::ahead(std::size_t count) {
    while (left().size() < count && read_more()) {
    }
    return left();
}

void Scanner::skip(std::size_t count) {
    const std::string_view skipped = left().substr(0, count);
    line_number += static_cast<std::size_t>(std::count(skipped.begin(), skipped.end(), '\n'));
    position += skipped.size();
}

char Scanner::first_character() {
    for (std::size_t from = 0; ahead(from + 1).size() > from;) {
        const std::size_t found = left().find_first_not_of(" \t\r\n", from);
        if (found != std::string_view::npos) return left()[found];
        from = left().size();
    }
    return 0;
}

void Scanner::expect(std::string_view literal) {
    const std::string_view found = ahead(literal.size());
    if (found.substr(0, literal.size()) == literal) return skip(literal.size());
    const std::string cause = found.empty() ? "" : likely_cause(literal, found);
    if (literal == "\n") fail("expected the end of the line" + cause);
    fail("expected \"" + std::string(literal) + "\"" + cause);
}

std::uint32_t Scanner::number(int base, std::size_t max_digits) {
    for (std::size_t needed = 1;; ++needed) {
        const std::string_view digits = ahead(needed).substr(0, max_digits);
        const char* const last = digits.data() + digits.size();
        std::uint32_t value = 0;
        const auto [stopped, error] = std::from_chars(digits.data(), last, value, base);
        // More digits may be on their way.
        if (stopped == last && digits.size() < max_digits && digits.size() >= needed) continue;
        if (error == std::errc()) {
            skip(static_cast<std::size_t>(stopped - digits.data()));
            return value;
        }
        fail(base == 10 ? "expected a decimal number of 32 bits"
                        : "expected a hexadecimal number of 32 bits");
    }
}

std::string Scanner::bytes(std::size_t count) {
    const std::size_t first_line = line_number;
    std::string value;
    while (value.size() < count) {
        const std::string_view part = ahead(1).substr(0, count - value.size());
        if (part.empty()) fail_at(first_line, "the value is longer than the rest of the file");
        value.append(part);
        skip(part.size());
    }
    return value;
}

std::string_view Scanner::rest_of_line() {
    std::size_t length = 0;
    for (std::size_t from = 0; ahead(from + 1).size() > from; from = left().size()) {
        length = left().find('\n', from);
        if (length != std::string_view::npos) break;
        length = left().size();
    }
    const std::string_view line = left().substr(0, length);
    skip(length + 1);
    return line;
}

}  // namespace dump
