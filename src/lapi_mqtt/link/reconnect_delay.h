#pragma once

#include <chrono>
#include <functional>

namespace lapi_mqtt {

/// How long to wait before the next attempt to connect again: a random time ("full jitter") up to a
/// limit that doubles with each attempt, so that a broker's clients do not all come back at once.
/// The limit starts over once a connection has lasted a while.
class ReconnectDelay {
public:
    using Clock = std::chrono::steady_clock;

    /// `random` returns numbers from 0 to its argument.
    using Random = std::function<std::chrono::milliseconds(std::chrono::milliseconds max)>;

    explicit ReconnectDelay(Random own_random = {});

    void connected(Clock::time_point now) { connected_at = now; }
    void lost(Clock::time_point now);
    std::chrono::milliseconds next();

private:
    Random random;
    std::chrono::milliseconds limit;
    Clock::time_point connected_at{};
};

}  // namespace lapi_mqtt
