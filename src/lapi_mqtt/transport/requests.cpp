#include "lapi_mqtt/transport/requests.h"

#include <utility>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "protocol/request.h"

namespace lapi_mqtt {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Clock = Deadline::Clock;
using Kind = Link::Kind;

/// A broker may be wrong about no matching subscribers, but then the reply is quick.
constexpr milliseconds NO_SUBSCRIBERS_TIMEOUT{500};

/// However large a reply and slow a link: nobody waits for longer.
constexpr milliseconds MAX_REPLY_TIMEOUT = std::chrono::minutes(10);

constexpr std::size_t CORRELATION_BYTES = 16;

Requests::Requests(Link& to_broker, std::string reply_topic, milliseconds reply_timeout)
    : link(to_broker), topic_of_replies(std::move(reply_topic)), timeout(reply_timeout) {}

Requests::Message Requests::request(const std::string& topic, const Message& message) {
    const Step step{"request", topic};
    PublishProperties properties;
    properties.response_topic = topic_of_replies;
    properties.correlation_data = random_bytes(CORRELATION_BYTES);
    properties.content_type = protocol::CONTENT_TYPE;
    properties.timeout = timeout;
    const std::size_t size = message.payload.size();

    auto lock = link.lock();
    if (subscribed_on != link.generation()) {
        link.require_connection(step);
        // The grant is waited for: a broker, a cluster above all, may apply a subscription late,
        // and the reply would be lost.
        link.subscribe_and_wait(lock, {"subscribe", topic_of_replies}, 1,
                                RetainHandling::do_not_send, timeout);
        subscribed_on = link.generation();
    }
    const auto current = std::make_shared<Pending>();
    current->correlation = properties.correlation_data;
    pending = current;
    const auto send_end = link.begin_transfer(size);
    const auto began = Clock::now();
    link.publish(step, message, 1, properties, [waiting = pending](const Outcome& outcome) {
        if (const auto request = waiting.lock()) request->ack = outcome;
    });
    logging::write(logging::DEBUG, "Request on ", topic, ": ", size, " bytes");
    auto reply = wait_for_reply(lock, *current, send_end, step);
    logging::write(logging::DEBUG, "Reply on ", topic, " after ", milliseconds_since(began),
                   " ms: ", reply.payload.size(), " bytes");
    return reply;
}

bool Requests::accept(Incoming& reply) {
    const auto lock = link.lock();
    const auto request = pending.lock();
    if (!request || request->reply || request->correlation != reply.properties.correlation_data) {
        return false;
    }
    request->reply = std::move(reply);
    link.notify();
    return true;
}

Requests::Message Requests::wait_for_reply(Link::Lock& lock, Pending& request,
                                           std::uint64_t send_end, const Step& step) {
    const auto began = Clock::now();
    auto& [correlation, ack, reply] = request;
    // The reply may overtake the acknowledgement, so the one does not wait for the other.
    auto end = link.wait(lock, {timeout, MAX_REPLY_TIMEOUT}, send_end, [&request] {
        return request.reply || (request.ack && request.ack->code != 0);
    });
    const bool has_no_subscribers = ack && ack->no_matching_subscribers();
    if (!reply && has_no_subscribers) {
        end = link.wait(lock, {NO_SUBSCRIBERS_TIMEOUT, MAX_REPLY_TIMEOUT}, 0,
                        [&request] { return request.reply.has_value(); });
    }
    if (reply) {
        if (reply->properties.error) {
            link.fail(Kind::refused, step, "the service answered: " + *reply->properties.error);
        }
        return std::move(reply->message);
    }
    if (ack && ack->is_refusal()) link.fail(Kind::failed, step, ack->text);
    if (end == Link::WaitEnd::connection_lost) {
        link.fail(Kind::outcome_unknown, step, link.down_cause());
    }
    if (has_no_subscribers) {
        link.fail(Kind::no_matching_subscribers, step, "no matching subscribers");
    }
    link.fail(Kind::outcome_unknown, step, missing_reply(end, milliseconds_since(began)));
}

std::string Requests::missing_reply(Link::WaitEnd end, std::int64_t waited_ms) const {
    const auto ms = [](std::int64_t count) { return std::to_string(count) + " ms"; };
    if (end == Link::WaitEnd::total_timeout) return "no whole reply within " + ms(waited_ms);
    const auto idle = timeout.count();
    if (waited_ms < 2 * idle) return "no reply within " + ms(idle);
    return "no whole reply within " + ms(waited_ms) + ", nothing moved for " + ms(idle);
}

}  // namespace lapi_mqtt
