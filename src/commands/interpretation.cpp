#include "commands/interpretation.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <limits>

#include "ecu/lapi/logging.h"

namespace commands {

namespace {

bool is_negative(const std::string& number) {
    const auto sign = std::find_if(number.begin(), number.end(), [](unsigned char character) {
        return std::isspace(character) == 0;
    });
    return sign != number.end() && *sign == '-';
}

/// strtoul of base 16 where a long has 32 bits, as it has on the unit.
std::uint32_t to_uint32(const std::string& token) {
    constexpr auto LARGEST = std::numeric_limits<std::uint32_t>::max();
    const unsigned long long number = std::strtoull(token.c_str(), nullptr, 16);
    const unsigned long long magnitude = is_negative(token) ? 0 - number : number;
    if (magnitude > LARGEST) return LARGEST;
    // Where 64 bits were exceeded too, every bit is set already.
    return static_cast<std::uint32_t>(number);
}

std::string little_endian(unsigned long long number, std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < std::min(count, sizeof number); ++i, number >>= 8) {
        bytes += static_cast<char>(number & 0xff);
    }
    return bytes;
}

std::size_t significant_bytes(unsigned long long number) {
    std::size_t count = 1;
    while (count < sizeof number && number >> (8 * count) != 0) ++count;
    return count;
}

std::string bytes_of_tokens(const std::vector<std::string>& args) {
    std::string bytes;
    for (std::size_t i = FIRST_VALUE; i < args.size(); ++i) {
        bytes += static_cast<char>(to_uint32(args[i]) & 0xff);
    }
    return bytes;
}

std::string bytes_of_hex(const std::string& text) {
    return little_endian(std::strtoull(text.c_str(), nullptr, 16), (text.size() + 1) / 2);
}

std::string bytes_of_dec(const std::string& text) {
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    return little_endian(number, significant_bytes(number));
}

std::string bytes_of_string(const std::string& text) {
    using namespace ecu::lapi;
    logging::write(logging::DEBUG, "Use STRING interpretation for setting parameter data");
    return text;
}

}  // namespace

Interpretation parse_interpretation(const std::string& as) {
    if (as == "s" || as == "str") return Interpretation::STRING;
    if (as == "b" || as == "bytes") return Interpretation::BYTES;
    if (as == "d" || as == "dec") return Interpretation::DEC;
    if (as == "h" || as == "hex") return Interpretation::HEX;
    return Interpretation::UNKNOWN;
}

std::string interpret_value(Interpretation interpretation, const std::vector<std::string>& args) {
    switch (interpretation) {
        case Interpretation::STRING:
            return bytes_of_string(args[FIRST_VALUE]);
        case Interpretation::BYTES:
            return bytes_of_tokens(args);
        case Interpretation::HEX:
            return bytes_of_hex(args[FIRST_VALUE]);
        case Interpretation::DEC:
            return bytes_of_dec(args[FIRST_VALUE]);
        case Interpretation::UNKNOWN:
            break;
    }
    return {};
}

}  // namespace commands
