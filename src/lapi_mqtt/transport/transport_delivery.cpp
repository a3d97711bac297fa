// The part of the transport client that runs on its delivery thread.

#include <algorithm>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/transport/transport_client.h"
#include "protocol/request.h"
#include "protocol/topics.h"

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;
namespace logging = ecu::lapi::logging;

constexpr milliseconds LOOP_SLICE{100};
constexpr milliseconds FIRST_BACK_OFF{50};
constexpr milliseconds LAST_BACK_OFF{1000};

/// A smaller age is no sign that this process slept: an idle connection is looked at so often.
constexpr milliseconds LEAST_SLEEP = 2 * LOOP_SLICE;

/// A reply goes only where a client of ours awaits it: never to a topic that means something else.
bool is_reply_topic(const std::string& topic) {
    return topic.rfind(protocol::REPLY_PREFIX, 0) == 0 &&
           topic.find_first_of("+#") == std::string::npos;
}

}  // namespace

void TransportClient::open_connection() {
    MqttEvents& events = *this;
    auto fresh = std::make_unique<MqttConnection>(settings, client_id, events);
    fresh->open(stopping);
    const Lock lock(mutex);
    connection = std::move(fresh);
    ++connection_count;
}

/// Drives the connection from a waiting operation, until something happened or `until`.
void TransportClient::drive(Lock& lock, Clock::time_point until) {
    lock.unlock();
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    drive_once(std::max(left, milliseconds::zero()));
    lock.lock();
}

/// False when the connection has ended.
bool TransportClient::drive_once(milliseconds timeout) {
    const bool connected = connection->loop(timeout);
    deliver_inbox();
    if (!connected) lose_connection();
    return connected;
}

void TransportClient::lose_connection() {
    const Lock lock(mutex);
    down_cause = "the connection was lost: " + connection->end_cause();
    connection.reset();
    replies_subscribed = false;
    foreign_bytes_end = 0;
    changed.notify_all();
    if (!leaving) {
        logging::write(logging::WARNING, "Broker at ", place, ": ", down_cause);
    }
}

bool TransportClient::reconnect() {
    for (auto back_off = FIRST_BACK_OFF;; back_off = std::min(2 * back_off, LAST_BACK_OFF)) {
        {
            Lock lock(mutex);
            changed.wait_for(lock, back_off, [this] { return stopping || leaving; });
            if (stopping || leaving) return false;
        }
        try {
            open_connection();
            subscribe_again();
            logging::write(logging::NOTICE, "Broker at ", place, ": connected again");
            return true;
        } catch (const std::exception& error) {
            const Lock lock(mutex);
            connection.reset();
            down_cause = error.what();
        }
    }
}

/// What was published meanwhile is missed; the announcements bring the current values.
void TransportClient::subscribe_again() {
    const Lock lock(mutex);
    for (const auto& [topic, handler] : services) connection->subscribe(topic, 1);
    for (const auto& entry : subscriptions.all()) {
        connection->subscribe(entry.filter, entry.qos, subscriptions.identifier_of(entry.filter));
        const std::vector<std::uint8_t> name(entry.filter.begin(), entry.filter.end());
        connection->publish(protocol::ANNOUNCEMENT_TOPIC, Message(name), 0, {});
    }
    if (leaving) connection->disconnect();
}

void TransportClient::deliver_until_the_end() {
    delivery_id = std::this_thread::get_id();
    do {
        while (drive_once(LOOP_SLICE)) {
        }
    } while (reconnect());
    const Lock lock(mutex);
    finished = true;
    changed.notify_all();
}

/// Outside of `loop`, so that observers are called with no lock held and libmosquitto's own
/// copies of a large message are gone by then.
void TransportClient::deliver_inbox() {
    for (Incoming& incoming : inbox) {
        try {
            deliver(incoming);
        } catch (const std::exception& error) {
            logging::write(logging::ERROR, "Cannot answer a request on ", incoming.topic, ": ",
                           error.what());
        }
        incoming = {};
    }
    inbox.clear();
}

void TransportClient::deliver(Incoming& incoming) {
    if (incoming.topic == reply_topic) return take_reply(incoming);
    ecu::lapi::com::RequestHandler handler;
    std::vector<ObserverHandle> observers;
    {
        const Lock lock(mutex);
        const auto service = services.find(incoming.topic);
        if (service != services.end()) handler = service->second;
        observers =
            subscriptions.receivers(incoming.topic, incoming.properties.subscription_identifiers);
    }
    if (handler) answer(handler, incoming);
    for (const auto& observer : observers) {
        try {
            observer->message(incoming.topic, incoming.message);
        } catch (const std::exception& error) {
            logging::write(logging::ERROR, "An observer of ", incoming.topic,
                           " failed: ", error.what());
        }
    }
}

void TransportClient::take_reply(Incoming& incoming) {
    const Lock lock(mutex);
    const auto call = calls.find(incoming.properties.correlation_data);
    if (call == calls.end() || call->second) {
        logging::write(logging::DEBUG, "Dropped a reply that nobody awaits");
        foreign_bytes_end = connection->bytes_moved();
        return;
    }
    call->second = std::move(incoming);
    changed.notify_all();
}

void TransportClient::answer(const ecu::lapi::com::RequestHandler& handler,
                             const Incoming& request) {
    const auto& properties = request.properties;
    if (request.message.retain != 0 || properties.correlation_data.empty() ||
        !is_reply_topic(properties.response_topic)) {
        logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                       ": kept by the broker, or without a usable response topic '",
                       properties.response_topic, "' and correlation data");
        return;
    }
    // The broker drops what has expired, but not what it had already sent to a process that slept.
    const auto age = Clock::now() - request.sent_after;
    if (properties.timeout && age >= std::max(*properties.timeout, LEAST_SLEEP)) {
        logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                       ": nobody may await it any more");
        return send_reply(request, {}, "the request came too late and was not executed");
    }
    std::string cause;
    try {
        return send_reply(request, handler(request.message), std::nullopt);
    } catch (const std::exception& error) {
        cause = error.what();
    }
    logging::write(logging::ERROR, "A request on ", request.topic, " failed: ", cause);
    send_reply(request, {}, cause);
}

/// Throws MqttError for a reply that the broker or MQTT cannot carry; an error text always fits.
void TransportClient::send_reply(const Incoming& request, const Message& reply,
                                 const std::optional<std::string>& error) {
    PublishProperties properties;
    properties.correlation_data = request.properties.correlation_data;
    properties.timeout = request.properties.timeout;
    properties.error = error;
    if (!error) properties.content_type = protocol::CONTENT_TYPE;
    const Lock lock(mutex);
    connection->publish(request.properties.response_topic, reply, 1, properties);
}

void TransportClient::on_message(Incoming incoming) {
    inbox.push_back(std::move(incoming));
}

void TransportClient::on_acknowledged(int id, int reason) {
    const Lock lock(mutex);
    const auto awaited = acknowledgements.find({connection_count, id});
    if (awaited != acknowledgements.end()) {
        awaited->second = reason;
        changed.notify_all();
    } else if (reason >= FIRST_REFUSAL) {
        logging::write(logging::ERROR, "The broker at ", place,
                       " refused a packet: ", cause_of_reason(reason));
    }
}

}  // namespace lapi_mqtt
