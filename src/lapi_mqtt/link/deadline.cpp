#include "lapi_mqtt/link/deadline.h"

#include <algorithm>

namespace lapi_mqtt {

/// Fewer bytes are acknowledgements and the like, no sign of a large packet.
constexpr std::uint64_t MIN_PROGRESS_BYTES = 1024;

Deadline::Deadline(Timeouts wait_timeouts, Clock::time_point begin_time, const Movement& start,
                   std::uint64_t end_of_sending)
    : timeouts(wait_timeouts),
      begin(begin_time),
      send_end(end_of_sending),
      sent_at(begin_time),
      received_at(begin_time),
      bytes_acked(start.traffic.bytes_acked),
      bytes_received(start.traffic.bytes_received),
      unrelated_end(start.unrelated_end) {}

void Deadline::update(Clock::time_point now, const Movement& movement) {
    const std::uint64_t acked_now = std::min(movement.traffic.bytes_acked, send_end);
    if (acked_now > bytes_acked + MIN_PROGRESS_BYTES) {
        bytes_acked = acked_now;
        sent_at = now;
    }
    // Until a packet is whole it may be the one that is waited for. Once it turns out to be
    // unrelated, it has not reset anything.
    if (movement.unrelated_end > unrelated_end) {
        unrelated_end = movement.unrelated_end;
        bytes_received = std::max(bytes_received, unrelated_end);
        received_at = begin;
    }
    if (movement.traffic.bytes_received > bytes_received + MIN_PROGRESS_BYTES) {
        bytes_received = movement.traffic.bytes_received;
        received_at = now;
    }
}

Deadline::Clock::time_point Deadline::time() const {
    return std::min(begin + timeouts.total, std::max(sent_at, received_at) + timeouts.idle);
}

}  // namespace lapi_mqtt
