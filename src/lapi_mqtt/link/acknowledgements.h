#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "lapi_mqtt/mqtt/error.h"

namespace lapi_mqtt {

/// What an operation was about to do, for texts.
struct Step {
    const char* verb;
    std::string topic;
};

/// The broker's reason; nothing when the connection ended before it had given any.
using Outcome = std::optional<Reason>;

/// Packets of the present connection that the broker has not acknowledged. Only records: guarded by
/// the link's lock, under which handlers are called, each once.
class Acknowledgements {
public:
    using Clock = std::chrono::steady_clock;
    using Handler = std::function<void(const Outcome& outcome)>;

    /// Packet ids come round again after 65,535.
    static constexpr std::size_t MAX_PENDING = 60'000;

    /// A packet with `size` bytes of payload was queued. `handler` may be empty: only a refusal is
    /// of interest then.
    void expect(int packet_id, Step step, std::size_t size, Clock::time_point now, Handler handler);

    /// The step of a packet that the broker refuses and nobody handles.
    std::optional<Step> acknowledge(int packet_id, const Reason& reason);

    /// A step whose acknowledgement is overdue.
    std::optional<Step> overdue(Clock::time_point now) const;

    /// Each connection numbers its packets anew: everybody is told.
    void connection_lost();

    bool is_empty() const { return pending.empty(); }
    bool is_full() const { return pending.size() >= MAX_PENDING; }

private:
    struct Pending {
        Step step;
        std::size_t size;
        Clock::time_point deadline;
        Handler handler;
    };

    std::map<int, Pending> pending;  ///< by packet id
    std::size_t bytes_pending = 0;
};

}  // namespace lapi_mqtt
