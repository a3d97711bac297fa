#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ecu/lapi/com.h"
#include "ecu/lapi/progress.h"
#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/link/link.h"
#include "lapi_mqtt/mqtt/mosquitto_connection.h"
#include "lapi_mqtt/requester.h"
#include "lapi_mqtt/service_client.h"
#include "lapi_mqtt/transport/announcements.h"
#include "lapi_mqtt/transport/dispatcher.h"
#include "lapi_mqtt/transport/presence.h"
#include "lapi_mqtt/transport/publications.h"
#include "lapi_mqtt/transport/requests.h"
#include "lapi_mqtt/transport/services.h"
#include "lapi_mqtt/transport/subscriptions.h"

namespace lapi_mqtt {

/// The transport client over MQTT 5: joins the link to the broker with who uses it, puts the prefix
/// before topics and takes it off again.
class TransportClient final : public IServiceClient,
                              public IRequester,
                              public ecu::lapi::com::ITransferProgress,
                              private Link::Owner {
public:
    using Message = ecu::lapi::com::Message;

    /// A service has a last will. Makes its connections by `connections`; without one, over
    /// libmosquitto.
    explicit TransportClient(Settings checked_settings, bool is_service = false,
                             ConnectionFactory connections = {});
    ~TransportClient() override { stop(); }

    void connect() override { link.connect(); }
    void disconnect() override;
    void publish(const std::string& topic, const Message& message) override;
    void publish(const std::string& topic, const Message& message, AckHandler handler) override;
    void subscribe(const std::string& topic, int qos, ObserverHandle observer) override;
    void unsubscribe(const std::string& topic, ObserverHandle observer) override;
    Message request(const std::string& topic, const Message& message) override;
    void serve(const std::string& topic, RequestHandler handler) override;
    void show_presence() override;
    void post(std::function<void()> job) override { dispatcher.push_at_once(std::move(job)); }
    ecu::lapi::com::Transfer transfer() const override { return link.transfer(); }
    void start() override;
    void stop() override;

private:
    std::string on_broker(const std::string& topic) const;
    void need_dispatch(const Step& step);
    void observe(const Incoming& incoming);

    void on_message(Incoming incoming) override;
    void on_reconnected() override;

    // Constant after construction.
    const Settings settings;
    const std::string client_id;
    const std::optional<Will> will;

    Link link;
    Announcements announcements;
    Publications publications;
    Requests requests;
    Services services;
    PresenceKeeper presence_keeper;
    Dispatcher dispatcher;

    // Guarded by the link's lock.
    Subscriptions subscriptions;
    bool is_started = false;
};

}  // namespace lapi_mqtt
