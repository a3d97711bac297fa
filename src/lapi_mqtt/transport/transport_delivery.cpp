// What the transport client does with messages: takes them on the thread that drives the link, and
// deals with them on its delivery thread.

#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/transport/transport_client.h"
#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;

}  // namespace

void TransportClient::on_message(Incoming incoming) {
    if (incoming.topic == calls.reply_topic()) {
        if (calls.take(incoming)) return;
        logging::write(logging::DEBUG, "Dropped a reply that nobody awaits");
        link.note_foreign(link.lock());
        return;
    }
    const bool is_below = incoming.topic.rfind(settings.topic_prefix, 0) == 0;
    if (is_below) incoming.topic.erase(0, settings.topic_prefix.size());
    {
        const auto lock = link.lock();
        link.note_foreign(lock);
        // What nobody asked for is not kept: there may be no thread to deliver it.
        if (!is_below || (!services.handler_of(incoming.topic) &&
                          subscriptions.receivers(incoming.topic).empty())) {
            return;
        }
    }
    const std::size_t size = incoming.message.payload.size();
    const auto kept = std::make_shared<Incoming>(std::move(incoming));
    delivery.push(size, [this, kept] { deliver(*kept); });
}

void TransportClient::deliver(Incoming& incoming) {
    Services::Handler handler;
    std::vector<ObserverHandle> observers;
    {
        const auto lock = link.lock();
        // Nobody could be answered any more; what was published is still taken.
        if (!link.is_leaving(lock)) handler = services.handler_of(incoming.topic);
        observers = subscriptions.receivers(incoming.topic);
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

void TransportClient::answer(const Services::Handler& handler, const Incoming& request) {
    logging::write(logging::DEBUG, "Request on ", request.topic, ": ",
                   request.message.payload.size(), " bytes, reply to ",
                   request.properties.response_topic);
    const auto began = std::chrono::steady_clock::now();
    switch (judge(request, began)) {
        case Verdict::drop:
            logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                           ": published to be kept, or without a usable response topic '",
                           request.properties.response_topic, "' and correlation data");
            return;
        case Verdict::late:
            logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                           ": nobody may await it any more");
            return send_reply(request, {}, "the request came too late and was not executed");
        case Verdict::run:
            break;
    }
    std::string cause;
    try {
        const Message reply = handler(request.message);
        logging::write(logging::DEBUG, "Executed a request on ", request.topic, " in ",
                       milliseconds_since(began), " ms");
        return send_reply(request, reply, std::nullopt);
    } catch (const std::exception& error) {
        cause = error.what();
    }
    logging::write(logging::ERROR, "A request on ", request.topic, " failed: ", cause);
    send_reply(request, {}, cause);
}

/// Throws TransportError for a reply that the broker or MQTT cannot carry; an error text always
/// fits.
void TransportClient::send_reply(const Incoming& request, const Message& reply,
                                 const std::optional<std::string>& error) {
    PublishProperties properties;
    properties.correlation_data = request.properties.correlation_data;
    properties.timeout = request.properties.timeout;
    properties.error = error;
    if (!error) properties.content_type = protocol::CONTENT_TYPE;
    const Step step{"reply on", request.properties.response_topic};
    const auto lock = link.lock();
    link.queue(lock, step, [&](Connection& connection) {
        return connection.publish(step.topic, reply, 1, properties);
    });
    logging::write(logging::DEBUG, "Answered a request on ", request.topic, ": ",
                   reply.payload.size(), " bytes");
}

}  // namespace lapi_mqtt
