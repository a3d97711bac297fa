#include "lapi_mqtt/transport/transport_client.h"

#include <algorithm>
#include <utility>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/exposure.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "lapi_mqtt/mqtt/topic_filter.h"
#include "protocol/request.h"
#include "protocol/topics.h"

namespace lapi_mqtt {
namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

com::Message message_of(const std::string& text) {
    return com::Message({text.begin(), text.end()});
}

}  // namespace

TransportClient::TransportClient(Settings checked_settings, ConnectionFactory connections)
    : settings(std::move(checked_settings)),
      factory(std::move(connections)),
      client_id(make_client_id(settings.client_name)),
      link(
          settings.place(),
          [this](ConnectionEvents& events) -> std::unique_ptr<Connection> {
              if (factory) return factory(events);
              return std::make_unique<MosquittoConnection>(settings, client_id, will, events);
          },
          *this),
      calls(link, protocol::REPLY_PREFIX + client_id + protocol::REPLY_SUFFIX,
            settings.request_timeout),
      publications(link),
      overlapping([this] { return std::make_unique<TransportClient>(settings, factory); },
                  [this](const ObserverHandle& observer, const std::string& topic,
                         const Message& message) { forward(observer, topic, message); }) {}

TransportClient::~TransportClient() {
    stop();
}

/// Every name on the broker but the reply topics lies below the prefix; a shared subscription keeps
/// its "$share/GROUP/" in front.
std::string TransportClient::on_broker(const std::string& topic) const {
    const auto own = shared_prefix_length(topic);
    return topic.substr(0, own) + settings.topic_prefix + topic.substr(own);
}

void TransportClient::connect() {
    link.connect();
}

void TransportClient::report_transfers(com::TransferHook hook) {
    link.report_transfers(std::move(hook));
}

void TransportClient::start() {
    const auto lock = link.lock();
    is_started = true;
}

/// Delivery starts with the first thing that goes on while the caller does something else. Requests
/// alone do without: their caller drives the connection.
void TransportClient::need_delivery(const Link::Lock& lock) {
    if (!is_started) return;
    delivery.start();
    link.drive_on_a_thread(lock);
}

void TransportClient::disconnect() {
    auto lock = link.lock();
    std::exception_ptr failure;
    try {
        publications.await_taken(lock);
        if (is_shown && link.is_up(lock)) {
            const Step step{"publish on", on_broker(presence->topic)};
            link.queue(lock, step, [this](Connection& connection) {
                publish_presence(connection, presence->absent);
                return 0;
            });
        }
    } catch (const TransportError&) {
        failure = std::current_exception();
    }
    link.disconnect(lock);
    lock.unlock();
    overlapping.disconnect();
    if (failure) std::rethrow_exception(failure);
}

void TransportClient::stop() {
    delivery.close();
    overlapping.stop();
    link.stop();
    delivery.stop();
}

void TransportClient::publish(const std::string& topic, const Message& message) {
    const Step step{"publish on", on_broker(topic)};
    const auto lock = link.lock();
    need_delivery(lock);
    const int qos = message.get_qos();
    int proof = link.queue(lock, step, [&](Connection& connection) {
        return connection.publish(step.topic, message, qos, {});
    });
    // Who publishes from an observer or a service answers somebody, and is not to ask for answers.
    if (delivery.is_current_thread()) return;
    if (qos == 0) {
        proof = link.queue(lock, step,
                           [&](Connection& connection) { return announce(connection, topic); });
    }
    publications.add(lock, step.topic, message.payload.size(), proof, qos > 0);
}

void TransportClient::publish(const std::string& topic, const Message& message,
                              com::TakenHandler taken) {
    const Step step{"publish on", on_broker(topic)};
    const auto lock = link.lock();
    need_delivery(lock);
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.publish(step.topic, message, std::max(message.get_qos(), 1), {});
    });
    link.expect(lock, id, [this, taken = std::move(taken)](const Outcome& outcome) {
        const bool is_taken = outcome && !outcome->is_refusal();
        delivery.push_at_once([taken, is_taken] { taken(is_taken); });
    });
}

/// Returns the packet's id.
int TransportClient::announce(Connection& connection, const std::string& topic) const {
    return connection.publish(on_broker(protocol::ANNOUNCEMENT_TOPIC), message_of(topic), 1, {});
}

void TransportClient::expect_listener(const Link::Lock& lock, int announcement) {
    link.expect(lock, announcement, [this](const Outcome& outcome) {
        if (!outcome) return;
        if (outcome->says_nobody_listens()) {
            logging::write(logging::NOTICE, "No unit listens on the broker at ", link.place());
        } else if (outcome->is_refusal()) {
            logging::write(logging::WARNING, "The broker at ", link.place(),
                           " refuses announcements: ", outcome->text);
        }
    });
}

