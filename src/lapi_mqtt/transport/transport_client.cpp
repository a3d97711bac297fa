#include "lapi_mqtt/transport/transport_client.h"

#include <algorithm>
#include <exception>
#include <utility>
#include <vector>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/config/configuration_reader.h"
#include "lapi_mqtt/config/exposure.h"
#include "lapi_mqtt/mqtt/client_id.h"
#include "lapi_mqtt/mqtt/topic_filter.h"
#include "lapi_mqtt/transport/retain.h"
#include "protocol/request.h"
#include "protocol/topics.h"

namespace lapi_mqtt {
namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

std::size_t memory_of(const Incoming& incoming) {
    const auto& properties = incoming.properties;
    return sizeof incoming + incoming.topic.size() + incoming.message.payload.size() +
           properties.response_topic.size() + properties.correlation_data.size() +
           properties.content_type.size() + properties.error.value_or("").size();
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

TransportClient::TransportClient(Settings checked_settings, bool is_service,
                                 ConnectionFactory connections)
    : settings(std::move(checked_settings)),
      client_id(make_client_id(settings.client_name)),
      will(is_service
               ? std::make_optional<Will>({on_broker(protocol::PRESENCE_TOPIC), protocol::ABSENT})
               : std::nullopt),
      link(
          settings.place(),
          connections ? std::move(connections)
                      : [this](ConnectionEvents& events) -> std::unique_ptr<Connection> {
              return std::make_unique<MosquittoConnection>(settings, client_id, will, events);
          },
          *this),
      announcements(link, on_broker(protocol::ANNOUNCEMENT_TOPIC)),
      publications(link, announcements),
      requests(link, protocol::REPLY_PREFIX + client_id + protocol::REPLY_SUFFIX,
               settings.request_timeout),
      services(link),
      presence_keeper(link, on_broker(protocol::PRESENCE_TOPIC)) {}

/// Every name on the broker but the reply topics lies below the prefix; a shared subscription keeps
/// its "$share/GROUP/" in front.
std::string TransportClient::on_broker(const std::string& topic) const {
    const auto own = shared_prefix_length(topic);
    return topic.substr(0, own) + settings.topic_prefix + topic.substr(own);
}

void TransportClient::start() {
    const auto lock = link.lock();
    is_started = true;
}

/// Dispatch starts with the first thing that goes on while the caller does something else. Requests
/// alone do without: their caller runs the connection's loop.
void TransportClient::need_dispatch(const Step& step) {
    if (!is_started) link.fail(Link::Kind::failed, step, "the client is not started");
    dispatcher.start();
    link.run_on_a_thread();
}

void TransportClient::disconnect() {
    auto lock = link.lock();
    std::exception_ptr failure;
    try {
        publications.wait_for_acks(lock);
    } catch (const TransportError&) {
        failure = std::current_exception();
    }
    services.close(lock);
    link.disconnect(lock);
    if (failure) std::rethrow_exception(failure);
}

void TransportClient::stop() {
    dispatcher.close();
    link.stop();
    dispatcher.stop();
}

void TransportClient::publish(const std::string& topic, const Message& message) {
    const Step step{"publish on", on_broker(topic)};
    const auto lock = link.lock();
    need_dispatch(step);
    if (!dispatcher.is_current_thread()) return publications.publish(step, topic, message);
    // Who publishes from an observer or a service answers somebody, and is not to ask for answers.
    link.publish(step, message, message.get_qos());
}

void TransportClient::publish(const std::string& topic, const Message& message,
                              AckHandler handler) {
    const Step step{"publish on", on_broker(topic)};
    const auto lock = link.lock();
    need_dispatch(step);
    const auto tell = [this, handler = std::move(handler)](const Outcome& outcome) {
        const bool acknowledged = outcome && !outcome->is_refusal();
        dispatcher.push_at_once([handler, acknowledged] { handler(acknowledged); });
    };
    link.publish(step, message, std::max(message.get_qos(), 1), {}, tell);
}

void TransportClient::subscribe(const std::string& topic, int qos, ObserverHandle observer) {
    const Step step{"subscribe", on_broker(topic)};
    const auto retained = retain::handling(qos);
    const int own_qos = qos & ~com::WATCH_ONLY;
    auto lock = link.lock();
    need_dispatch(step);
    // Before the grant: a retained message may come right behind it.
    subscriptions.add({topic, own_qos, retained, observer});
    try {
        link.subscribe_and_wait(lock, step, own_qos, retained, settings.request_timeout);
        if (retained == RetainHandling::do_not_send) announcements.announce(topic);
    } catch (const TransportError&) {
        subscriptions.remove(topic, observer);
        throw;
    }
}

/// Nobody waits for UNSUBACK: it may be behind a large message on a slow link.
void TransportClient::unsubscribe(const std::string& topic, ObserverHandle observer) {
    const Step step{"unsubscribe", on_broker(topic)};
    const auto lock = link.lock();
    if (!subscriptions.remove(topic, observer) || !link.is_up()) return;
    link.unsubscribe(step);
}

TransportClient::Message TransportClient::request(const std::string& topic,
                                                  const Message& message) {
    return requests.request(on_broker(topic), message);
}

void TransportClient::serve(const std::string& topic, RequestHandler handler) {
    const Step step{"serve", on_broker(topic)};
    auto lock = link.lock();
    need_dispatch(step);
    services.add(lock, step, topic, std::move(handler), settings.request_timeout);
}

void TransportClient::show_presence() {
    const auto lock = link.lock();
    presence_keeper.show();
}

void TransportClient::on_message(Incoming incoming) {
    if (incoming.topic == requests.reply_topic()) {
        if (requests.accept(incoming)) return;
        logging::write(logging::DEBUG, "Dropped a reply that nobody waits for");
        const auto lock = link.lock();
        return link.note_unrelated();
    }
    std::string lane;
    {
        const auto lock = link.lock();
        link.note_unrelated();
        presence_keeper.on_message(incoming.topic, incoming.message);
        if (incoming.topic.rfind(settings.topic_prefix, 0) != 0) return;
        incoming.topic.erase(0, settings.topic_prefix.size());
        const bool is_request = services.serves(incoming.topic);
        // What nobody asked for is dropped: there may be no thread to dispatch it.
        if (!is_request && subscriptions.receivers(incoming.topic).empty()) return;
        if (is_request) lane = incoming.properties.response_topic;
    }
    const bool is_service = will.has_value();
    if (retain::is_ignored(incoming.message, is_service)) {
        logging::write(logging::WARNING, "Dropped a retained message on ", incoming.topic);
        return;
    }
    const std::size_t size = memory_of(incoming);
    const auto shared = std::make_shared<Incoming>(std::move(incoming));
    dispatcher.push(lane, size, [this, shared] {
        services.answer(*shared);
        observe(*shared);
    });
}

void TransportClient::observe(const Incoming& incoming) {
    std::vector<ObserverHandle> observers;
    {
        const auto lock = link.lock();
        observers = subscriptions.receivers(incoming.topic);
    }
    for (const auto& observer : observers) {
        try {
            observer->message(incoming.topic, incoming.message);
        } catch (const std::exception& error) {
            logging::write(logging::ERROR, "An observer of ", incoming.topic,
                           " failed: ", error.what());
        }
    }
}

/// What was published meanwhile is missed; the announcements bring the current values.
void TransportClient::on_reconnected() {
    services.on_reconnected();
    for (const auto& entry : subscriptions.all()) {
        link.subscribe({"subscribe", on_broker(entry.filter)}, entry.qos, entry.retained);
        if (entry.retained == RetainHandling::do_not_send) announcements.announce(entry.filter);
    }
    presence_keeper.on_reconnected();
}

std::string broker_name(const ecu::lapi::config::Configuration& config) {
    return read_settings(config).place();
}

std::unique_ptr<ecu::lapi::config::Configuration> default_configuration() {
    return ConfigurationReader::defaults();
}

std::shared_ptr<IServiceClient> create_service_client(
    std::unique_ptr<ecu::lapi::config::Configuration>& config) {
    return std::make_shared<TransportClient>(take_settings(config), true);
}

}  // namespace lapi_mqtt

std::shared_ptr<ecu::lapi::com::ITransportClient> ecu::lapi::com::create_client(
    std::unique_ptr<config::Configuration>& config, TransportType /*type*/) {
    return std::make_shared<lapi_mqtt::TransportClient>(lapi_mqtt::take_settings(config));
}
