#include "lapi_mqtt/transport/patience.h"

#include <algorithm>

namespace lapi_mqtt {
namespace {

/// Fewer bytes are acknowledgements and other trifles, no sign of a large packet on its way.
constexpr std::uint64_t TRICKLE_BYTES = 1024;

}  // namespace

Patience::Patience(Limits wait_limits, Clock::time_point begin_time, const Movement& start,
                   std::uint64_t end_of_sending)
    : limits(wait_limits),
      begin(begin_time),
      taken_end(end_of_sending),
      sent_at(begin_time),
      received_at(begin_time),
      taken(start.traffic.taken),
      received(start.traffic.received),
      foreign_end(start.foreign_end) {}

void Patience::look(Clock::time_point now, const Movement& movement) {
    look_at_sending(now, std::min(movement.traffic.taken, taken_end));
    look_at_reception(now, movement);
}

void Patience::look_at_sending(Clock::time_point now, std::uint64_t taken_now) {
    if (taken_now <= taken + TRICKLE_BYTES) return;
    taken = taken_now;
    sent_at = now;
}

/// Until a packet is whole it may be the one that is waited for; what turns out to be another's has
/// not moved at all.
void Patience::look_at_reception(Clock::time_point now, const Movement& movement) {
    if (movement.foreign_end > foreign_end) {
        foreign_end = movement.foreign_end;
        received = std::max(received, foreign_end);
        received_at = begin;
    }
    if (movement.traffic.received <= received + TRICKLE_BYTES) return;
    received = movement.traffic.received;
    received_at = now;
}

Patience::Clock::time_point Patience::end() const {
    return std::min(begin + limits.total, std::max(sent_at, received_at) + limits.rest);
}

}  // namespace lapi_mqtt
