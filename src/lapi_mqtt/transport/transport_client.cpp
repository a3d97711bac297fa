#include "lapi_mqtt/transport/transport_client.h"

#include <algorithm>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "lapi_mqtt/mqtt/error.h"
#include "protocol/request.h"
#include "protocol/topics.h"

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;

/// How long a publication may rest: a link may be slow, and buffers on it may have to drain.
constexpr milliseconds PUBLISH_PATIENCE{20'000};

/// A broker may be wrong about nobody listening, but then the reply is quick.
constexpr milliseconds UNHEARD_PATIENCE{500};

/// How long DISCONNECT may take to go out.
constexpr milliseconds GOODBYE_PATIENCE{2'000};

/// Fewer bytes are acknowledgements and other trifles, no sign of a large packet on its way.
constexpr std::uint64_t TRICKLE_BYTES = 1024;

constexpr std::size_t CORRELATION_BYTES = 16;

int qos_of(const ecu::lapi::com::Message& message) {
    return message.qos == '1' || message.qos == '2' ? message.qos - '0' : 0;
}

}  // namespace

TransportClient::TransportClient(Settings checked_settings)
    : settings(std::move(checked_settings)),
      client_id(make_client_id(settings.client_name)),
      place(settings.place()),
      reply_topic(protocol::REPLY_PREFIX + client_id + protocol::REPLY_SUFFIX) {}

TransportClient::~TransportClient() {
    stop();
}

void TransportClient::connect() {
    try {
        open_connection();
    } catch (const std::exception& error) {
        down_cause = error.what();
        ecu::lapi::logging::write(ecu::lapi::logging::ERROR, "Cannot connect to the broker at ",
                                  place, ": ", down_cause);
    }
}

void TransportClient::start() {
    started = true;
}

void TransportClient::disconnect() {
    Lock lock(mutex);
    std::exception_ptr failure;
    try {
        if (unproven) await_taken(lock, *unproven);
    } catch (const TransportError&) {
        failure = std::current_exception();
    }
    leaving = true;
    if (connection) connection->disconnect();
    const auto deadline = Clock::now() + GOODBYE_PATIENCE;
    while (connection && !delivery.joinable() && Clock::now() < deadline) drive(lock, deadline);
    if (failure) std::rethrow_exception(failure);
}

void TransportClient::stop() {
    {
        Lock lock(mutex);
        stopping = true;
        changed.notify_all();
        const auto ended = [this] { return finished; };
        if (!delivery.joinable()) return;
        const bool in_time = leaving && changed.wait_for(lock, GOODBYE_PATIENCE, ended);
        if (!in_time && connection) connection->abort();
    }
    delivery.join();
}

void TransportClient::publish(const std::string& topic, const Message& message) {
    const Step step{"publish on", topic};
    const Lock lock(mutex);
    need_delivery();
    int proof = queue_packet(
        step, [&] { return connection->publish(topic, message, qos_of(message), {}); });
    if (on_delivery_thread()) return;
    // Nothing acknowledges QoS 0, but the broker takes packets in order: the answer to an
    // UNSUBSCRIBE without effect, sent behind the message, shows that the message was taken.
    if (qos_of(message) == 0) {
        proof = queue_packet(step, [&] { return connection->unsubscribe(reply_topic + "/none"); });
    }
    // The proof of the last message is one of all before it, unless one of those was lost.
    if (unproven && !unproven->proof.is_here() && !unproven->proof.is_of_this_connection()) return;
    unproven.emplace(*this, proof, topic);
}

void TransportClient::subscribe(const std::string& topic, int qos, ObserverHandle observer) {
    const Step step{"subscribe", topic};
    Lock lock(mutex);
    need_delivery();
    const int id = queue_packet(step, [&] {
        return connection->subscribe(topic, qos, subscriptions.identifier_of(topic));
    });
    // Before the grant: a kept message may come right behind it.
    subscriptions.add({topic, qos, observer});
    try {
        await_grant(lock, id, step);
        const std::vector<std::uint8_t> name(topic.begin(), topic.end());
        queue_packet(step, [&] {
            return connection->publish(protocol::ANNOUNCEMENT_TOPIC, Message(name), 0, {});
        });
    } catch (const TransportError&) {
        subscriptions.remove(topic, observer);
        throw;
    }
}

void TransportClient::unsubscribe(const std::string& topic, ObserverHandle observer) {
    const Step step{"unsubscribe", topic};
    Lock lock(mutex);
    if (!subscriptions.remove(topic, observer) || !connection) return;
    const int id = queue_packet(step, [&] { return connection->unsubscribe(topic); });
    if (on_delivery_thread()) return;
    const Acknowledgement unsubscribed(*this, id);
    wait_for(lock, settings.request_timeout, [&] { return unsubscribed.is_here(); });
}

void TransportClient::serve(const std::string& topic, ecu::lapi::com::RequestHandler handler) {
    const Step step{"serve", topic};
    Lock lock(mutex);
    need_delivery();
    const int id = queue_packet(step, [&] { return connection->subscribe(topic, 1); });
    services[topic] = std::move(handler);
    await_grant(lock, id, step);
}

TransportClient::Message TransportClient::request(const std::string& topic,
                                                  const Message& message) {
    const Step step{"request", topic};
    PublishProperties properties;
    properties.response_topic = reply_topic;
    properties.correlation_data = random_bytes(CORRELATION_BYTES);
    properties.content_type = protocol::CONTENT_TYPE;
    properties.timeout = settings.request_timeout;

    Lock lock(mutex);
    if (!replies_subscribed) {
        // The broker takes packets in order, so the request need not wait for this one's answer.
        queue_packet(step, [&] { return connection->subscribe(reply_topic, 1); });
        replies_subscribed = true;
    }
    const int id =
        queue_packet(step, [&] { return connection->publish(topic, message, 1, properties); });
    struct Call {  // awaited until the end of this function, on every path
        std::map<std::string, std::optional<Incoming>>& calls;
        std::map<std::string, std::optional<Incoming>>::iterator entry;
        ~Call() { calls.erase(entry); }
    };
    const Call call{calls, calls.emplace(properties.correlation_data, std::nullopt).first};
    return await_reply(lock, id, call.entry->second, step);
}

void TransportClient::fail(Kind kind, const Step& step, const std::string& cause) const {
    throw TransportError(kind, std::string("Cannot ") + step.verb + " " + step.topic +
                                   " on the broker at " + place + ": " + cause);
}

TransportClient::Acknowledgement::Acknowledgement(TransportClient& owner, int packet_id)
    : client(owner),
      entry(client.acknowledgements
                .emplace(std::pair(client.connection_count, packet_id), std::nullopt)
                .first) {}

TransportClient::Acknowledgement::~Acknowledgement() {
    client.acknowledgements.erase(entry);
}

TransportClient::Publication::Publication(TransportClient& owner, int packet_id,
                                          std::string publication_topic)
    : proof(owner, packet_id), topic(std::move(publication_topic)) {}

/// Returns the packet's id, as `queue` does.
template <typename Queue>
int TransportClient::queue_packet(const Step& step, Queue queue) {
    if (!connection) fail(Kind::failed, step, down_cause);
    try {
        return queue();
    } catch (const MqttError& error) {
        fail(Kind::failed, step, error.what());
    }
}

/// The delivery thread starts with the first thing that goes on while the caller does something
/// else. Requests alone do without: their caller drives the connection, which spares a thread's
/// start and the hand-overs.
void TransportClient::need_delivery() {
    if (!started || !connection || delivery.joinable()) return;
    delivery = std::thread([this] { deliver_until_the_end(); });
}

void TransportClient::drive_or_wait(Lock& lock, Clock::time_point until) {
    if (delivery.joinable()) {
        changed.wait_until(lock, until);
    } else {
        drive(lock, until);
    }
}

/// Waits until `done`, with `patience` for a connection on which nothing moves: large packets
/// may take their time. Foreign replies do not count as movement.
template <typename Done>
TransportClient::WaitEnd TransportClient::wait_for(Lock& lock, milliseconds patience, Done done) {
    const unsigned count = connection_count;
    auto moved_at = Clock::now();
    auto moved = connection ? connection->bytes_moved() : 0;
    while (!done()) {
        if (!connection || connection_count != count) return WaitEnd::connection_lost;
        const auto now = Clock::now();
        const auto bytes = connection->bytes_moved();
        if (bytes > std::max(moved, foreign_bytes_end) + TRICKLE_BYTES) {
            moved = bytes;
            moved_at = now;
        }
        if (now >= moved_at + patience) return WaitEnd::out_of_patience;
        drive_or_wait(lock, std::min(moved_at + patience, now + patience / 4));
    }
    return WaitEnd::done;
}

void TransportClient::await_grant(Lock& lock, int id, const Step& step) {
    const Acknowledgement grant(*this, id);
    const auto end = wait_for(lock, settings.request_timeout, [&] { return grant.is_here(); });
    if (end == WaitEnd::connection_lost) fail(Kind::failed, step, down_cause);
    if (end == WaitEnd::out_of_patience) fail(Kind::failed, step, "the broker does not answer");
    if (grant.reason() >= FIRST_REFUSAL) {
        fail(Kind::failed, step, cause_of_reason(grant.reason()));
    }
}

void TransportClient::await_taken(Lock& lock, const Publication& publication) {
    const Step step{"publish on", publication.topic};
    const auto taken = [&publication] { return publication.proof.is_here(); };
    const bool is_lost = !taken() && !publication.proof.is_of_this_connection();
    const auto end = is_lost ? WaitEnd::connection_lost : wait_for(lock, PUBLISH_PATIENCE, taken);
    if (end == WaitEnd::connection_lost) {
        fail(Kind::unanswered, step, down_cause + ", before the broker had taken the message");
    }
    if (end == WaitEnd::out_of_patience) {
        connection->abort();  // else the rest of the message would hold up the goodbye
        fail(Kind::unanswered, step,
             "the connection stalled before the broker had taken the message");
    }
    if (publication.proof.reason() >= FIRST_REFUSAL) {
        fail(Kind::failed, step, cause_of_reason(publication.proof.reason()));
    }
}

TransportClient::Message TransportClient::await_reply(Lock& lock, int id,
                                                      std::optional<Incoming>& reply,
                                                      const Step& step) {
    // The reply may overtake the acknowledgement, so the one does not wait for the other.
    const Acknowledgement taken(*this, id);
    auto end =
        wait_for(lock, settings.request_timeout, [&] { return reply || taken.reason() != 0; });
    const int reason = taken.reason();
    if (!reply && reason == REASON_NO_MATCHING_SUBSCRIBERS) {
        end = wait_for(lock, UNHEARD_PATIENCE, [&] { return reply.has_value(); });
    }
    if (reply) {
        if (reply->properties.error) {
            fail(Kind::refused, step, "the service answered: " + *reply->properties.error);
        }
        return std::move(reply->message);
    }
    if (reason >= FIRST_REFUSAL) fail(Kind::failed, step, cause_of_reason(reason));
    if (end == WaitEnd::connection_lost) fail(Kind::unanswered, step, down_cause);
    if (reason == REASON_NO_MATCHING_SUBSCRIBERS) {
        fail(Kind::no_listener, step, "nobody subscribes this topic");
    }
    fail(Kind::unanswered, step,
         "no reply within " + std::to_string(settings.request_timeout.count()) + " ms");
}

}  // namespace lapi_mqtt

namespace ecu::lapi::com {

std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType /*type*/) {
    const auto own = std::move(config);
    if (!own->verify()) {
        throw TransportError(TransportError::Kind::failed,
                             "Cannot use the configuration: " + own->complaints().front());
    }
    return std::make_shared<lapi_mqtt::TransportClient>(lapi_mqtt::read_settings(*own));
}

}  // namespace ecu::lapi::com
