#pragma once

#include <chrono>

/// How SIGINT and SIGTERM end a program that runs until it is told to end.
namespace program {

/// From here on each of the two signals ends the process at once, with status 0: a start has
/// nothing to clean up, however long it connects or waits for the broker. Call it once, first.
void end_at_termination_signals();

/// From here on the first signal ends the wait below instead, which may begin later.
void defer_termination_signals();

/// What ended a wait.
enum class WaitEnd { signal, event, deadline };

/// Waits for one of the two signals; for one of `events` of poll(2) on `descriptor`, where a
/// hang-up always counts and which is left out when it is negative, or a call of `end_wait`; or for
/// the deadline. The program then leaves: `leave_timeout` later the process ends, with status 0
/// behind a signal and 1 behind anything else. A further signal ends it at once.
WaitEnd wait_for_termination(
    int descriptor, short events, std::chrono::seconds leave_timeout,
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max());

/// Ends the wait, now or when it begins. May be called by any thread.
void end_wait();

}  // namespace program
