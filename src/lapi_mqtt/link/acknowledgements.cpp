#include "lapi_mqtt/link/acknowledgements.h"

#include <algorithm>
#include <utility>

namespace lapi_mqtt {

using std::chrono::seconds;

/// How long the broker may take, beyond what the payloads before it take on a slow link.
constexpr seconds ACK_TIMEOUT{20};
constexpr std::size_t MIN_BYTES_PER_SECOND = 10'000;

void Acknowledgements::expect(int packet_id, Step step, std::size_t size, Clock::time_point now,
                              Handler handler) {
    bytes_pending += size;
    const auto deadline = now + ACK_TIMEOUT + seconds(bytes_pending / MIN_BYTES_PER_SECOND);
    pending[packet_id] = {std::move(step), size, deadline, std::move(handler)};
}

std::optional<Step> Acknowledgements::acknowledge(int packet_id, const Reason& reason) {
    auto found = pending.extract(packet_id);
    if (found.empty()) return std::nullopt;
    Pending& packet = found.mapped();
    bytes_pending -= packet.size;
    if (packet.handler) {
        packet.handler(reason);
    } else if (reason.is_refusal()) {
        return std::move(packet.step);
    }
    return std::nullopt;
}

std::optional<Step> Acknowledgements::overdue(Clock::time_point now) const {
    const auto late = std::find_if(pending.begin(), pending.end(), [now](const auto& packet) {
        return packet.second.deadline < now;
    });
    return late == pending.end() ? std::nullopt : std::make_optional(late->second.step);
}

void Acknowledgements::connection_lost() {
    bytes_pending = 0;
    for (const auto& [packet_id, packet] : std::exchange(pending, {})) {
        if (packet.handler) packet.handler(std::nullopt);
    }
}

}  // namespace lapi_mqtt
