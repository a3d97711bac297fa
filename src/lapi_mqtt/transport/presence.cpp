#include "lapi_mqtt/transport/presence.h"

#include "ecu/lapi/logging.h"

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

void PresenceKeeper::on_message(const ecu::lapi::com::Message& message) {
    const std::string shown(message.payload.begin(), message.payload.end());
    if (!is_shown || link.is_leaving() || !link.is_up() || shown == presence->present) return;
    logging::write(logging::NOTICE, "Corrected '", shown, "' on ", presence->topic);
    publish();
}

/// Without the right to read it the presence is shown all the same, but not corrected.
void PresenceKeeper::subscribe() {
    const auto warn = [this](const Outcome& outcome) {
        if (!outcome || !outcome->is_refusal()) return;
        logging::write(logging::WARNING, "The broker at ", link.place(),
                       " does not let this unit read its presence on ", presence->topic, ": ",
                       outcome->text, "; '", presence->absent,
                       "' from an earlier connection would stay there");
    };
    link.subscribe({"subscribe", presence->topic}, 1, RetainHandling::do_not_send, warn);
}

void PresenceKeeper::publish() {
    ecu::lapi::com::Message message({presence->present.begin(), presence->present.end()});
    message.retain = 1;
    link.publish({"publish on", presence->topic}, message, 1);
}

}  // namespace lapi_mqtt
