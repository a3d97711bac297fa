#pragma once

#include <csignal>

/// Waits for the user to end the program. Create it before any thread: it blocks SIGINT and SIGTERM
/// in the creating thread and in those that it starts while it lives. Once it is gone a further
/// signal ends the process at once, since leaving may take long: a full pipe holds the delivery
/// thread.
class EndSignal {
public:
    /// Throws std::system_error.
    EndSignal();
    EndSignal(const EndSignal&) = delete;
    EndSignal& operator=(const EndSignal&) = delete;
    ~EndSignal();

    /// Waits for SIGINT, SIGTERM, or one of `events` of poll(2) on `descriptor`, where a hang-up
    /// always counts and which is left out when it is negative. True at a signal, which is then
    /// over. Throws std::system_error.
    bool wait(int descriptor, short events);

private:
    sigset_t signals;
    int descriptor;
};
