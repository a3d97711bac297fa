#include "lapi_mqtt/transport/announcements.h"

#include <utility>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {

namespace logging = ecu::lapi::logging;

void Announcements::announce(const std::string& topic) {
    announce(topic, [this](const Outcome& outcome) {
        if (!outcome) return;
        if (outcome->no_matching_subscribers()) {
            logging::write(logging::NOTICE, "No unit listens on the broker at ", link.place());
        } else if (outcome->is_refusal()) {
            report_refusal(*outcome);
        }
    });
}

void Announcements::announce(const std::string& topic, Acknowledgements::Handler handler) {
    const ecu::lapi::com::Message message({topic.begin(), topic.end()});
    link.publish({"publish on", on_topic}, message, 1, {}, std::move(handler));
}

void Announcements::report_refusal(const Reason& reason) const {
    logging::write(logging::WARNING, "The broker at ", link.place(),
                   " refuses announcements: ", reason.text);
}

}  // namespace lapi_mqtt
