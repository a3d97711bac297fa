#include "command_line.h"
#include "dump/compose.h"
#include "over_fake_lapi.h"
#include "restore/change.h"
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
        EXPECT_EQ(restore::change_line({9, &was, &is, false}), "9 - 0x009: " + shown + "\n");
    }
}

TEST_F(Restore, FindsNoDifferenceInAFieldThatIsShownAlikeOrNotNamed) {
    Entry bare, did, did_and_data, named_did, named_data;
    for (Entry* const entry : {&did, &did_and_data, &named_did}) entry->set_did(7);
    for (Entry* const entry : {&did_and_data, &named_data}) entry->set_data("x");
    named_did.set_otaid(7);
    named_data.set_otaid(6);
    const auto found = restore::differences(
        {{1, bare}, {2, bare}, {3, bare}, {6, did}, {7, did_and_data}},
        {fake::entry(2, 0, 0, ""), fake::entry(4, 0, 0, ""), fake::entry(1, 7, 0, ""), named_data, named_did});
    EXPECT_EQ(found.same, 2U);
    EXPECT_EQ(found.not_in_file, std::vector<std::uint32_t>{3});
    ASSERT_EQ(found.changes.size(), 3U);
    EXPECT_EQ(found.changes.at(1).SerializeAsString(), did.SerializeAsString());
    EXPECT_TRUE(found.changes.at(4).has_data() && found.changes.at(4).has_did());
    EXPECT_EQ(found.changes.at(6).SerializeAsString(), did_and_data.SerializeAsString());
}

TEST_F(Restore, ReportsOnlyConfirmedWrites) {
    write_file(dump::compose(1, fake::entry(1, 0, 0, "a")) + dump::compose(~0U, fake::entry(~0U, 0, 0, "b")));
    lapi.writes = false;
    const auto got = captured([this] { return invoke(restore::run, {path}); });
    EXPECT_EQ(std::to_string(got.result) + got.out, "1");
    EXPECT_EQ(got.err, "Failed to write system parameters with OTAID:\n");
    EXPECT_EQ(lapi.calls.back(), "release client");
    EXPECT_EQ(lapi.handed_over.size(), 2U);
}

}  // namespace
