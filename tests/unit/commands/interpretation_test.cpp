#include "commands/interpretation.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "lapi_fake.h"

namespace {

using commands::Interpretation;

TEST(Interpretation, ByTheExactWordTurnsValuesIntoBytes) {
    // Bytes, and the words behind the OTAID that mean them.
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"1b2c4c", {"bytes|1b|2c|4c"}},
        {"7f10", {"dec|4223"}},
        {"18ab", {"hex|ab18"}},
        {"48656c6c6f20576f726c64", {"str|Hello World"}},
        {"48656c6c6f", {"str|Hello|World"}},
        {"bc0a", {"hex|abc"}},
        {"18ab00", {"hex|0xab18", "hex|ab18zz"}},
        {"efcdab8967452301", {"hex|0123456789abcdef"}},
        {"00", {"hex|zz", "dec|0", "dec|abc", "dec|", "dec|0x10"}},
        {"ff",
         {"hex|-1", "dec|255", "bytes|ffffffffffffffff12", "bytes|-ffffffffffffffff12", "bytes|-ffffffffffffffff",
          "bytes|-ffffffff00000012"}},
        {"0001", {"dec|256"}},
        {"000001", {"dec|65536"}},
        {"ffffffffffffffff",
         {"dec|18446744073709551615", "dec|18446744073709551616", "dec|-1", "hex|0123456789abcdef01"}},
        {"0c", {"dec|12abc"}},
        {"ff001b", {"bytes|1ff|zz|0x1b"}},
        {"ffff", {"bytes|100000000|-100000000"}},
        {"2cffff", {"bytes|1b2c|ffffffff|-1"}},
        {"01030000", {"bytes|-ffffffff|+3||-"}},
        {"07fe00", {"bytes| 7|\t-2|- 2"}},
        {"", {"str|", "hex|"}},
        {"", {"|1", "S|1", "HEX|1", "Bytes|1", "string|1", "he|1"}},
        {"12", {"s|\x12", "b|12", "d|18", "h|12"}},
        {"0f", {"hex|f|ff"}},
        {"07", {"dec| 7|8"}},
        {"000000", {"hex|00000"}},
    };
    for (const auto& [bytes, texts] : cases) {
        for (const auto& text : texts) {
            std::vector<std::string> args{"0x120"};
            std::istringstream words(text + "|");
            for (std::string word; std::getline(words, word, '|');) args.push_back(word);
            std::ostringstream hex;
            hex << std::hex << std::setfill('0');
            const auto interpretation = commands::parse_interpretation(args[1]);
            for (const unsigned char byte : commands::interpret_value(interpretation, args)) {
                hex << std::setw(2) << int{byte};
            }
            EXPECT_EQ(hex.str(), bytes) << text;
        }
    }
}

TEST(Interpretation, OfStringsIsLogged) {
    fake::lapi() = {};
    fake::lapi().log_level = ecu::lapi::logging::LEVEL_DEBUG;
    commands::interpret_value(Interpretation::STRING, {"1", "s", "x"});
    commands::interpret_value(Interpretation::HEX, {"1", "h", "1"});
    const std::string record = "DEBUG: Use STRING interpretation for setting parameter data";
    EXPECT_EQ(fake::lapi().records, std::vector{record});
}

}  // namespace
