#include "lapi_mqtt/transport/services.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "ecu/lapi/logging.h"
#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using ecu::lapi::com::Message;
using std::chrono::milliseconds;

/// How exactly an age is known: an idle connection is polled every 50 ms.
constexpr milliseconds AGE_RESOLUTION{100};

/// For the last replies to reach the broker.
constexpr Deadline::Timeouts REPLY_TIMEOUTS{milliseconds(2'000), milliseconds(5'000)};

/// A reply goes only where a client of ours waits for it: never to a topic that means something
/// else.
bool is_reply_topic(const std::string& topic) {
    return topic.rfind(protocol::REPLY_PREFIX, 0) == 0 &&
           topic.find_first_of("+#") == std::string::npos;
}

}  // namespace

RequestCheck check(const Incoming& request, std::chrono::steady_clock::time_point now) {
    const auto& properties = request.properties;
    if (properties.correlation_data.empty() || !is_reply_topic(properties.response_topic)) {
        return RequestCheck::unanswerable;
    }
    // The broker drops what has expired, but not what it had already sent to a process that slept.
    const auto age = now - request.sent_after;
    const bool is_late = properties.timeout && age >= std::max(*properties.timeout, AGE_RESOLUTION);
    return is_late ? RequestCheck::expired : RequestCheck::run;
}

void Services::add(Link::Lock& lock, const Step& step, const std::string& topic,
                   RequestHandler handler, milliseconds timeout) {
    services[topic] = {std::move(handler), step.topic};
    try {
        if (link.subscribe_and_wait(lock, step, 1, RetainHandling::do_not_send, timeout) == 0) {
            link.fail(Link::Kind::failed, step,
                      "the broker grants QoS 0 only, requests need QoS 1");
        }
    } catch (const TransportError&) {
        services.erase(topic);
        throw;
    }
}

void Services::on_reconnected() {
    for (const auto& [topic, service] : services) {
        link.subscribe({"serve", service.broker_topic}, 1, RetainHandling::do_not_send);
    }
}

void Services::close(Link::Lock& lock) {
    is_closed = true;
    if (services.empty()) return;
    link.wait(lock, REPLY_TIMEOUTS, UINT64_MAX,
              [this] { return !is_running && link.is_all_acknowledged(); });
}

void Services::answer(const Incoming& request) {
    RequestHandler handler;
    {
        const auto lock = link.lock();
        const auto found = services.find(request.topic);
        if (is_closed || found == services.end()) return;  // nobody could be answered any more
        handler = found->second.handler;
        is_running = true;
    }
    struct Running {
        ~Running() {
            const auto lock = services.link.lock();
            services.is_running = false;
            services.link.notify();
        }
        Services& services;
    };
    const Running running{*this};
    run(handler, request);
}

void Services::run(const RequestHandler& handler, const Incoming& request) {
    logging::write(logging::DEBUG, "Request on ", request.topic, ": ",
                   request.message.payload.size(), " bytes, reply to ",
                   request.properties.response_topic);
    const auto began = std::chrono::steady_clock::now();
    switch (check(request, began)) {
        case RequestCheck::unanswerable:
            logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                           ": no usable response topic '", request.properties.response_topic,
                           "' and correlation data");
            return;
        case RequestCheck::expired:
            logging::write(logging::WARNING, "Dropped a request on ", request.topic,
                           ": it has expired");
            return reply(request, {}, "the request came too late and was not executed");
        case RequestCheck::run:
            break;
    }
    std::string cause;
    try {
        const Message result = handler(request.message);
        logging::write(logging::DEBUG, "Executed a request on ", request.topic, " in ",
                       milliseconds_since(began), " ms");
        return reply(request, result, std::nullopt);
    } catch (const TransportError& error) {
        if (error.kind() == Link::Kind::not_connected) throw;  // executed, but nobody can be told
        cause = error.what();
    } catch (const std::exception& error) {
        cause = error.what();
    }
    logging::write(logging::ERROR, "A request on ", request.topic, " failed: ", cause);
    reply(request, {}, cause);
}

/// Throws TransportError for a reply that the broker or MQTT cannot carry; an error text always
/// fits.
void Services::reply(const Incoming& request, const Message& message,
                     const std::optional<std::string>& error) {
    PublishProperties properties;
    properties.correlation_data = request.properties.correlation_data;
    properties.timeout = request.properties.timeout;
    properties.error = error;
    if (!error) properties.content_type = protocol::CONTENT_TYPE;
    const auto lock = link.lock();
    link.publish({"reply on", request.properties.response_topic}, message, 1, properties);
    logging::write(logging::DEBUG, "Answered a request on ", request.topic, ": ",
                   message.payload.size(), " bytes");
}

}  // namespace lapi_mqtt
