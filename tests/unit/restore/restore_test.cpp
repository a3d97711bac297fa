#include "command_line.h"
#include "dump/compose.h"
#include "over_fake_lapi.h"
#include "restore/change_line.h"
#include "restore/differences.h"
#include "restore/run.h"

namespace {

using Entry = ecu::lapi::pb::SystemParameterEntry;
using Restore = OverFakeLapi;

TEST_F(Restore, ShowsWhatDiffersInPrintableCharacters) {
    const std::string x(48, 'x'), zeroes = "0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00";
    const std::tuple<Entry, Entry, std::string> cases[] = {
        {fake::entry(9, 1, 2, ""), fake::entry(9, 255, 2, "a\"b\\\t"), R"(DID 1 -> ff, data "" -> "a\"b\\\t")"},
        {fake::entry(9, 1, 2, "\x1b[2"), fake::entry(9, 1, 0, "\xff"), "XCPID 2 -> 0, data 0x1b 0x5b 0x32 -> 0xff"},
        {fake::entry(9, 1, 2, x + "y"), fake::entry(9, 1, 2, std::string(17, '\0')),
         "data \"" + x + "\"... (49 bytes) -> " + zeroes + " " + zeroes + "... (17 bytes)"},
        {fake::entry(9, 1, 2, x + x + "a"), fake::entry(9, 1, 2, x + x + "bc" + x),
         "data ...\"xxxxa\" (97 bytes) -> ...\"xxxxbc" + x.substr(6) + "\"... (146 bytes)"},
    };
    for (const auto& [was, is, shown] : cases) {
        EXPECT_EQ(restore::change_line(9, &was, is), "9 - 0x009: " + shown + "\n");
    }
}

TEST_F(Restore, FindsNoDifferenceInAFieldThatIsShownAlike) {
    Entry bare, with_did;
    with_did.set_otaid(1);
    with_did.set_did(7);
    const auto found =
        restore::differences({{1, bare}, {2, bare}, {3, bare}},
                             {fake::entry(2, 0, 0, ""), fake::entry(4, 0, 0, ""), fake::entry(1, 7, 0, "")});
    EXPECT_EQ(std::pair(found.same, found.not_in_dump), std::pair(std::size_t{1}, std::size_t{1}));
    ASSERT_EQ(found.changes.size(), 2U);
    EXPECT_EQ(found.changes.at(1).SerializeAsString(), with_did.SerializeAsString());
    EXPECT_TRUE(found.changes.at(4).has_data() && found.changes.at(4).has_did());
}

TEST_F(Restore, TellsOnlyWhatIsKnownToBeWritten) {
    write_file(dump::compose(1, fake::entry(1, 0, 0, "a")) + dump::compose(~0U, fake::entry(~0U, 0, 0, "b")));
    lapi.writes = false;
    const auto got = captured([this] { return invoke(restore::run, {path}); });
    EXPECT_EQ(std::to_string(got.result) + got.out, "1");
    EXPECT_EQ(got.err, "Failed to write system parameters with OTAID:\n");
    EXPECT_EQ(lapi.calls.back(), "release client");
    EXPECT_EQ(lapi.handed_over.size(), 2U);
}

}  // namespace
