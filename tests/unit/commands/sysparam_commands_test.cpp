#include "commands/get_cmd.h"
#include "commands/set_cmd.h"
#include "dump/compose.h"
#include "over_fake_lapi.h"

namespace {

class SysparamCommands : public OverFakeLapi {
protected:
    SysparamCommands() { lapi.parameters = {{3, fake::entry(3, 1, 2, "x")}, {0x80000000U, {}}}; }

    std::string block(unsigned int otaid) { return dump::compose(otaid, lapi.parameters[otaid]); }

    const commands::GetCmd get{"get"};
    const commands::SetCmd set{"set"};
};

TEST_F(SysparamCommands, GetGoesOnAfterEachFailure) {
    const auto some = execute(get, {"abc", "3", "-1", "", "0x3"});
    EXPECT_FALSE(some.result);
    EXPECT_EQ(some.out, "OTAID has to be a number, ignore 'abc'\n" + block(3) +
                            "OTAID has to be a number, ignore ''\n" + block(3));
    EXPECT_EQ(some.err, "Unable to find param with key: -1\n");
    EXPECT_EQ(lapi.calls, (Strings{"create_sysparams_client", "get_parameter 3 0", "get_parameter 4294967295 0",
                                   "get_parameter 3 0", "release sysparams"}));
    const auto all = execute(get, {});
    EXPECT_TRUE(all.result && execute(get, {"-2147483648"}).result);
    EXPECT_EQ(all.out, block(3) + block(0x80000000U));
}

TEST_F(SysparamCommands, SetHandsOverTheWholeMap) {
    const std::tuple<Strings, unsigned int, std::string, bool> cases[] = {
        {{"0x3", "hex", "ab18"}, 3, "\x18\xab", true},
        {{"0x120", "b", "1", "2"}, 288, "\x01\x02", false},
        {{"0X120", "s", "zero"}, 0, "zero", false},
        {{"-1", "s", ""}, 0xffffffffU, "", false},
    };
    for (const auto& [args, otaid, data, known] : cases) {
        lapi.calls.clear();
        const auto done = execute(set, args);
        EXPECT_TRUE(done.result);
        EXPECT_EQ(done.out + done.err, "");
        EXPECT_EQ(lapi.calls, (Strings{"create_sysparams_client", "get_parameters 0", "set_parameters",
                                       "write_parameters", "release sysparams"}));
        EXPECT_EQ(lapi.handed_over.size(), known ? 2U : 3U);
        const auto& entry = lapi.handed_over.at(otaid);
        EXPECT_EQ(entry.otaid(), otaid);
        EXPECT_EQ(entry.data(), data);
        EXPECT_TRUE(entry.has_otaid() && entry.has_data());
        EXPECT_EQ(entry.has_did(), known) << "other fields stay as they were";
        EXPECT_EQ(lapi.handed_over.at(3).did(), 1U);
    }
}

TEST_F(SysparamCommands, SetComplainsOfTheFirstFaultOnly) {
    const std::string malformed = "OTAID has to be a number, ignore 'abc'\n";
    const std::string no_value = "No value provided for param: '0x120', ignore!\n";
    const std::string no_format =
        "Set command requires a format how the data should be written!\n\n" + set.help_text("korvdi") + "\n";
    const std::tuple<Strings, std::string, std::string> cases[] = {
        {{}, "", "Nothing to set..., you are doing it wrong!\nCheck the help using -h\n"},
        {{"abc"}, malformed, ""},
        {{"abc", "xyz", "12"}, malformed, ""},
        {{"0x120"}, "", no_value},
        {{"0x120", "xyz"}, "", no_value},
        {{"0x120", "HEX", "0123456789abcdef0"}, "", no_format},
        {{"0x120", "h", "0123456789abcdef0"},
         "",
         "The hex value '0123456789abcdef0' is too long, at most 16 characters are possible!\n"},
    };
    for (const auto& [args, out, err] : cases) {
        lapi.calls.clear();
        const auto failed = execute(set, args);
        EXPECT_FALSE(failed.result);
        EXPECT_EQ(failed.out, out);
        EXPECT_EQ(failed.err, err);
        EXPECT_EQ(lapi.calls, (Strings{"create_sysparams_client", "get_parameters 0", "release sysparams"}));
    }
}

TEST_F(SysparamCommands, SetNamesWhatWasNotWritten) {
    lapi.writes = false;
    EXPECT_EQ(execute(set, {"3", "s", "y"}).err, "Failed to write system parameters with OTAID:\n");
    lapi.refused = {{4096, {}}, {288, {}}, {0xffffffffU, {}}};
    const auto failed = execute(set, {"3", "s", "y"});
    EXPECT_FALSE(failed.result);
    EXPECT_EQ(failed.err, "Failed to write system parameters with OTAID: 288 4096 4294967295\n");
}

}  // namespace
