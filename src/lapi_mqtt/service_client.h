#pragma once

#include <functional>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "ecu/lapi/config.h"
#include "lapi_mqtt/transport_error.h"

/// What this library offers beyond the platform's interface: the transport client of a service.
namespace lapi_mqtt {

/// Answers one request: returns the reply, or throws a std::exception whose text then reaches the
/// requester instead. Called on the dispatch thread.
using RequestHandler =
    std::function<ecu::lapi::com::Message(const ecu::lapi::com::Message& request)>;

/// Told whether the broker acknowledged a message; false when it refused it, or when that will
/// never be known. Called at most once, on the dispatch thread; not at all after `stop`.
using AckHandler = std::function<void(bool acknowledged)>;

/// A transport client that serves requests. Its operations throw TransportError; request handlers,
/// AckHandlers and jobs may `publish` and `post`.
class IServiceClient : public ecu::lapi::com::ITransportClient {
public:
    using ITransportClient::publish;

    /// Queues the message, at QoS 1 at least. When it throws, `handler` is never called.
    virtual void publish(const std::string& topic, const ecu::lapi::com::Message& message,
                         AckHandler handler) = 0;

    /// Answers the requests on a topic until `disconnect`. When it throws, `handler` is not called
    /// any more.
    virtual void serve(const std::string& topic, RequestHandler handler) = 0;

    /// Publishes on the presence topic that the unit is there, and keeps that true until
    /// `disconnect`: again after each reconnection, and whenever the topic says something else.
    /// Needs the right to read the topic.
    virtual void show_presence() = 0;

    /// Runs `job` on the dispatch thread, behind every message that has arrived by now (requests
    /// aside). What is posted by a job still runs during `stop`.
    virtual void post(std::function<void()> job) = 0;
};

/// As ecu::lapi::com::create_client. The connection's last will says that the unit is gone.
std::shared_ptr<IServiceClient> create_service_client(
    std::unique_ptr<ecu::lapi::config::Configuration>& config);

/// "HOST:PORT" of a configuration that verifies, as messages name the broker.
std::string broker_name(const ecu::lapi::config::Configuration& config);

/// The defaults alone, with nothing of this machine's.
std::unique_ptr<ecu::lapi::config::Configuration> default_configuration();

}  // namespace lapi_mqtt
