#include "program/otaid.h"

#include <limits>
#include <stdexcept>

namespace {

// Wider than an OTAID: a long has 64 bits on some machines and 32 on others.
long long parse_number(const std::string& text, std::size_t& used) {
    const bool hexadecimal = text.compare(0, HEX_PREFIX.size(), HEX_PREFIX) == 0;
    return std::stoll(text, &used, hexadecimal ? 16 : 10);
}

}  // namespace

std::int32_t parse_otaid(const std::string& text) {
    using Range = std::numeric_limits<std::int32_t>;
    std::size_t used = 0;
    const long long number = parse_number(text, used);
    if (number < Range::min() || number > Range::max()) throw std::out_of_range(text);
    return static_cast<std::int32_t>(number);
}

std::optional<std::uint32_t> parse_whole_otaid(const std::string& text) {
    constexpr long long LEAST = std::numeric_limits<std::int32_t>::min();
    constexpr long long MOST = std::numeric_limits<std::uint32_t>::max();
    try {
        std::size_t used = 0;
        const long long number = parse_number(text, used);
        if (used != text.size() || number < LEAST || number > MOST) return std::nullopt;
        return static_cast<std::uint32_t>(number);
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}
