#pragma once

#include <optional>
#include <string>

#include "lapi_mqtt/link/link.h"
#include "lapi_mqtt/transport/announcements.h"

namespace lapi_mqtt {

/// What was published and is not known to have reached the broker. A QoS 0 PUBLISH has no
/// acknowledgement, but the broker handles packets in order: the PUBACK of the announcement behind
/// it shows that the broker has it. Called with the link's lock held.
class Publications {
public:
    Publications(Link& to_broker, Announcements& announcements_behind)
        : link(to_broker), announcements(announcements_behind) {}

    /// Queues a message on `topic`, which the broker knows as `step.topic`. Throws TransportError.
    void publish(const Step& step, const std::string& topic,
                 const ecu::lapi::com::Message& message);

    /// Returns when the broker has all of them. Throws TransportError for the first that was lost
    /// or refused, and when the connection stalls.
    void wait_for_acks(Link::Lock& lock);

private:
    void settle(const std::string& topic, const Outcome& outcome, bool is_own);

    Link& link;
    Announcements& announcements;

    // Guarded by the link's lock.
    int unacknowledged = 0;
    std::string last_topic;
    std::uint64_t send_end = 0;  ///< of the last one
    std::optional<TransportError> first_failure;
};

}  // namespace lapi_mqtt
