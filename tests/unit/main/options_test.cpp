#include "main/options.h"

#include "captured.h"
#include "command_line.h"

namespace {

using Strings = std::vector<std::string>;

std::string flags() {
    return std::string(opt_payload ? "P" : "") + (opt_payload_size ? "S" : "") +
           (opt_qos ? "Q" : "") + (opt_timestamp ? "T" : "");
}

TEST(Options, AreTakenFromAnywhereOnTheCommandLine) {
    const std::tuple<Strings, Strings, std::string> cases[] = {
        {{}, {}, ",,WARNING,"},
        {{"get", "-p", "1884", "0x120"}, {"get", "0x120"}, ",1884,WARNING,"},
        {{"--port=1884", "get"}, {"get"}, ",1884,WARNING,"},
        {{"-p1884", "-p", "1"}, {}, ",1,WARNING,"},
        {{"-H", "unit", "--host", ""}, {}, ",,WARNING,"},
        {{"--ho", "unit", "--logl", "whatever"}, {}, "unit,,whatever,"},
        {{"-PQTS", "get"}, {"get"}, ",,WARNING,PSQT"},
        {{"--payload"}, {}, ",,WARNING,P"},
        {{"--payload-size"}, {}, ",,WARNING,S"},
        {{"--qos"}, {}, ",,WARNING,Q"},
        {{"--timestamp"}, {}, ",,WARNING,T"},
        {{"--", "set", "-1", "-p"}, {"set", "-1", "-p"}, ",,WARNING,"},
        {{"", "-"}, {"", "-"}, ",,WARNING,"},
    };
    for (const auto& [words, args, values] : cases) {
        CommandLine line(words);
        Strings rest;
        EXPECT_TRUE(parse_opts(line.argc(), line.argv(), rest));
        EXPECT_EQ(rest, args);
        EXPECT_EQ(opt_host + "," + opt_port + "," + opt_loglevel + "," + flags(), values);
    }
}

TEST(Options, EndTheParsingWhenTheyAreWrong) {
    const std::tuple<Strings, std::string, std::string> cases[] = {
        {{"-l", "DEBUG", "-h"}, "DEBUG", ""},
        {{"--help", "-l", "DEBUG"}, "WARNING", ""},
        {{"-x", "-v"}, "WARNING", "invalid option -- 'x'"},
        {{"-p"}, "WARNING", "option requires an argument -- 'p'"},
        {{"--h"}, "WARNING", "option '--h' is ambiguous"},
        {{"--qos=1"}, "WARNING", "option '--qos' doesn't allow an argument"},
    };
    for (const auto& [words, level, diagnosis] : cases) {
        CommandLine line(words);
        Strings args;
        const auto parsed = captured([&] { return parse_opts(line.argc(), line.argv(), args); });
        EXPECT_FALSE(parsed.result);
        EXPECT_NE(parsed.err.find(diagnosis), std::string::npos) << parsed.err;
        EXPECT_EQ(parsed.err.empty(), diagnosis.empty());
        EXPECT_EQ(opt_loglevel, level);
    }
}

TEST(Options, ShowTheVersionAndEndTheProcess) {
    for (const Strings& words : {Strings{"-v", "-x"}, {"--ver", "get"}}) {
        CommandLine line(words);
        Strings args;
        EXPECT_EXIT(parse_opts(line.argc(), line.argv(), args, "any-program"),
                    testing::ExitedWithCode(0),
                    "^any-program: [^ ]+ - [0-9]+\\.[0-9]+\\.[0-9]+ - [0-9a-f]{7} - "
                    "[0-9-]{10} [0-9:]{8} [+-][0-9]{4} - [A-Z]+\n$");
    }
}

}  // namespace
