#include "commands/interpretation.h"

#include <gtest/gtest.h>

#include "ecu/lapi/logging.h"
#include "lapi_fake.h"

namespace {

using commands::Interpretation;

TEST(Interpretation, IsChosenByTheExactWord) {
    const std::pair<const char*, Interpretation> cases[] = {
        {"s", Interpretation::STRING},       {"str", Interpretation::STRING},
        {"b", Interpretation::BYTES},        {"bytes", Interpretation::BYTES},
        {"d", Interpretation::DEC},          {"dec", Interpretation::DEC},
        {"h", Interpretation::HEX},          {"hex", Interpretation::HEX},
        {"", Interpretation::UNKNOWN},       {"S", Interpretation::UNKNOWN},
        {"HEX", Interpretation::UNKNOWN},    {"Bytes", Interpretation::UNKNOWN},
        {"string", Interpretation::UNKNOWN}, {"he", Interpretation::UNKNOWN},
    };
    for (const auto& [word, interpretation] : cases) {
        EXPECT_EQ(commands::parse_interpretation(word), interpretation) << "'" << word << "'";
    }
}

TEST(Interpretation, TurnsValuesIntoBytes) {
    const std::tuple<std::string, std::vector<std::string>, std::vector<int>> cases[] = {
        {"bytes", {"1b", "2c", "4c"}, {0x1b, 0x2c, 0x4c}},
        {"dec", {"4223"}, {0x7f, 0x10}},
        {"hex", {"ab18"}, {0x18, 0xab}},
        {"str", {"Hello World"}, {'H', 'e', 'l', 'l', 'o', ' ', 'W', 'o', 'r', 'l', 'd'}},
        {"str", {"Hello", "World"}, {'H', 'e', 'l', 'l', 'o'}},
        {"hex", {"abc"}, {0xbc, 0x0a}},
        {"hex", {"0xab18"}, {0x18, 0xab, 0}},
        {"hex", {"ab18zz"}, {0x18, 0xab, 0}},
        {"hex", {"0123456789abcdef"}, {0xef, 0xcd, 0xab, 0x89, 0x67, 0x45, 0x23, 0x01}},
        {"hex", {"zz"}, {0}},
        {"hex", {"-1"}, {0xff}},
        {"dec", {"0"}, {0}},
        {"dec", {"255"}, {0xff}},
        {"dec", {"256"}, {0, 1}},
        {"dec", {"65536"}, {0, 0, 1}},
        {"dec", {"18446744073709551615"}, std::vector<int>(8, 0xff)},
        {"dec", {"18446744073709551616"}, std::vector<int>(8, 0xff)},
        {"dec", {"-1"}, std::vector<int>(8, 0xff)},
        {"dec", {"abc"}, {0}},
        {"dec", {"12abc"}, {0x0c}},
        {"bytes", {"1ff", "zz", "0x1b"}, {0xff, 0, 0x1b}},
        {"bytes", {"100000000", "-100000000"}, {0xff, 0xff}},
        // Widths, signs and blanks of single bytes.
        {"bytes", {"1b2c", "ffffffff", "-1", "-ffffffff"}, {0x2c, 0xff, 0xff, 1}},
        {"bytes", {"ffffffffffffffff12", "-ffffffffffffffff12"}, {0xff, 0xff}},
        {"bytes", {"-ffffffffffffffff", "-ffffffff00000012"}, {0xff, 0xff}},
        {"bytes", {" 7", "\t-2", "- 2", "+3", "", "-"}, {7, 0xfe, 0, 3, 0, 0}},
        // Empty, short and ignored texts.
        {"str", {""}, {}},
        {"hex", {""}, {}},
        {"dec", {""}, {0}},
        {"hex", {"f", "ff"}, {0x0f}},
        {"dec", {" 7", "8"}, {7}},
        {"dec", {"0x10"}, {0}},
        {"hex", {"00000"}, {0, 0, 0}},
        // More digits than the number has room for never reach beyond it.
        {"hex", {"0123456789abcdef01"}, std::vector<int>(8, 0xff)},
    };
    for (const auto& [as, values, bytes] : cases) {
        std::vector<std::string> args{"0x120", as};
        args.insert(args.end(), values.begin(), values.end());
        const std::string expected(bytes.begin(), bytes.end());
        EXPECT_EQ(commands::interpret_value(commands::parse_interpretation(as), args), expected)
            << as << " '" << values.front() << "'";
    }
}

TEST(Interpretation, OfStringsIsLogged) {
    fake::reset();
    ecu::lapi::logging::configure_logging("DEBUG");
    commands::interpret_value(Interpretation::STRING, {"1", "s", "x"});
    commands::interpret_value(Interpretation::HEX, {"1", "h", "1"});
    EXPECT_EQ(
        fake::lapi().records,
        std::vector<std::string>{"DEBUG: Use STRING interpretation for setting parameter data"});
}

}  // namespace
