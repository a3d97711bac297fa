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

    /// Returns at SIGINT, at SIGTERM, or when nobody can read standard output any more. Throws
    /// std::system_error.
    void wait();

private:
    sigset_t signals;
    int descriptor;
};
