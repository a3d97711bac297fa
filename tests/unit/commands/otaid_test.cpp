#include "commands/otaid.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(Otaid, FollowsTheNotation) {
    const std::pair<std::string, std::int32_t> cases[] = {{"42", 42},
                                                          {"0x2a", 42},
                                                          {"0x2A", 42},
                                                          {"12abc", 12},
                                                          {"0x1Fz", 31},
                                                          {"0x", 0},
                                                          {"0xzz", 0},
                                                          {"0X1F", 0},
                                                          {" 0x10", 0},
                                                          {" \t7", 7},
                                                          {"010", 10},
                                                          {"+5", 5},
                                                          {"-5", -5},
                                                          {"-0x10", 0},
                                                          {"2147483647", 2147483647},
                                                          {"-2147483648", -2147483647 - 1},
                                                          {"0x7fffffff", 2147483647}};
    for (const auto& [text, otaid] : cases) {
        EXPECT_EQ(commands::parse_otaid(text), otaid) << "'" << text << "'";
    }
}

TEST(Otaid, RefusesWhatHasNoDigit) {
    for (const std::string text : {"", "abc", "-", " ", "x120", "ff", "+-5"}) {
        EXPECT_THROW(commands::parse_otaid(text), std::invalid_argument) << "'" << text << "'";
    }
}

TEST(Otaid, RefusesWhatExceeds32SignedBitsOnEveryMachine) {
    for (const std::string text : {"2147483648", "-2147483649", "0x80000000", "0xffffffff",
                                   "4294967296", "99999999999999999999"}) {
        EXPECT_THROW(commands::parse_otaid(text), std::out_of_range) << text;
    }
}

}  // namespace
