#pragma once

#include <atomic>
#include <chrono>
#include <stdexcept>

namespace lapi_mqtt {

/// Bounds an attempt to connect, from the look-up of the name to CONNACK.
struct ConnectLimit {
    std::chrono::milliseconds timeout;
    const std::atomic<bool>& cancelled;
    std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::now() + timeout;

    /// True from the deadline on. Throws std::runtime_error once the attempt is cancelled.
    bool has_passed() const {
        if (cancelled) throw std::runtime_error("cancelled");
        return std::chrono::steady_clock::now() >= deadline;
    }
};

}  // namespace lapi_mqtt
