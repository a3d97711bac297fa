#include "lapi_mqtt/transport/requests.h"

#include <utility>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Clock = Deadline::Clock;
using Kind = Link::Kind;

/// A broker may be wrong about no matching subscribers, but then the reply is quick.
constexpr milliseconds NO_SUBSCRIBERS_TIMEOUT{500};

/// However large a reply and slow a link: nobody waits for longer.
constexpr milliseconds MAX_REPLY_TIMEOUT = std::chrono::minutes(10);

constexpr std::size_t CORRELATION_BYTES = 16;

}  // namespace

class Requests::Pending {
public:
    Pending(Requests& of, const std::string& correlation)
        : all(of.replies), entry(all.emplace(correlation, std::nullopt).first) {}
    ~Pending() { all.erase(entry); }
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;
    std::optional<Incoming>& reply() { return entry->second; }

private:
    std::map<std::string, std::optional<Incoming>>& all;
    std::map<std::string, std::optional<Incoming>>::iterator entry;
};

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
    if (!is_subscribed) subscribe_replies(lock, step);
    Pending pending(*this, properties.correlation_data);
    const auto send_end = link.begin_transfer(size);
    const auto began = Clock::now();
    const auto ack = link.queue_and_note(step, size, [&](Connection& connection) {
        return connection.publish(topic, message, 1, properties);
    });
    logging::write(logging::DEBUG, "Request on ", topic, ": ", size, " bytes");
    auto reply = wait_for_reply(lock, *ack, pending.reply(), send_end, step);
    logging::write(logging::DEBUG, "Reply on ", topic, " after ", milliseconds_since(began),
                   " ms: ", reply.payload.size(), " bytes");
    return reply;
}

/// The grant is waited for: a broker, a cluster above all, may apply a subscription late, and the
/// reply would be lost.
void Requests::subscribe_replies(Link::Lock& lock, const Step& request) {
    const auto ack = link.queue_and_note(request, 0, [this](Connection& connection) {
        return connection.subscribe(topic_of_replies, 1, RetainHandling::do_not_send);
    });
    link.wait_for_grant(lock, *ack, timeout, {"subscribe", topic_of_replies});
    is_subscribed = true;
}

bool Requests::accept(Incoming& reply) {
    const auto lock = link.lock();
    const auto pending = replies.find(reply.properties.correlation_data);
    if (pending == replies.end() || pending->second) return false;
    pending->second = std::move(reply);
    link.notify();
    return true;
}

Requests::Message Requests::wait_for_reply(Link::Lock& lock, const Ack& ack,
                                           std::optional<Incoming>& reply, std::uint64_t send_end,
                                           const Step& step) {
    const auto began = Clock::now();
    // The reply may overtake the acknowledgement, so the one does not wait for the other.
    const auto is_bad_ack = [&] { return ack.outcome && ack.outcome->code != 0; };
    auto end = link.wait(lock, {timeout, MAX_REPLY_TIMEOUT}, send_end,
                         [&] { return reply || is_bad_ack(); });
    const bool has_no_subscribers = ack.outcome && ack.outcome->no_matching_subscribers();
    if (!reply && has_no_subscribers) {
        end = link.wait(lock, {NO_SUBSCRIBERS_TIMEOUT, MAX_REPLY_TIMEOUT}, 0,
                        [&] { return bool(reply); });
    }
    if (reply) {
        if (reply->properties.error) {
            link.fail(Kind::refused, step, "the service answered: " + *reply->properties.error);
        }
        return std::move(reply->message);
    }
    if (is_bad_ack() && ack.outcome->is_refusal()) {
        link.fail(Kind::failed, step, ack.outcome->text);
    }
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
