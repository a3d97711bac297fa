#include "lapi_mqtt/transport/publications.h"

#include <chrono>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Kind = Link::Kind;

/// A link may be slow, and buffers on it may have to drain.
constexpr Deadline::Timeouts PUBLISH_TIMEOUTS{milliseconds(20'000), std::chrono::hours(1)};

constexpr char OUTCOME_UNKNOWN[] =
    ", before the broker had acknowledged the message; it may or may not have taken effect, "
    "check a blob with getsec";

void Publications::publish(const Step& step, const std::string& topic,
                           const ecu::lapi::com::Message& message) {
    const int qos = message.get_qos();
    const auto settles = [this, topic = step.topic](bool is_own) {
        return [this, topic, is_own](const Outcome& outcome) { settle(topic, outcome, is_own); };
    };
    const auto end = link.begin_transfer(message.payload.size());
    if (qos > 0) {
        link.publish(step, message, qos, {}, settles(true));
    } else {
        link.publish(step, message, qos);
        try {
            announcements.announce(topic, settles(false));
        } catch (const TransportError& error) {  // the message itself may go out
            throw TransportError(Kind::outcome_unknown,
                                 error.what() + std::string(OUTCOME_UNKNOWN));
        }
    }
    send_end = end;
    last_topic = step.topic;
    ++unacknowledged;
}

/// `is_own`: the acknowledgement is that of the message itself, so that its refusal is, too.
void Publications::settle(const std::string& topic, const Outcome& outcome, bool is_own) {
    --unacknowledged;
    const Step step{"publish on", topic};
    std::optional<TransportError> failure;
    if (!outcome) {
        failure = link.error(Kind::outcome_unknown, step, link.down_cause() + OUTCOME_UNKNOWN);
    } else if (outcome->no_matching_subscribers()) {
        logging::write(logging::WARNING, "No unit listens on the broker at ", link.place(),
                       ": the message on ", topic, " has reached nobody");
    } else if (outcome->is_refusal() && is_own) {
        failure = link.error(Kind::failed, step, outcome->text);
    } else if (outcome->is_refusal()) {
        announcements.report_refusal(*outcome);
    } else {
        logging::write(logging::DEBUG, "The broker has acknowledged the message on ", topic);
    }
    if (failure && !first_failure) first_failure = failure;
}

void Publications::wait_for_acks(Link::Lock& lock) {
    const auto end =
        link.wait(lock, PUBLISH_TIMEOUTS, send_end, [this] { return unacknowledged == 0; });
    if (first_failure) throw TransportError(*first_failure);
    if (end != Link::WaitEnd::done) {
        link.abort();  // else the rest of the message would hold up the DISCONNECT
        link.fail(Kind::outcome_unknown, {"publish on", last_topic},
                  std::string("the connection stalled") + OUTCOME_UNKNOWN);
    }
}

}  // namespace lapi_mqtt
