#include "commands/otaid.h"

#include <exception>
#include <iostream>
#include <limits>
#include <stdexcept>

namespace commands {
namespace {

std::int32_t parse_otaid(const std::string& text) {
    using Range = std::numeric_limits<std::int32_t>;
    const bool hexadecimal = text.compare(0, HEX_PREFIX.size(), HEX_PREFIX) == 0;
    // Wider than an OTAID: a long has 64 bits on some machines and 32 on others.
    const long long number = std::stoll(text, nullptr, hexadecimal ? 16 : 10);
    if (number < Range::min() || number > Range::max()) throw std::out_of_range(text);
    return static_cast<std::int32_t>(number);
}

}  // namespace

std::optional<std::int32_t> otaid_of_argument(const std::string& argument) {
    try {
        return parse_otaid(argument);
    } catch (const std::exception&) {
        std::cout << "OTAID has to be a number, ignore '" << argument << "'" << std::endl;
        return std::nullopt;
    }
}

}  // namespace commands
