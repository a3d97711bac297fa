#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/link/link.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/service_client.h"

namespace lapi_mqtt {

/// What is to become of a request.
enum class RequestCheck {
    run,
    unanswerable,  ///< without a usable response topic and correlation data
    expired,       ///< nobody may wait for the reply any more
};

/// Whether a request may run at `now`. A fresh one always may; one that may have waited for longer
/// than its client does never.
RequestCheck check(const Incoming& request, std::chrono::steady_clock::time_point now);

/// Answers requests: by whom, whether still, and with what.
class Services {
public:
    explicit Services(Link& to_broker) : link(to_broker) {}

    // With the link's lock held.

    /// Answers requests on `topic`, which the broker knows as `step.topic`, once the subscription
    /// is granted within `timeout`. Throws TransportError, and then answers nothing.
    void add(Link::Lock& lock, const Step& step, const std::string& topic, RequestHandler handler,
             std::chrono::milliseconds timeout);

    bool serves(const std::string& topic) const { return services.count(topic) != 0; }

    /// Subscribes again on a new connection. Throws TransportError.
    void on_reconnected();

    /// Begins no more requests, and waits, bounded, until the one that runs is answered and the
    /// broker has acknowledged the replies.
    void close(Link::Lock& lock);

    /// Runs a request and sends its reply. On the dispatch thread, with no lock held.
    void answer(const Incoming& request);

private:
    struct Service {
        RequestHandler handler;
        std::string broker_topic;
    };

    void run(const RequestHandler& handler, const Incoming& request);
    void reply(const Incoming& request, const ecu::lapi::com::Message& message,
               const std::optional<std::string>& error);

    Link& link;

    // Guarded by the link's lock.
    std::map<std::string, Service> services;  ///< by topic
    bool is_running = false;                  ///< a request
    bool is_closed = false;
};

}  // namespace lapi_mqtt
