#include "commands/print_sysparam.h"

#include <gmock/gmock.h>

#include "captured.h"
#include "lapi_fake.h"

namespace {

using commands::compose_sysparam;

TEST(Block, ShowsTheRecord) {
    EXPECT_EQ(compose_sysparam(288, fake::entry(288, 255, 10, "Hi")),
              "SysParam (288):\n"
              "  OTAID: 288 - 0x120\n"
              "  DID: ff\n"
              "  XCPID: a\n"
              "  data(char) [2]: 'Hi'\n"
              "  data(hex) [2]: 0x48 0x69 \n");
}

TEST(Block, ShowsAnEmptyRecordUnderAForeignKey) {
    EXPECT_EQ(compose_sysparam(5, {}),
              "SysParam (5):\n"
              "  OTAID: 0 - 0x000\n"
              "  DID: 0\n"
              "  XCPID: 0\n"
              "  data(char) [0]: ''\n"
              "  data(hex) [0]: \n");
}

TEST(Block, ShowsTheLargestNumbersAndAnyByte) {
    const std::string data("\0\n'\xff\x80", 5);
    EXPECT_EQ(compose_sysparam(4294967295U, fake::entry(4294967295U, 4294967295U, 16, data)),
              "SysParam (4294967295):\n"
              "  OTAID: 4294967295 - 0xffffffff\n"
              "  DID: ffffffff\n"
              "  XCPID: 10\n"
              "  data(char) [5]: '" +
                  data +
                  "'\n"
                  "  data(hex) [5]: 0x00 0x0a 0x27 0xff 0x80 \n");
}

TEST(Block, PadsOtaidsAndCountsInHexadecimal) {
    for (const auto& [otaid, shown] : {std::pair(5U, "5 - 0x005"), {4096U, "4096 - 0x1000"}}) {
        EXPECT_THAT(compose_sysparam(1, fake::entry(otaid, 0, 0, "")),
                    testing::HasSubstr("\n  OTAID: " + std::string(shown) + "\n"));
    }
    for (const auto& [size, shown] : {std::pair(16U, "10"), {255U, "ff"}, {256U, "100"}}) {
        EXPECT_THAT(compose_sysparam(1, fake::entry(1, 0, 0, std::string(size, 'x'))),
                    testing::HasSubstr("data(char) [" + std::string(shown) + "]: 'xx"));
    }
}

TEST(Block, IsPrintedByteForByte) {
    const auto record = fake::entry(1, 2, 3, std::string("\0\xff", 2));
    const auto printed = captured([&] { return commands::print_sysparam(1, record), true; });
    EXPECT_EQ(printed.out, compose_sysparam(1, record));
}

}  // namespace
