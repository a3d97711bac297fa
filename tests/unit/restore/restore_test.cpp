#include "over_fake_lapi.h"
#include "restore/change.h"
#include "restore/run.h"

namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;
using Restore = OverFakeLapi;

TEST_F(Restore, ShowsWhatDiffersInPrintableCharacters) {
    const std::string x(48, 'x'), zeroes = "0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00";
    const auto value = [](const std::string& data) { return fake::entry(9, 1, 2, data); };
    const std::tuple<Entry, Entry, std::string> cases[] = {
        {value(""), fake::entry(9, 255, 0, "a\"b\\\t"),
         R"(DID 1 -> ff, XCPID 2 -> 0, data "" -> "a\"b\\\t")"},
        {value("\x1b[2"), value("\xff"), "data 0x1b 0x5b 0x32 -> 0xff"},
        {value(x + "y"), value(std::string(17, '\0')),
         "data \"" + x + "\"... (49 bytes) -> " + zeroes + " " + zeroes + "... (17 bytes)"},
        {value(x + x + "a"), value(x + x + "bc" + x),
         "data ...\"xxxxa\" (97 bytes) -> ...\"xxxxbc" + x.substr(6) + "\"... (146 bytes)"},
    };
    for (const auto& [was, is, shown] : cases) {
        restore::Change change{};
        change.otaid = 9;
        change.was = &was;
        change.is = &is;
        EXPECT_EQ(restore::change_line(change), "9 - 0x009: " + shown + "\n");
    }
}

TEST_F(Restore, ReportsOnlyConfirmedWrites) {
    write_file("{\"otaid\":1,\"text\":\"a\"}");
    lapi.writes = false;
    const auto got = captured([this] { return invoke(restore::run, {path}); });
    EXPECT_EQ(std::to_string(got.result) + got.out, "1");
    EXPECT_EQ(got.err, "Failed to write system parameters with OTAID:\n");
    EXPECT_EQ(lapi.calls.back(), "release client");
}

}  // namespace
