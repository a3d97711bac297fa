#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "ecu/lapi/com.h"
#include "ecu/lapi/progress.h"
#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/mosquitto_connection.h"
#include "lapi_mqtt/requester.h"
#include "lapi_mqtt/service_client.h"
#include "lapi_mqtt/transport/calls.h"
#include "lapi_mqtt/transport/delivery.h"
#include "lapi_mqtt/transport/link.h"
#include "lapi_mqtt/transport/publications.h"
#include "lapi_mqtt/transport/services.h"
#include "lapi_mqtt/transport/subscriptions.h"

namespace lapi_mqtt {

/// The transport client over MQTT 5: joins the link to the broker with who uses it.
class TransportClient final : public IServiceClient,
                              public IRequester,
                              public ecu::lapi::com::ITransferProgress,
                              private Link::Owner {
public:
    using Message = ecu::lapi::com::Message;

    /// Makes its connections by `connections`; without one, over libmosquitto.
    explicit TransportClient(Settings checked_settings,
                             std::optional<Presence> own_presence = std::nullopt,
                             ConnectionFactory connections = {});
    ~TransportClient() override;
    TransportClient(const TransportClient&) = delete;
    TransportClient& operator=(const TransportClient&) = delete;

    void connect() override;
    void disconnect() override;
    void publish(const std::string& topic, const Message& message) override;
    void publish(const std::string& topic, const Message& message, AckHandler handler) override;
    void subscribe(const std::string& topic, int qos, ObserverHandle observer) override;
    void unsubscribe(const std::string& topic, ObserverHandle observer) override;
    Message request(const std::string& topic, const Message& message) override;
    void serve(const std::string& topic, RequestHandler handler) override;
    void show_presence() override;
    void post(std::function<void()> job) override;
    ecu::lapi::com::Transfer transfer() const override;
    void start() override;
    void stop() override;

private:
    using Kind = TransportError::Kind;

    std::string on_broker(const std::string& topic) const;
    void need_delivery(const Link::Lock& lock);
    int announce(Connection& connection, const std::string& topic) const;
    void expect_listener(const Link::Lock& lock, int announcement);
    void publish_presence(Connection& connection, const std::string& payload) const;

    void on_message(Incoming incoming) override;
    void on_reconnected(Connection& connection) override;
    void on_lost() override;

    void deliver(Incoming& incoming);
    void answer(const Services::Handler& handler, const Incoming& request);
    void send_reply(const Incoming& request, const Message& reply,
                    const std::optional<std::string>& error);

    // Constant after construction.
    const Settings settings;
    const ConnectionFactory factory;
    const std::string client_id;
    const std::optional<Presence> presence;
    const std::optional<Will> will;

    Link link;
    Calls calls;
    Publications publications;
    Delivery delivery;

    // Guarded by the link's lock.
    Services services;
    Subscriptions subscriptions;
    bool is_started = false;
    bool is_shown = false;  ///< the presence
};

}  // namespace lapi_mqtt