void TransportClient::subscribe(const std::string& topic, int qos, ObserverHandle observer) {
    const Step step{"subscribe", on_broker(topic)};
    const Kept kept = (qos & com::WITH_KEPT) != 0 ? Kept::wanted : Kept::unwanted;
    const int own_qos = qos & ~com::WITH_KEPT;
    auto lock = link.lock();
    need_delivery(lock);
    if (overlaps(lock, topic)) {
        lock.unlock();
        return overlapping.subscribe(topic, qos, observer);
    }
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.subscribe(step.topic, own_qos, kept);
    });
    // Before the grant: a kept message may come right behind it.
    subscriptions.add({topic, own_qos, kept, observer});
    try {
        link.await_grant(lock, id, settings.request_timeout, step);
        const int announcement = link.queue(
            lock, step, [&](Connection& connection) { return announce(connection, topic); });
        expect_listener(lock, announcement);
    } catch (const TransportError&) {
        subscriptions.remove(topic, observer);
        throw;
    }
}

bool TransportClient::overlaps(const Link::Lock& /*lock*/, const std::string& topic) const {
    const auto& entries = subscriptions.all();
    const auto is_of = [&topic](const auto& entry) { return entry.filter == topic; };
    if (std::any_of(entries.begin(), entries.end(), is_of)) return false;
    const auto& served = services.all();
    return std::any_of(entries.begin(), entries.end(),
                       [&](const auto& entry) { return filters_overlap(entry.filter, topic); }) ||
           std::any_of(served.begin(), served.end(),
                       [&](const auto& service) { return filters_overlap(service.first, topic); });
}

/// All observers are called on the one delivery thread.
void TransportClient::forward(const ObserverHandle& observer, const std::string& topic,
                              const Message& message) {
    delivery.push(message.payload.size(), [this, observer, topic, message] {
        {
            const auto lock = link.lock();
            const auto own = subscriptions.receivers(topic);
            if (std::find(own.begin(), own.end(), observer) != own.end()) return;
        }
        observer->message(topic, message);
    });
}

/// Nobody waits for the broker's word: it may be behind a large message on a slow link.
void TransportClient::unsubscribe(const std::string& topic, ObserverHandle observer) {
    const Step step{"unsubscribe", on_broker(topic)};
    const auto lock = link.lock();
    if (!subscriptions.holds(topic, observer)) return overlapping.unsubscribe(topic, observer);
    if (!subscriptions.remove(topic, observer) || !link.is_up(lock)) return;
    link.queue(lock, step,
               [&](Connection& connection) { return connection.unsubscribe(step.topic); });
}

TransportClient::Message TransportClient::request(const std::string& topic,
                                                  const Message& message) {
    return calls.request(on_broker(topic), message);
}

void TransportClient::serve(const std::string& topic, com::RequestHandler handler) {
    const Step step{"serve", on_broker(topic)};
    auto lock = link.lock();
    need_delivery(lock);
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.subscribe(step.topic, 1, Kept::unwanted);
    });
    services.add(topic, std::move(handler));
    if (link.await_grant(lock, id, settings.request_timeout, step) == 0) {
        link.fail(Kind::failed, step, "the broker grants QoS 0 only, requests need QoS 1");
    }
}

void TransportClient::set_presence(com::Presence wanted) {
    presence = std::move(wanted);
    will = Will{on_broker(presence->topic), presence->absent};
}

void TransportClient::show_presence() {
    const Step step{"publish on", on_broker(presence->topic)};
    const auto lock = link.lock();
    link.queue(lock, step, [this](Connection& connection) {
        publish_presence(connection, presence->present);
        return 0;
    });
    is_shown = true;
}

void TransportClient::publish_presence(Connection& connection, const std::string& payload) const {
    Message message = message_of(payload);
    message.retain = 1;
    connection.publish(on_broker(presence->topic), message, 1, {});
}

/// What was published meanwhile is missed; the announcements bring the current values.
void TransportClient::on_reconnected(Connection& connection) {
    for (const auto& [topic, handler] : services.all()) {
        connection.subscribe(on_broker(topic), 1, Kept::unwanted);
    }
    for (const auto& entry : subscriptions.all()) {
        connection.subscribe(on_broker(entry.filter), entry.qos, entry.kept);
        announce(connection, entry.filter);
    }
    if (is_shown) publish_presence(connection, presence->present);
}

void TransportClient::on_lost() {
    calls.connection_lost();
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
    lapi_mqtt::log_settings(*own);
    auto settings = lapi_mqtt::read_settings(*own);
    lapi_mqtt::warn_of_exposed_secrets(settings);
    return std::make_shared<lapi_mqtt::TransportClient>(std::move(settings));
}

}  // namespace ecu::lapi::com
