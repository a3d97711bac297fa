#include <gmock/gmock.h>
#include <unistd.h>

#include <csignal>

#include "captured.h"
#include "command_line.h"
#include "lapi_fake.h"
#include "monitor/run.h"

namespace {

using Strings = std::vector<std::string>;

Captured<int> monitor(const Strings& words) {
    CommandLine line(words);
    return captured([&] { return run_monitor(line.argc(), line.argv()); });
}

class Monitor : public testing::Test {
protected:
    void SetUp() override { fake::reset(); }
};

TEST_F(Monitor, PrintsUntilASignalEndsIt) {
    for (const int signal : {SIGINT, SIGTERM}) {
        fake::reset();
        fake::lapi().on_subscribe = [signal](const std::string& topic, const auto& observer) {
            observer->message(topic, ecu::lapi::com::Message({1, 2, 3}));
            if (topic == "b/#") kill(getpid(), signal);
        };
        const auto ended = monitor({"-p", "1884", "a", "-S", "b/#"});
        EXPECT_EQ(ended.result, 0);
        EXPECT_EQ(ended.err, "");
        EXPECT_THAT(ended.out, testing::MatchesRegex("\\[.{7}\\] a\n           size: 3\n"
                                                     "\\[.{7}\\] b/#\n           size: 3\n"));
        EXPECT_EQ(fake::lapi().configuration.at("client_name"), "korvid-monitor");
        EXPECT_EQ(fake::lapi().configuration.at("port"), "1884");
        const auto& calls = fake::lapi().calls;
        EXPECT_EQ(Strings(calls.begin() + 6, calls.end()),
                  (Strings{"create_client 0", "connect", "start", "subscribe a 2",
                           "subscribe b/# 2", "disconnect", "stop", "release client"}));
        EXPECT_EQ(fake::lapi().subscribed[0].second, fake::lapi().subscribed[1].second);
    }
}

TEST_F(Monitor, LetsASecondSignalKill) {
    fake::lapi().on_subscribe = [](const auto&, const auto&) { kill(getpid(), SIGINT); };
    const auto end_twice = [] {
        CommandLine line({"a"});
        run_monitor(line.argc(), line.argv());
        kill(getpid(), SIGINT);
    };
    EXPECT_EXIT(end_twice(), testing::KilledBySignal(SIGINT), "");
}

TEST_F(Monitor, EndsWhenNobodyReads) {
    const auto print_to_nobody = [] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) _exit(1);
        close(ends[0]);
        CommandLine line({"a"});
        _exit(run_monitor(line.argc(), line.argv()) == 0 ? 7 : 1);
    };
    EXPECT_EXIT(print_to_nobody(), testing::ExitedWithCode(7), "");
}

TEST_F(Monitor, ReportsARefusedSubscription) {
    fake::lapi().errors["subscribe b 2"] = "refused";
    const auto failed = monitor({"a", "b", "c"});
    EXPECT_EQ(failed.result, 1);
    EXPECT_EQ(failed.err, "korvid-monitor: refused\n");
    EXPECT_EQ(Strings(fake::lapi().calls.end() - 4, fake::lapi().calls.end()),
              (Strings{"subscribe b 2", "disconnect", "stop", "release client"}));
}

TEST_F(Monitor, NeedsATopic) {
    const auto shown = monitor({"-Q"});
    EXPECT_EQ(shown.result, 1);
    EXPECT_THAT(shown.err, testing::HasSubstr("USAGE: korvid-monitor [OPTIONS] TOPIC..."));
    EXPECT_TRUE(fake::lapi().calls.size() == 1);
}

}  // namespace
