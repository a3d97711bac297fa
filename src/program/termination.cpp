#include "program/termination.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace program {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds MAX_POLL{std::chrono::hours(1)};

// A signal may reach any thread, so what its handler looks at belongs to the process.
enum class Phase { starting, waiting, leaving };
std::atomic<Phase> phase{Phase::starting};
std::atomic<int> exit_status{EXIT_SUCCESS};
int wake_up = -1;

/// A signal ends the wait, else the process; and so does the end of the time to leave.
extern "C" void handle_signal(int /*number*/) {
    if (phase.exchange(Phase::leaving) != Phase::waiting) _exit(exit_status);
    end_wait();
}

}  // namespace

void end_at_termination_signals() {
    wake_up = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_up < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    struct sigaction action {};
    action.sa_handler = handle_signal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGTERM, SIGALRM}) sigaction(number, &action, nullptr);
}

void defer_termination_signals() {
    Phase expected = Phase::starting;
    phase.compare_exchange_strong(expected, Phase::waiting);
}

WaitEnd wait_for_termination(int descriptor, short events, std::chrono::seconds leave_timeout,
                             steady_clock::time_point deadline) {
    pollfd watched[] = {{wake_up, POLLIN, 0}, {descriptor, events, 0}};
    defer_termination_signals();
    int ready = 0;
    do {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            std::min<steady_clock::duration>(deadline - steady_clock::now(), MAX_POLL));
        ready = poll(watched, 2, std::max(0, static_cast<int>(left.count())));
    } while (ready <= 0 && steady_clock::now() < deadline);
    const bool signalled = phase.exchange(Phase::leaving) == Phase::leaving;
    exit_status = signalled ? EXIT_SUCCESS : EXIT_FAILURE;
    alarm(static_cast<unsigned>(leave_timeout.count()));
    if (signalled) return WaitEnd::signal;
    return ready > 0 ? WaitEnd::event : WaitEnd::deadline;
}

void end_wait() {
    static_cast<void>(eventfd_write(wake_up, 1));
}

}  // namespace program
