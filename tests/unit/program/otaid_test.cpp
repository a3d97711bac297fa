#include "program/otaid.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

TEST(Otaid, FollowsTheNotation) {
    const std::pair<std::optional<std::int32_t>, std::vector<std::string>> cases[] = {
        {0, {"0x", "0xzz", "0X1F", " 0x10", "-0x10"}},
        {5, {"+5"}},
        {-5, {"-5"}},
        {10, {"010", " \t10", "10abc", "0xa", "0xAz"}},
        {2147483647, {"2147483647", "0x7fffffff"}},
        {-2147483647 - 1, {"-2147483648"}},
        {std::nullopt, {"", "abc", "-", " ", "x120", "ff", "+-5"}},
        {std::nullopt, {"2147483648", "-2147483649", "0x80000000", "4294967296", "99999999999999999999"}},
    };
    for (const auto& [otaid, texts] : cases) {
        for (const auto& text : texts) {
            if (otaid) {
                EXPECT_EQ(parse_otaid(text), *otaid) << "'" << text << "'";
            } else {
                EXPECT_ANY_THROW(parse_otaid(text)) << "'" << text << "'";
            }
        }
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
