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
    if (found.empty()) return "";
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

std::size_t Scanner::line() {
    const char* const text = buffer.data();
    line_number += static_cast<std::size_t>(std::count(text + counted, text + position, '\n'));
    counted = position;
    return line_number;
}

bool Scanner::read_more() {
    line();
    end -= position;
    std::memmove(buffer.data(), buffer.data() + position, end);
    position = counted = 0;
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

template <typename Find>
std::size_t Scanner::find(Find find_from) {
    for (std::size_t from = 0;;) {
        const std::size_t found = find_from(left(), from);
        if (found != std::string_view::npos) return found;
        from = left().size();
        if (!read_more()) return from;
    }
}

char Scanner::first_character() {
    const std::size_t found = find([](std::string_view text, std::size_t from) {
        return text.find_first_not_of(" \t\r\n", from);
    });
    return found < left().size() ? left()[found] : '\0';
}

void Scanner::expect(std::string_view literal) {
    const std::string_view found = ahead(literal.size());
    if (found.substr(0, literal.size()) == literal) return skip(literal.size());
    const std::size_t size = std::max<std::size_t>(1, literal.find('\n'));
    if (size < literal.size()) {
        expect(literal.substr(0, size));
        return expect(literal.substr(size));
    }
    const std::string quoted = '"' + std::string(literal) + '"';
    fail("expected " + (literal == "\n" ? "the end of the line" : quoted) +
         likely_cause(literal, found));
}

std::uint32_t Scanner::number(int base, std::size_t max_digits) {
    std::uint32_t value = 0;
    std::errc error{};
    const std::size_t size = find([&](std::string_view text, std::size_t /*from*/) {
        const std::string_view digits = text.substr(0, max_digits);
        const char* const last = digits.data() + digits.size();
        const auto [stopped, result] = std::from_chars(digits.data(), last, value, base);
        error = result;
        // More digits may be on their way.
        if (stopped == last && digits.size() < max_digits) return std::string_view::npos;
        return static_cast<std::size_t>(stopped - digits.data());
    });
    if (error != std::errc()) {
        fail(base == 10 ? "expected a decimal number of 32 bits"
                        : "expected a hexadecimal number of 32 bits");
    }
    skip(size);
    return value;
}

std::string Scanner::bytes(std::size_t count) {
    const std::size_t first_line = line();
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
    const std::size_t size =
        find([](std::string_view text, std::size_t from) { return text.find('\n', from); });
    const std::string_view line = left().substr(0, size);
    skip(size + 1);
    return line;
}

}  // namespace dump
