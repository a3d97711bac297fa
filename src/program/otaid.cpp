#include "program/otaid.h"

#include <limits>
#include <stdexcept>

namespace program {

std::optional<std::uint32_t> parse_whole_otaid(const std::string& text) {
    constexpr long long MIN = std::numeric_limits<std::int32_t>::min();
    constexpr long long MAX = std::numeric_limits<std::uint32_t>::max();
    try {
        std::size_t used = 0;
        const long long number = std::stoll(text, &used, text.compare(0, 2, "0x") == 0 ? 16 : 10);
        if (used != text.size() || number < MIN || number > MAX) return std::nullopt;
        return static_cast<std::uint32_t>(number);
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

}  // namespace program
