#include "lapi_mqtt/transport/calls.h"

#include <utility>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Clock = Patience::Clock;
using Kind = Link::Kind;

/// A broker may be wrong about nobody listening, but then the reply is quick.
constexpr milliseconds UNHEARD_PATIENCE{500};

/// However large a reply and slow a link: nobody waits for longer.
constexpr milliseconds LONGEST_CALL = std::chrono::minutes(10);

constexpr std::size_t CORRELATION_BYTES = 16;

}  // namespace

class Calls::UnderWay {
public:
    UnderWay(Calls& of, const std::string& correlation)
        : all(of.replies), entry(all.emplace(correlation, std::nullopt).first) {}
    ~UnderWay() { all.erase(entry); }
    UnderWay(const UnderWay&) = delete;
    UnderWay& operator=(const UnderWay&) = delete;
    std::optional<Incoming>& reply() { return entry->second; }

private:
    std::map<std::string, std::optional<Incoming>>& all;
    std::map<std::string, std::optional<Incoming>>::iterator entry;
};

Calls::Calls(Link& to_broker, std::string reply_topic, milliseconds reply_time_out)
    : link(to_broker), topic_of_replies(std::move(reply_topic)), time_out(reply_time_out) {}

Calls::Message Calls::request(const std::string& topic, const Message& message) {
    const Step step{"request", topic};
    PublishProperties properties;
    properties.response_topic = topic_of_replies;
    properties.correlation_data = random_bytes(CORRELATION_BYTES);
    properties.content_type = protocol::CONTENT_TYPE;
    properties.timeout = time_out;

    auto lock = link.lock();
    if (!is_subscribed) subscribe_replies(lock, step);
    UnderWay call(*this, properties.correlation_data);
    const auto taken_end = link.taken_behind(lock, message.payload.size());
    const auto began = Clock::now();
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.publish(topic, message, 1, properties);
    });
    logging::write(logging::DEBUG, "Request on ", topic, ": ", message.payload.size(), " bytes");
    const auto word = link.expect(lock, id);
    auto reply = await_reply(lock, *word, call.reply(), taken_end, step);
    logging::write(logging::DEBUG, "Reply on ", topic, " after ", milliseconds_since(began),
                   " ms: ", reply.payload.size(), " bytes");
    return reply;
}

/// The grant is waited for: a broker, a cluster above all, may apply a subscription late, and the
/// reply would be lost.
void Calls::subscribe_replies(Link::Lock& lock, const Step& step) {
    const int id = link.queue(lock, step, [this](Connection& connection) {
        return connection.subscribe(topic_of_replies, 1, RetainHandling::do_not_send);
    });
    link.await_grant(lock, id, time_out, {"subscribe", topic_of_replies});
    is_subscribed = true;
}

bool Calls::take(Incoming& reply) {
    const auto lock = link.lock();
    const auto call = replies.find(reply.properties.correlation_data);
    if (call == replies.end() || call->second) return false;
    call->second = std::move(reply);
    link.notify();
    return true;
}

Calls::Message Calls::await_reply(Link::Lock& lock, const Awaited& word,
                                  std::optional<Incoming>& reply, std::uint64_t taken_end,
                                  const Step& step) {
    // The reply may overtake the acknowledgement, so the one does not wait for the other.
    const auto has_news = [&] { return word.outcome && word.outcome->code != 0; };
    auto end =
        link.wait(lock, {time_out, LONGEST_CALL}, taken_end, [&] { return reply || has_news(); });
    const bool unheard = word.outcome && word.outcome->says_nobody_listens();
    if (!reply && unheard) {
        end = link.wait(lock, {UNHEARD_PATIENCE, LONGEST_CALL}, 0, [&] { return bool(reply); });
    }
    if (reply) {
        if (reply->properties.error) {
            link.fail(Kind::refused, step, "the service answered: " + *reply->properties.error);
        }
        return std::move(reply->message);
    }
    if (has_news() && word.outcome->is_refusal()) {
        link.fail(Kind::failed, step, word.outcome->text);
    }
    if (end == Link::WaitEnd::connection_lost) {
        link.fail(Kind::outcome_unknown, step, link.down_cause(lock));
    }
    if (unheard) link.fail(Kind::no_matching_subscribers, step, "nobody subscribes this topic");
    link.fail(Kind::outcome_unknown, step,
              "no reply within " + std::to_string(time_out.count()) + " ms");
}

}  // namespace lapi_mqtt
