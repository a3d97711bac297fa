#pragma once

#include "lapi_mqtt/requester.h"
#include "lapi_mqtt/service_client.h"

namespace fake {

/// A transport client that does nothing.
struct ServiceClientStub : lapi_mqtt::IServiceClient {
    using Message = ecu::lapi::com::Message;
    using Observer = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;
    void connect() override {}
    void disconnect() override {}
    void publish(const std::string&, const Message&) override {}
    void publish(const std::string&, const Message&, lapi_mqtt::AckHandler) override {}
    void subscribe(const std::string&, int, Observer) override {}
    void unsubscribe(const std::string&, Observer) override {}
    void serve(const std::string&, lapi_mqtt::RequestHandler) override {}
    void show_presence() override {}
    void post(std::function<void()> job) override { job(); }
    void start() override {}
    void stop() override {}
};

}  // namespace fake
