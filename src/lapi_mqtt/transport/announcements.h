#pragma once

#include <string>

#include "lapi_mqtt/link/link.h"

namespace lapi_mqtt {

/// Tells units which topic was just subscribed, or published on at QoS 0. An announcement goes at
/// QoS 1: its PUBACK shows that the broker has handled what went before it, and says when there are
/// no matching subscribers, which means that there is no unit. Called with the link's lock held.
class Announcements {
public:
    /// `announcement_topic` as the broker knows it.
    Announcements(Link& to_broker, std::string announcement_topic)
        : link(to_broker), on_topic(std::move(announcement_topic)) {}

    /// Announces a topic that was subscribed; logs when nobody hears it. Throws TransportError.
    void announce(const std::string& topic);

    /// Announces a topic that was published on. `handler` is told the acknowledgement and has
    /// `report` log a refusal. Throws TransportError.
    void announce(const std::string& topic, Acknowledgements::Handler handler);

    /// Logs that the broker refuses announcements.
    void report_refusal(const Reason& reason) const;

private:
    Link& link;
    const std::string on_topic;
};

}  // namespace lapi_mqtt
