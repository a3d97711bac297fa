#include "commands/otaid.h"

#include <exception>
#include <iostream>
#include <limits>

namespace commands {

std::optional<std::int32_t> otaid_of_argument(const std::string& argument) {
    using Range = std::numeric_limits<std::int32_t>;
    try {
        const bool hexadecimal = argument.compare(0, HEX_PREFIX.size(), HEX_PREFIX) == 0;
        // Wider than an OTAID: a long has 64 bits on some machines and 32 on others.
        const long long number = std::stoll(argument, nullptr, hexadecimal ? 16 : 10);
        if (number >= Range::min() && number <= Range::max()) {
            return static_cast<std::int32_t>(number);
        }
    } catch (const std::exception&) {
        // No number either.
    }
    std::cout << "OTAID has to be a number, ignore '" << argument << "'" << std::endl;
    return std::nullopt;
}

}  // namespace commands
