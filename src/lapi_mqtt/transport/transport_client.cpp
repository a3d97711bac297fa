#include "lapi_mqtt/transport/transport_client.h"

#include <algorithm>
#include <utility>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/configuration_reader.h"
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

Settings take_settings(std::unique_ptr<ecu::lapi::config::Configuration>& config) {
    const auto own = std::move(config);
    if (!own->verify()) {
        throw TransportError(
            TransportError::Kind::failed,
            "Cannot use the configuration: " + ConfigurationReader(*own).errors().front());
    }
    log_settings(*own);
    auto settings = read_settings(*own);
    warn_of_exposed_secrets(settings);
    return settings;
}

}  // namespace

TransportClient::TransportClient(Settings checked_settings, std::optional<Presence> own_presence,
                                 ConnectionFactory connections)
    : settings(std::move(checked_settings)),
      factory(std::move(connections)),
      client_id(make_client_id(settings.client_name)),
      presence(std::move(own_presence)),
      will(presence ? std::make_optional<Will>({on_broker(presence->topic), presence->absent})
                    : std::nullopt),
      link(
          settings.place(),
          [this](ConnectionEvents& events) -> std::unique_ptr<Connection> {
              if (factory) return factory(events);
              return std::make_unique<MosquittoConnection>(settings, client_id, will, events);
          },
          *this),
      calls(link, protocol::REPLY_PREFIX + client_id + protocol::REPLY_SUFFIX,
            settings.request_timeout),
      publications(link) {}

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

com::Transfer TransportClient::transfer() const {
    return link.transfer();
}

void TransportClient::post(std::function<void()> job) {
    delivery.push_at_once(std::move(job));
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
    if (failure) std::rethrow_exception(failure);
}

void TransportClient::stop() {
    delivery.close();
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
                              AckHandler handler) {
    const Step step{"publish on", on_broker(topic)};
    const auto lock = link.lock();
    need_delivery(lock);
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.publish(step.topic, message, std::max(message.get_qos(), 1), {});
    });
    link.expect(lock, id, [this, handler = std::move(handler)](const Outcome& outcome) {
        const bool acknowledged = outcome && !outcome->is_refusal();
        delivery.push_at_once([handler, acknowledged] { handler(acknowledged); });
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
    const bool only_watches = (qos & com::WATCH_ONLY) != 0;
    const auto retained = only_watches ? RetainHandling::send : RetainHandling::do_not_send;
    const int own_qos = qos & ~com::WATCH_ONLY;
    auto lock = link.lock();
    need_delivery(lock);
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.subscribe(step.topic, own_qos, retained);
    });
    // Before the grant: a retained message may come right behind it.
    subscriptions.add({topic, own_qos, retained, observer});
    try {
        link.await_grant(lock, id, settings.request_timeout, step);
        if (only_watches) return;
        const int announcement = link.queue(
            lock, step, [&](Connection& connection) { return announce(connection, topic); });
        expect_listener(lock, announcement);
    } catch (const TransportError&) {
        subscriptions.remove(topic, observer);
        throw;
    }
}

/// Nobody waits for the broker's word: it may be behind a large message on a slow link.
void TransportClient::unsubscribe(const std::string& topic, ObserverHandle observer) {
    const Step step{"unsubscribe", on_broker(topic)};
    const auto lock = link.lock();
    if (!subscriptions.remove(topic, observer) || !link.is_up(lock)) return;
    link.queue(lock, step,
               [&](Connection& connection) { return connection.unsubscribe(step.topic); });
}

TransportClient::Message TransportClient::request(const std::string& topic,
                                                  const Message& message) {
    return calls.request(on_broker(topic), message);
}

void TransportClient::serve(const std::string& topic, RequestHandler handler) {
    const Step step{"serve", on_broker(topic)};
    auto lock = link.lock();
    need_delivery(lock);
    const int id = link.queue(lock, step, [&](Connection& connection) {
        return connection.subscribe(step.topic, 1, RetainHandling::do_not_send);
    });
    services.add(topic, std::move(handler));
    if (link.await_grant(lock, id, settings.request_timeout, step) == 0) {
        link.fail(Kind::failed, step, "the broker grants QoS 0 only, requests need QoS 1");
    }
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
        connection.subscribe(on_broker(topic), 1, RetainHandling::do_not_send);
    }
    for (const auto& entry : subscriptions.all()) {
        connection.subscribe(on_broker(entry.filter), entry.qos, entry.retained);
        if (entry.is_announced()) announce(connection, entry.filter);
    }
    if (is_shown) publish_presence(connection, presence->present);
}

void TransportClient::on_lost() {
    calls.connection_lost();
}

std::string broker_name(const ecu::lapi::config::Configuration& config) {
    return read_settings(config).place();
}

std::unique_ptr<ecu::lapi::config::Configuration> default_configuration() {
    return ConfigurationReader::defaults();
}

std::shared_ptr<IServiceClient> create_service_client(
    std::unique_ptr<ecu::lapi::config::Configuration>& config, const Presence& presence) {
    return std::make_shared<TransportClient>(take_settings(config), presence);
}

}  // namespace lapi_mqtt

std::shared_ptr<ecu::lapi::com::ITransportClient> ecu::lapi::com::create_client(
    std::unique_ptr<config::Configuration>& config, TransportType /*type*/) {
    return std::make_shared<lapi_mqtt::TransportClient>(lapi_mqtt::take_settings(config));
}
