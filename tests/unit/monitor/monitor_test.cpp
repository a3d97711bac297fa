#include <fcntl.h>

#include "monitor/run.h"
#include "over_fake_lapi.h"

namespace {

using Monitor = OverFakeLapi;

/// Ends with the status of a monitor whose standard output is `output`, and whose one topic gets a
/// message at once.
[[noreturn]] void print_to(int output) {
    fake::lapi().on_subscribe = [](const auto& topic, const auto& observer) {
        observer->message(topic, {});
    };
    dup2(output, STDOUT_FILENO);
    close(output);
    _exit(10 + invoke(monitor::run, {"a"}));
}

TEST_F(Monitor, EndsWhenNobodyReadsAndFailsWhenNothingIsTaken) {
    const auto closed_pipe = [] {
        int ends[2];
        if (pipe(ends) != 0) _exit(1);
        close(ends[0]);
        return ends[1];
    };
    EXPECT_EXIT(print_to(closed_pipe()), testing::ExitedWithCode(10), "^$");
    EXPECT_EXIT(print_to(open("/dev/full", O_WRONLY)), testing::ExitedWithCode(11),
                "^korvid-monitor: cannot write to standard output: No space left on device\n$");
}

}  // namespace
