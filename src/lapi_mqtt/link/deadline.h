#pragma once

#include <chrono>
#include <cstdint>

#include "lapi_mqtt/mqtt/connection.h"

namespace lapi_mqtt {

/// What has moved on a connection.
struct Movement {
    Traffic traffic;
    std::uint64_t unrelated_end = 0;  ///< bytes received when the last unrelated packet was whole
};

/// When a wait ends: after an idle timeout, which only its own traffic resets, so that a large
/// packet may take its time on a slow link; and after a total timeout. A pure clock: it is told the
/// time and what has moved.
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    struct Timeouts {
        std::chrono::milliseconds idle;
        std::chrono::milliseconds total;
    };

    /// `send_end` is what `bytes_acked` grows to while what the wait is for goes out.
    Deadline(Timeouts timeouts, Clock::time_point begin, const Movement& start,
             std::uint64_t send_end);

    void update(Clock::time_point now, const Movement& movement);

    Clock::time_point time() const;

    /// Whether the total timeout comes first.
    bool is_total() const { return time() == begin + timeouts.total; }

private:
    const Timeouts timeouts;
    const Clock::time_point begin;
    const std::uint64_t send_end;
    Clock::time_point sent_at;      ///< when bytes of its own last went out
    Clock::time_point received_at;  ///< when bytes last came in that may be its own
    std::uint64_t bytes_acked;
    std::uint64_t bytes_received;
    std::uint64_t unrelated_end;
};

}  // namespace lapi_mqtt
