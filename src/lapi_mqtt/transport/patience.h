#pragma once

#include <chrono>
#include <cstdint>

#include "lapi_mqtt/mqtt/connection.h"

namespace lapi_mqtt {

/// What has moved on a connection.
struct Movement {
    Traffic traffic;
    std::uint64_t foreign_end = 0;  ///< bytes received when the last whole packet of others was
};

/// When a wait ends: a large packet of its own may take its time on a slow link, but nothing else
/// stretches it. A pure clock: it is told the time and what has moved.
class Patience {
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        std::chrono::milliseconds rest;   ///< with nothing of its own moving
        std::chrono::milliseconds total;  ///< whatever moves
    };

    /// `taken_end` is what `traffic.taken` grows to while what the wait is for goes out.
    Patience(Limits limits, Clock::time_point begin, const Movement& start,
             std::uint64_t taken_end);

    void look(Clock::time_point now, const Movement& movement);

    Clock::time_point end() const;

private:
    void look_at_sending(Clock::time_point now, std::uint64_t taken);
    void look_at_reception(Clock::time_point now, const Movement& movement);

    const Limits limits;
    const Clock::time_point begin;
    const std::uint64_t taken_end;
    Clock::time_point sent_at;      ///< when bytes of its own last went out
    Clock::time_point received_at;  ///< when bytes last came in that may be its own
    std::uint64_t taken;
    std::uint64_t received;
    std::uint64_t foreign_end;
};

}  // namespace lapi_mqtt
