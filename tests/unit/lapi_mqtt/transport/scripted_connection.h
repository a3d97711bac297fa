#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "lapi_mqtt/mqtt/connection.h"

namespace fake {

/// The broker's side of scripted connections, of which there is one at a time: what was sent over
/// all of them, and what it does.
struct Broker {
    /// A packet as "publish TOPIC PAYLOAD q1", "subscribe FILTER q1", "unsubscribe FILTER".
    using Packet = std::string;

    /// Answers a packet: the reason of its acknowledgement, or nothing for none.
    std::function<std::optional<lapi_mqtt::Reason>(const Packet&)> answer = [](auto& packet) {
        lapi_mqtt::Reason reason;
        if (packet.rfind("subscribe", 0) == 0) reason.code = packet.back() - '0';
        return reason;
    };

    /// Runs while a connection is opened.
    std::function<void()> on_open;

    std::mutex mutex;  ///< guards what follows
    std::condition_variable changed;
    std::vector<Packet> packets;
    std::vector<lapi_mqtt::PublishProperties> properties;  ///< of the publications, in order
    lapi_mqtt::Traffic traffic;
    int connections_made = 0;
    bool is_cut = false;
    std::vector<std::function<void(lapi_mqtt::ConnectionEvents&)>> events;  ///< still to be told

    /// Sends a message that has been on its way for some time.
    void send(const std::string& topic, const std::string& text,
              lapi_mqtt::PublishProperties fields = {}, bool retain = false,
              std::chrono::milliseconds age = {}) {
        lapi_mqtt::Incoming incoming;
        incoming.topic = topic;
        incoming.message = ecu::lapi::com::Message({text.begin(), text.end()});
        incoming.message.retain = retain ? 1 : 0;
        incoming.properties = std::move(fields);
        incoming.sent_after = std::chrono::steady_clock::now() - age;
        const std::lock_guard<std::mutex> lock(mutex);
        events.emplace_back([incoming](auto& owner) { owner.on_message(incoming); });
        changed.notify_all();
    }
    void cut() {
        const std::lock_guard<std::mutex> lock(mutex);
        is_cut = true;
        changed.notify_all();
    }
    /// Takes the packet that is the n-th, and returns n.
    int take(const Packet& packet) {
        const std::lock_guard<std::mutex> lock(mutex);
        packets.push_back(packet);
        const int n = static_cast<int>(packets.size());
        if (const auto reason = answer(packet)) acknowledge(n, *reason);
        changed.notify_all();
        return n;
    }
    /// With `mutex` held.
    void acknowledge(int n, const lapi_mqtt::Reason& reason = {}) {
        events.emplace_back([n, reason](auto& owner) { owner.on_acknowledged(n, reason); });
    }
    std::vector<Packet> sent() {
        const std::lock_guard<std::mutex> lock(mutex);
        return packets;
    }
    template <typename Done>
    bool await(Done done) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(5), done);
    }
};

class ScriptedConnection : public lapi_mqtt::Connection {
public:
    ScriptedConnection(Broker& peer, lapi_mqtt::ConnectionEvents& events)
        : broker(peer), owner(events) {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.events.clear();
        broker.is_cut = false;
        ++broker.connections_made;
        broker.changed.notify_all();
    }
    void open(const std::atomic<bool>&) override {
        if (broker.on_open) broker.on_open();
    }
    bool loop(std::chrono::milliseconds timeout) override {
        std::unique_lock<std::mutex> lock(broker.mutex);
        broker.changed.wait_for(lock, timeout,
                                [&] { return broker.is_cut || !broker.events.empty(); });
        const bool goes_on = !broker.is_cut;
        const auto events = std::exchange(broker.events, {});
        lock.unlock();
        for (const auto& event : events) event(owner);
        return goes_on;
    }
    std::string end_cause() const override { return "cut"; }
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const lapi_mqtt::PublishProperties& fields) override {
        broker.properties.push_back(fields);
        const std::string payload(message.payload.begin(), message.payload.end());
        const std::string retain = message.retain != 0 ? " retained q" : " q";
        return broker.take("publish " + topic + " " + payload + retain + std::to_string(qos));
    }
    int subscribe(const std::string& filter, int qos, lapi_mqtt::RetainHandling retained) override {
        const bool wanted = retained == lapi_mqtt::RetainHandling::send;
        const std::string flags = wanted ? " retained q" : " q";
        return broker.take("subscribe " + filter + flags + std::to_string(qos));
    }
    int unsubscribe(const std::string& filter) override {
        return broker.take("unsubscribe " + filter);
    }
    void disconnect() override {
        broker.take("disconnect");
        broker.cut();
    }
    void abort() override {
        broker.take("abort");
        broker.cut();
    }
    lapi_mqtt::Traffic traffic() const override {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        return broker.traffic;
    }

private:
    Broker& broker;
    lapi_mqtt::ConnectionEvents& owner;
};

}  // namespace fake
