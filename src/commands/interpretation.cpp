#include "commands/interpretation.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>

#include "ecu/lapi/logging.h"

namespace commands {

namespace logging = ecu::lapi::logging;

namespace {

/// The lowest byte of what strtoul makes of `token` in base 16 where a long has 32 bits, as it has
/// on the unit: there a magnitude of more bits sets them all.
char to_byte(const std::string& token) {
    constexpr long long LARGEST = std::numeric_limits<std::uint32_t>::max();
    const long long number = std::strtoll(token.c_str(), nullptr, 16);
    return static_cast<char>(number < -LARGEST || number > LARGEST ? LARGEST : number);
}

std::string little_endian(unsigned long long number) {
    std::string bytes;
    for (std::size_t i = 0; i < sizeof number; ++i) bytes += static_cast<char>(number >> (8 * i));
    return bytes;
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
    const std::string& value = args[FIRST_VALUE];
    std::string bytes;
    switch (interpretation) {
        case Interpretation::STRING:
            logging::write(logging::DEBUG, "Use STRING interpretation for setting parameter data");
            return value;
        case Interpretation::BYTES:
            std::transform(args.begin() + FIRST_VALUE, args.end(), std::back_inserter(bytes),
                           to_byte);
            return bytes;
        case Interpretation::HEX:
            bytes = little_endian(std::strtoull(value.c_str(), nullptr, 16));
            return bytes.substr(0, (value.size() + 1) / 2);
        case Interpretation::DEC:
            bytes = little_endian(std::strtoull(value.c_str(), nullptr, 10));
            // Zero has a byte, too.
            return bytes.substr(0, std::max<std::size_t>(1, bytes.find_last_not_of('\0') + 1));
        case Interpretation::UNKNOWN:
            break;
    }
    return {};
}

}  // namespace commands
