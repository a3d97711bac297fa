#pragma once

#include <optional>
#include <string>

#include "lapi_mqtt/transport/link.h"

namespace lapi_mqtt {

/// What was published and is not known to have reached the broker. QoS 0 has no acknowledgement,
/// but the broker takes packets in order: the one of a QoS 1 message behind it is its proof.
class Publications {
public:
    explicit Publications(Link& to_broker) : link(to_broker) {}

    /// A message of `size` bytes was queued, and PUBACK or PUBCOMP of the packet `proof` will show
    /// that the broker has it. `is_own_word` when that is the acknowledgement of the message
    /// itself, whose refusal is its refusal.
    void add(const Link::Lock& lock, const std::string& topic, std::size_t size, int proof,
             bool is_own_word);

    /// Returns when the broker has all of them. Throws TransportError for the first that was lost
    /// or refused, and when the connection stalls.
    void await_taken(Link::Lock& lock);

private:
    struct Failure {
        Link::Kind kind;
        std::string topic;
        std::string cause;
    };

    void settle(const std::string& topic, const Outcome& outcome, bool is_own_word);

    Link& link;

    // Guarded by the link's lock.
    int unproven = 0;
    std::string last_topic;
    std::uint64_t taken_end = 0;  ///< of the last one
    std::optional<Failure> first_failure;
};

}  // namespace lapi_mqtt
