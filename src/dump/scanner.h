#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace dump {

/// Fills `buffer` with the bytes that come next, at most `size`. Returns how many, 0 at the end.
using Source = std::function<std::size_t(char* buffer, std::size_t size)>;

/// Reads text piece by piece and knows its line. It asks the source only when what has arrived does
/// not suffice, so that a pipe that pauses holds back nothing that is complete.
class Scanner {
public:
    /// `name` stands in error texts.
    Scanner(Source source, std::string name);

    /// The line of what comes next, from 1.
    std::size_t line();

    /// Throws std::runtime_error "NAME:LINE: cause", with the present line unless another is given.
    [[noreturn]] void fail(const std::string& cause) { fail_at(line(), cause); }
    [[noreturn]] void fail_at(std::size_t line, const std::string& cause) const;

    bool at_end() { return ahead(1).empty(); }

    /// What comes next, at least `count` bytes unless the text ends before. Valid until the next
    /// call.
    std::string_view ahead(std::size_t count);

    /// Skips bytes that `ahead` has shown.
    void skip(std::size_t count) { position += std::min(count, end - position); }

    /// The first character that is no blank and no line end; 0 when there is none.
    char first_character();

    /// Skips this text, which must come next. An error names only the line of it that differs.
    void expect(std::string_view literal);

    /// A number of 32 bits in base 10 or 16, at most `max_digits` long.
    std::uint32_t number(int base, std::size_t max_digits = 10);

    /// So many bytes, whatever they are.
    std::string bytes(std::size_t count);

    /// The rest of the line, without its end. Valid until the next call.
    std::string_view rest_of_line();

private:
    bool read_more();
    std::string_view left() const { return {buffer.data() + position, end - position}; }

    /// Reads until `find_from` finds something in what comes next, and returns its position: that
    /// of the end when there is no such thing. What was searched before is not searched again.
    template <typename Find>
    std::size_t find(Find find_from);

    const Source source;
    const std::string name;
    std::string buffer;
    std::size_t position = 0;  ///< in `buffer`, of what comes next
    std::size_t end = 0;       ///< in `buffer`, of what has been read
    std::size_t counted = 0;   ///< in `buffer`, of what `line_number` is the line of
    std::size_t line_number = 1;
};

}  // namespace dump
