#pragma once

#include <string>

#include "lapi_mqtt/link/link.h"

namespace lapi_mqtt {

/// The presence of a service: hidden, then shown until the connection ends for good. The broker
/// says that it is gone, by the connection's last will, which DISCONNECT leaves in force: so it is
/// true however the connection ends. What others say on the topic while it is shown is corrected:
/// the will of an earlier connection, which the broker may notice only minutes later.
/// Called with the link's lock held.
class PresenceKeeper {
public:
    /// `presence_topic` as the broker knows it.
    PresenceKeeper(Link& to_broker, std::string presence_topic)
        : link(to_broker), topic(std::move(presence_topic)) {}

    /// Throws TransportError.
    void show();

    /// Subscribes and publishes again, unless it is hidden. Throws TransportError.
    void on_reconnected();

    /// A message on any topic.
    void on_message(const std::string& message_topic, const ecu::lapi::com::Message& message);

private:
    void subscribe();
    void publish();

    Link& link;
    const std::string topic;
    bool is_shown = false;
};

}  // namespace lapi_mqtt
