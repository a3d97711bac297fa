#include "dump/parse.h"

#include <gmock/gmock.h>

namespace {

TEST(Dump, IsRefusedWithTheLineOfTheFault) {
    const std::string good =
        "SysParam (1):\n  OTAID: 1 - 0x001\n  DID: f190\n  XCPID: 0\n"
        "  data(char) [3]: 'a\nb'\n  data(hex) [3]: 0x61 0x0a 0x62 \n";
    const auto changed = [&good](const std::string& from, const std::string& to) {
        return std::string(good).replace(good.find(from), from.size(), to);
    };
    const std::pair<std::string, const char*> table[] = {
        {"OTAID has to be a number, ignore 'abc'\n", "x:1: expected \"SysParam (\""},
        {changed("(1)", "(-1)"), "x:1: expected a decimal number of 32 bits"},
        {changed("(1)", "(4294967296)"), "x:1: expected a decimal number of 32 bits"},
        {changed("OTAID: 1", "OTAID: 2"), "x:2: the record has another OTAID"},
        {changed("0x001", "0x002"), "x:2: the two forms of the OTAID differ"},
        {changed("f190", "F190g"), "x:3: expected the end of the line"},
        {changed("char) [3]", "char) [2]"), "x:6: expected \"'\""},
        {changed("char) [3]", "char) [ffff]"), "x:5: the value is longer than the rest"},
        {changed("hex) [3]", "hex) [4]"), "x:7: the two sizes of the value differ"},
        {changed("0x0a", "0x0b"), "x:7: the value's bytes differ from its characters"},
        {good + good.substr(0, good.size() - 1), "x:14: expected the end of the line"},
        {good + changed("f190", "f191"), "x:8: a second block of OTAID 1 says something else"},
        {changed("\n", "\r\n"), "x:1: expected the end of the line"},
    };
    EXPECT_EQ(dump::parse(good + good, "x").size(), 1U);
    for (const auto& [text, complaint] : table) {
        EXPECT_THAT([&text = text] { dump::parse(text, "x"); },
                    testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr(complaint)))
            << text;
    }
}

}  // namespace
