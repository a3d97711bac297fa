#include "main/run.h"

#include <gmock/gmock.h>

#include <iostream>

#include "captured.h"
#include "command_line.h"
#include "lapi_fake.h"

namespace {

using Strings = std::vector<std::string>;

/// Runs korvid over a library that has been told what to do since the last run.
Captured<int> korvid(const Strings& words) {
    CommandLine line(words);
    fake::lapi().calls.clear();
    return captured([&] { return run(line.argc(), line.argv()); });
}

class Run : public testing::Test {
protected:
    void SetUp() override { fake::reset(); }
};

TEST_F(Run, ReadsEverythingWithoutACommand) {
    for (const Strings& words : {Strings{}, Strings{"get"}, Strings{"-H", "", "-PQTS", "get"}}) {
        EXPECT_EQ(korvid(words).result, 0);
        EXPECT_EQ(fake::lapi().calls,
                  (Strings{"set_log_mode 1", "Configuration", "[client_name]",
                           "configure_logging WARNING", "verify", "create_client 0",
                           "create_sysparams_client", "connect", "start", "create_sysparams_client",
                           "get_parameters 0", "release sysparams", "disconnect", "stop",
                           "release sysparams", "release client"}));
        EXPECT_EQ(fake::lapi().configuration,
                  (std::map<std::string, std::string>{{"client_name", "korvid"}}));
    }
}

TEST_F(Run, OverridesTheVerifiedConfiguration) {
    korvid({"get", "0x120", "-p", "1884", "-l", "DEBUG", "-H", "unit"});
    const Strings& calls = fake::lapi().calls;
    EXPECT_EQ(
        Strings(calls.begin() + 3, calls.begin() + 8),
        (Strings{"configure_logging DEBUG", "verify", "[host]", "[port]", "create_client 0"}));
    EXPECT_EQ(calls[12], "get_parameter 288 0");
    EXPECT_EQ(fake::lapi().configuration,
              (std::map<std::string, std::string>{
                  {"client_name", "korvid"}, {"host", "unit"}, {"port", "1884"}}));
}

TEST_F(Run, PassesOnTheArgumentsBehindTheWord) {
    EXPECT_EQ(korvid({"get", "5"}).result, 1);
    EXPECT_EQ(korvid({"set", "--", "-1", "b", "1", "2"}).result, 0);
    EXPECT_EQ(fake::lapi().handed_over.at(0xffffffffU).data(), "\x01\x02");
}

TEST_F(Run, ShowsTheUsageForAnUnknownWord) {
    for (const std::string word : {"GET", "gets", "ge", ""}) {
        const auto failed = korvid({word});
        EXPECT_EQ(failed.result, 1);
        EXPECT_EQ(failed.out, "");
        EXPECT_THAT(failed.err, testing::StartsWith("korvid syntax error!\n\nkorvid: "));
        EXPECT_THAT(failed.err, testing::EndsWith("show version\n\n"));
        EXPECT_EQ(fake::lapi().calls.end()[-4], "disconnect");
    }
}

TEST_F(Run, ReportsWhatThePlatformThrows) {
    const Strings closing{"disconnect", "stop", "release sysparams", "release client"};
    const std::tuple<std::string, Strings, bool> cases[] = {
        {"Configuration", {"set_log_mode 1", "Configuration"}, false},
        {"create_client 0", {"verify", "create_client 0"}, false},
        {"create_sysparams_client",
         {"create_sysparams_client", "disconnect", "stop", "release client"},
         false},
        {"connect", closing, false},
        {"start", closing, false},
        {"get_parameters 0", closing, true},
        {"disconnect", closing, true},
        {"stop", closing, true},
    };
    for (const auto& [thrower, last_calls, pauses] : cases) {
        fake::reset();
        fake::lapi().errors[thrower] = "no luck with " + thrower;
        const auto start = std::chrono::steady_clock::now();
        const auto failed = korvid({});
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(failed.result, 1) << thrower;
        EXPECT_EQ(failed.err, "korvid: no luck with " + thrower + "\n");
        const auto& calls = fake::lapi().calls;
        const auto count = static_cast<std::ptrdiff_t>(last_calls.size());
        EXPECT_EQ(Strings(calls.end() - count, calls.end()), last_calls) << thrower;
        EXPECT_EQ(elapsed >= std::chrono::milliseconds(100), pauses) << thrower;
    }
}

TEST_F(Run, ReportsMissingClients) {
    fake::lapi().creates_client = false;
    EXPECT_EQ(korvid({}).err, "korvid: no transport client could be created\n");
    fake::lapi().creates_client = true;
    fake::lapi().creates_sysparams = false;
    EXPECT_EQ(korvid({}).err, "korvid: no system-parameter client could be created\n");
    EXPECT_EQ(fake::lapi().calls.end()[-3], "disconnect");
}

TEST_F(Run, EndsTheProcessBeforeItNeedsAConnection) {
    // The library's memory goes with the process: it is shown at its end.
    const auto exiting = [](const Strings& words) {
        std::atexit([] {
            for (const auto& record : fake::lapi().records) std::cerr << record << "\n";
            std::cerr << "calls: " << fake::lapi().calls.size();
        });
        CommandLine line(words);
        run(line.argc(), line.argv());
    };
    EXPECT_EXIT(exiting({"-h"}), testing::ExitedWithCode(1), "Default: WARNING\n.*calls: 1$");
    EXPECT_EXIT(exiting({"-l", "DEBUG", "-x"}), testing::ExitedWithCode(1),
                "invalid option -- 'x'\nkorvid: .*Default: DEBUG\n.*calls: 1$");
    EXPECT_EXIT(exiting({"-v", "get"}), testing::ExitedWithCode(0), "^korvid: [^\n]*\ncalls: 1$");
    fake::lapi().verifies = false;
    EXPECT_EXIT(exiting({"-H", "unit", "get"}), testing::ExitedWithCode(1),
                "^ERROR: Configuration verification failed!\ncalls: 5$");
    EXPECT_EXIT(exiting({"-l", "CRITICAL"}), testing::ExitedWithCode(1), "^calls: 5$");
}

}  // namespace
