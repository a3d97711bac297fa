#include <csignal>

#include "command_line.h"
#include "monitor/run.h"
#include "over_fake_lapi.h"

namespace {

using Monitor = OverFakeLapi;

int monitor(const Strings& words) {
    return invoke(run_monitor, words);
}

TEST_F(Monitor, LetsASecondSignalKill) {
    lapi.on_subscribe = [](const auto&, const auto&) { kill(getpid(), SIGINT); };
    EXPECT_EXIT((monitor({"a"}), kill(getpid(), SIGINT)), testing::KilledBySignal(SIGINT), "");
}

TEST_F(Monitor, EndsWhenNobodyReads) {
    const auto print_to_nobody = [] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) _exit(1);
        close(ends[0]);
        _exit(monitor({"a"}) == 0 ? 7 : 1);
    };
    EXPECT_EXIT(print_to_nobody(), testing::ExitedWithCode(7), "");
}

}  // namespace
