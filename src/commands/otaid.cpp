#include "commands/otaid.h"

#include <exception>
#include <iostream>

namespace commands {

std::int32_t parse_otaid(const std::string& text) {
    // A long has 64 bits on some machines, and std::stol would let wider numbers through.
    static_assert(sizeof(int) == sizeof(std::int32_t));
    const bool hexadecimal = text.compare(0, HEX_PREFIX.size(), HEX_PREFIX) == 0;
    return std::stoi(text, nullptr, hexadecimal ? 16 : 10);
}

std::optional<std::int32_t> otaid_of_argument(const std::string& argument) {
    try {
        return parse_otaid(argument);
    } catch (const std::exception&) {
        std::cout << "OTAID has to be a number, ignore '" << argument << "'" << std::endl;
        return std::nullopt;
    }
}

}  // namespace commands
