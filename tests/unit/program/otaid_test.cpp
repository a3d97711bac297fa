#include "program/otaid.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(Otaid, FollowsTheNotation) {
    const std::pair<std::int32_t, std::vector<std::string>> cases[] = {
        {0, {"0x", "0xzz", "0X1F", " 0x10", "-0x10"}},
        {5, {"+5"}},
        {-5, {"-5"}},
        {7, {" \t7"}},
        {10, {"010"}},
        {12, {"12abc"}},
        {31, {"0x1Fz"}},
        {42, {"42", "0x2a", "0x2A"}},
        {2147483647, {"2147483647", "0x7fffffff"}},
        {-2147483647 - 1, {"-2147483648"}},
    };
    for (const auto& [otaid, texts] : cases) {
        for (const auto& text : texts) {
            EXPECT_EQ(parse_otaid(text), otaid) << "'" << text << "'";
        }
    }
}

TEST(Otaid, RefusesWhatHasNoDigitOrExceeds32SignedBits) {
    for (const std::string text : {"", "abc", "-", " ", "x120", "ff", "+-5", "2147483648", "-2147483649", "0x80000000",
                                   "0xffffffff", "4294967296", "99999999999999999999"}) {
        EXPECT_ANY_THROW(parse_otaid(text)) << "'" << text << "'";
    }
}

TEST(Otaid, MayHaveToBeTheWholeText) {
    EXPECT_EQ(parse_whole_otaid("-1"), 0xffffffffU);
    EXPECT_EQ(parse_whole_otaid("0xffffffff"), 0xffffffffU);
    for (const auto* text : {"", "7a", "4294967296", "-2147483649", "99999999999999999999"}) {
        EXPECT_EQ(parse_whole_otaid(text), std::nullopt) << text;
    }
}

}  // namespace
