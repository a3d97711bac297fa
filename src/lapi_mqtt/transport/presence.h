#pragma once

#include <optional>
#include <string>

#include "lapi_mqtt/link/link.h"
#include "lapi_mqtt/service_client.h"

namespace lapi_mqtt {

/// The presence of a service: hidden, then shown until the connection ends for good. The broker
/// says that it is gone, by the connection's last will, which DISCONNECT leaves in force: so it is
/// true however the connection ends. What others say on the topic while it is shown is corrected:
/// the will of an earlier connection, which the broker may notice only minutes later.
/// Called with the link's lock held.
class PresenceKeeper {
public:
    /// `own` bears the topic as the broker knows it; nothing for a client without a presence.
    PresenceKeeper(Link& to_broker, std::optional<Presence> own)
        : link(to_broker), presence(std::move(own)) {}

    /// Throws TransportError.
    void show();

    /// Subscribes and publishes again, unless it is hidden. Throws TransportError.
    void on_reconnected();

    bool is_of(const std::string& topic) const { return presence && presence->topic == topic; }
    void on_message(const ecu::lapi::com::Message& message);

private:
    void subscribe();
    void publish();

    Link& link;
    const std::optional<Presence> presence;
    bool is_shown = false;
};

}  // namespace lapi_mqtt
