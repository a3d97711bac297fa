#pragma once

#include <chrono>
#include <thread>

namespace program {

inline constexpr std::chrono::milliseconds POLL_INTERVAL{5};

/// Tries `condition` until it holds, for what nothing can be waited for. False at the timeout.
template <typename Condition>
bool poll_until(std::chrono::milliseconds timeout, Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(POLL_INTERVAL);
    }
    return true;
}

}  // namespace program
