#include "program/termination.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

void end_ahead_of_the_wait() {
    program::end_at_termination_signals();
    program::defer_termination_signals();
    raise(SIGTERM);
    const auto end = program::wait_for_termination(-1, 0, std::chrono::seconds(1));
    _exit(end == program::WaitEnd::signal ? 7 : 99);
}

TEST(Termination, IsDeferredToTheWait) {
    EXPECT_EXIT(end_ahead_of_the_wait(), testing::ExitedWithCode(7), "");
}

}  // namespace
