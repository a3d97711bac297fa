#include "lapi_mqtt/transport/overlapping.h"

#include <utility>

namespace lapi_mqtt {
namespace {

class StandIn : public ecu::lapi::com::ISubscriptionObserver {
public:
    StandIn(ObserverHandle observer, Overlapping::Forward forward_message)
        : standing_for(std::move(observer)), forward(std::move(forward_message)) {}

    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override {
        forward(standing_for, topic, msg);
    }

private:
    const ObserverHandle standing_for;
    const Overlapping::Forward forward;
};

}  // namespace

Overlapping::Overlapping(std::function<ClientHandle()> make_client, Forward forward_message)
    : make(std::move(make_client)), forward(std::move(forward_message)) {}

void Overlapping::subscribe(const std::string& topic, int qos, const ObserverHandle& observer) {
    if (!client) {
        client = make();
        client->connect();
        client->start();
    }
    auto& stand_in = stand_ins[observer];
    if (!stand_in) stand_in = std::make_shared<StandIn>(observer, forward);
    client->subscribe(topic, qos, stand_in);
}

void Overlapping::unsubscribe(const std::string& topic, const ObserverHandle& observer) {
    const auto stand_in = stand_ins.find(observer);
    if (stand_in != stand_ins.end()) client->unsubscribe(topic, stand_in->second);
}

void Overlapping::disconnect() {
    if (client) client->disconnect();
}

void Overlapping::stop() {
    if (client) client->stop();
}

}  // namespace lapi_mqtt
