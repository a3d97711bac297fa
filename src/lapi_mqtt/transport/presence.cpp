#include "lapi_mqtt/transport/presence.h"

#include <string_view>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"

namespace lapi_mqtt {

namespace logging = ecu::lapi::logging;

void PresenceKeeper::show() {
    is_shown = true;
    on_reconnected();
}

void PresenceKeeper::on_reconnected() {
    if (!is_shown) return;
    subscribe();
    publish();
}

void PresenceKeeper::on_message(const std::string& message_topic,
                                const ecu::lapi::com::Message& message) {
    if (message_topic != topic || !is_shown || link.is_leaving() || !link.is_up()) return;
    const std::string shown(message.payload.begin(), message.payload.end());
    if (shown == protocol::PRESENT) return;
    logging::write(logging::NOTICE, "Corrected '", shown, "' on ", topic);
    publish();
}

/// Without the right to read it the presence is shown all the same, but not corrected.
void PresenceKeeper::subscribe() {
    const auto warn = [this](const Outcome& outcome) {
        if (!outcome || !outcome->is_refusal()) return;
        logging::write(logging::WARNING, "The broker at ", link.place(),
                       " does not let this unit read its presence on ", topic, ": ", outcome->text,
                       "; '", protocol::ABSENT, "' from an earlier connection would stay there");
    };
    link.subscribe({"subscribe", topic}, 1, RetainHandling::do_not_send, warn);
}

void PresenceKeeper::publish() {
    const std::string_view present = protocol::PRESENT;
    ecu::lapi::com::Message message({present.begin(), present.end()});
    message.retain = 1;
    link.publish({"publish on", topic}, message, 1);
}

}  // namespace lapi_mqtt
