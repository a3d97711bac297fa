#include "dump/compose.h"

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

ecu::lapi::pb::SystemParameterEntry entry(unsigned otaid, unsigned did, unsigned xcpid, const std::string& data) {
    ecu::lapi::pb::SystemParameterEntry record;
    record.set_otaid(otaid);
    record.set_did(did);
    record.set_xcpid(xcpid);
    record.set_data(data);
    return record;
}

TEST(Block, ShowsTheRecordByteForByte) {
    const std::string data("H\0\n'\xff\x80", 6);
    const std::string block =
        "SysParam (4294967295):\n  OTAID: 288 - 0x120\n  DID: ffffffff\n"
        "  XCPID: a\n  data(char) [6]: '" +
        data +
        "'\n"
        "  data(hex) [6]: 0x48 0x00 0x0a 0x27 0xff 0x80 \n";
    const auto record = entry(288, 0xffffffff, 10, data);
    EXPECT_EQ(dump::compose(0xffffffff, record), block);
    EXPECT_EQ(dump::compose(5, {}),
              "SysParam (5):\n  OTAID: 0 - 0x000\n  DID: 0\n  XCPID: 0\n"
              "  data(char) [0]: ''\n  data(hex) [0]: \n");
}

TEST(Block, PadsOtaidsAndCountsInHexadecimal) {
    for (const auto& [otaid, shown] :
         {std::pair(5U, "5 - 0x005"), {4096U, "4096 - 0x1000"}, {~0U, "4294967295 - 0xffffffff"}}) {
        EXPECT_THAT(dump::compose(1, entry(otaid, 0, 0, "")), HasSubstr("\n  OTAID: " + std::string(shown) + "\n"));
    }
    for (const auto& [size, shown] : {std::pair(16U, "10"), {255U, "ff"}, {256U, "100"}}) {
        EXPECT_THAT(dump::compose(1, entry(1, 0, 0, std::string(size, 'x'))),
                    HasSubstr("data(char) [" + std::string(shown) + "]: 'xx"));
    }
}

}  // namespace
