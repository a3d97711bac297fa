#include "commands/commands.h"
#include "commands/otaid.h"
#include "over_fake_lapi.h"

namespace {

using SysparamCommands = OverFakeLapi;

TEST_F(SysparamCommands, AnOtaidIsWhatAnArgumentBeginsWith) {
    const std::pair<std::optional<std::int32_t>, Strings> cases[] = {
        {0, {"0x", "0xzz", "0X1F", " 0x10", "-0x10"}},
        {5, {"+5"}},
        {-5, {"-5"}},
        {10, {"010", " \t10", "10abc", "0xa", "0xAz"}},
        {2147483647, {"2147483647", "0x7fffffff"}},
        {-2147483647 - 1, {"-2147483648"}},
        {std::nullopt, {"", "abc", "-", " ", "x120", "ff", "+-5"}},
        {std::nullopt,
         {"2147483648", "-2147483649", "0x80000000", "4294967296", "99999999999999999999"}},
    };
    for (const auto& [otaid, texts] : cases) {
        for (const auto& text : texts) {
            const auto got = captured([text = text] { return commands::otaid_of_argument(text); });
            EXPECT_EQ(got.result, otaid) << "'" << text << "'";
            EXPECT_EQ(got.out, otaid ? "" : "OTAID has to be a number, ignore '" + text + "'\n");
        }
    }
}

TEST_F(SysparamCommands, SetHandsOverTheWholeMapAndNamesWhatWasNotWritten) {
    const commands::SetCmd set("set");
    lapi.parameters[3] = fake::entry(3, 1, 2, "x");
    lapi.log_level = ecu::lapi::logging::LEVEL_DEBUG;
    const auto execute = [&](const Strings& arguments) {
        return captured([&] { return set.execute(client, arguments); });
    };
    const auto done = execute({"-1", "s", "y"});
    EXPECT_TRUE(done.result);
    EXPECT_EQ(done.out + done.err, "");
    EXPECT_EQ(lapi.calls, (Strings{"create_sysparams_client", "get_parameters 0", "set_parameters",
                                   "write_parameters", "release sysparams"}));
    EXPECT_EQ(lapi.records, Strings{"DEBUG: Use STRING interpretation for setting parameter data"});
    EXPECT_EQ(lapi.handed_over.size(), 3U);
    EXPECT_EQ(lapi.handed_over.at(3).did(), 1U);
    EXPECT_FALSE(lapi.handed_over.at(~0U).has_did()) << "a field that nobody set";
    const std::string failed = "Failed to write system parameters with OTAID:";
    lapi.writes = false;
    EXPECT_EQ(execute({"3", "s", "y"}).err, failed + "\n");
    lapi.refused = {{4096, {}}, {288, {}}, {~0U, {}}};
    EXPECT_EQ(execute({"3", "s", "y"}).err, failed + " 288 4096 4294967295\n");
}

}  // namespace
