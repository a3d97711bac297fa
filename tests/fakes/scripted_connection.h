#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/mqtt/topic_filter.h"

namespace fake {

/// The broker's side of scripted connections: what was sent to it, over all of them, and what it does.
struct Broker {
    /// A packet as "publish TOPIC PAYLOAD q1", "subscribe FILTER q1", "unsubscribe FILTER".
    using Packet = std::string;

    /// Answers a packet: the reason of its acknowledgement, or nothing for none.
    std::function<std::optional<lapi_mqtt::Reason>(const Packet&)> answer = [](const Packet& packet) {
        return lapi_mqtt::Reason{packet.rfind("subscribe", 0) == 0 ? packet.back() - '0' : 0, ""};
    };

    /// Runs while a connection is opened.
    std::function<void()> on_open;

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Packet> packets;
    std::vector<lapi_mqtt::PublishProperties> properties;  ///< of the publications, in order
    std::vector<class ScriptedConnection*> connections;    ///< that are there
    lapi_mqtt::Traffic traffic;
    int connections_made = 0;

    /// Sends a message to each connection that has subscribed its topic.
    void send(const std::string& topic, const std::string& text, lapi_mqtt::PublishProperties fields = {},
              bool retain = false);
    /// Acknowledges the packet that was sent as the n-th.
    void acknowledge(int number);
    /// Ends every connection.
    void cut();
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
    ScriptedConnection(Broker& peer, lapi_mqtt::ConnectionEvents& owner) : broker(peer), events(owner) {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.connections.push_back(this);
        ++broker.connections_made;
        broker.changed.notify_all();
    }
    ~ScriptedConnection() override {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        auto& all = broker.connections;
        all.erase(std::find(all.begin(), all.end(), this));
    }

    void open(const std::atomic<bool>&) override {
        if (broker.on_open) broker.on_open();
    }
    bool loop(std::chrono::milliseconds timeout) override {
        std::unique_lock<std::mutex> lock(broker.mutex);
        broker.changed.wait_for(lock, timeout, [this] { return is_cut || !waiting.empty(); });
        while (!waiting.empty()) {
            const auto event = std::move(waiting.front());
            waiting.pop_front();
            lock.unlock();
            event(events);
            lock.lock();
        }
        return !is_cut;
    }
    std::string end_cause() const override { return "cut"; }
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const lapi_mqtt::PublishProperties& fields) override {
        const std::string kept = message.retain != 0 ? " kept" : "";
        return take("publish " + topic + " " + std::string(message.payload.begin(), message.payload.end()) + kept +
                        " q" + std::to_string(qos),
                    &fields);
    }
    int subscribe(const std::string& filter, int qos, lapi_mqtt::RetainHandling retained) override {
        {
            const std::lock_guard<std::mutex> lock(broker.mutex);
            filters.push_back(filter);
        }
        const bool wanted = retained == lapi_mqtt::RetainHandling::send;
        return take("subscribe " + filter + (wanted ? " kept q" : " q") + std::to_string(qos));
    }
    int unsubscribe(const std::string& filter) override { return take("unsubscribe " + filter); }
    void disconnect() override { cut("disconnect"); }
    void abort() override { cut("abort"); }
    lapi_mqtt::Traffic traffic() const override {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        return broker.traffic;
    }

private:
    friend struct Broker;
    void cut(const char* packet) {
        take(packet);
        const std::lock_guard<std::mutex> lock(broker.mutex);
        is_cut = true;
        broker.changed.notify_all();
    }
    int take(const Broker::Packet& packet, const lapi_mqtt::PublishProperties* fields = nullptr) {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.packets.push_back(packet);
        if (fields != nullptr) broker.properties.push_back(*fields);
        const int id = static_cast<int>(broker.packets.size());
        const auto reason = broker.answer(packet);
        if (reason) waiting.push_back([id, r = *reason](auto& owner) { owner.on_acknowledged(id, r); });
        broker.changed.notify_all();
        return id;
    }

    Broker& broker;
    lapi_mqtt::ConnectionEvents& events;
    // Guarded by broker.mutex.
    bool is_cut = false;
    std::vector<std::string> filters;
    std::deque<std::function<void(lapi_mqtt::ConnectionEvents&)>> waiting;
};

inline void Broker::cut() {
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto* connection : connections) connection->is_cut = true;
    changed.notify_all();
}

inline void Broker::acknowledge(int number) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto tell = [number](auto& owner) { owner.on_acknowledged(number, {}); };
    for (auto* connection : connections) connection->waiting.push_back(tell);
    changed.notify_all();
}

inline void Broker::send(const std::string& topic, const std::string& text, lapi_mqtt::PublishProperties fields,
                         bool retain) {
    lapi_mqtt::Incoming incoming;
    incoming.topic = topic;
    incoming.message = ecu::lapi::com::Message({text.begin(), text.end()});
    incoming.message.retain = retain ? 1 : 0;
    incoming.properties = std::move(fields);
    incoming.sent_after = std::chrono::steady_clock::now();
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto* connection : connections) {
        const auto& all = connection->filters;
        const auto matches = [&](const auto& filter) { return lapi_mqtt::topic_matches(filter, topic); };
        if (std::none_of(all.begin(), all.end(), matches)) continue;
        connection->waiting.push_back([incoming](auto& owner) { owner.on_message(incoming); });
    }
    changed.notify_all();
}

}  // namespace fake
