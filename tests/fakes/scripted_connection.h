#pragma once

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/mqtt/topic_filter.h"

namespace fake {

/// The broker's side of scripted connections: what was sent over all of them, and what it does.
struct Broker {
    /// A packet as "publish TOPIC PAYLOAD q1", "subscribe FILTER q1", "unsubscribe FILTER".
    using Packet = std::string;

    /// A connection that exists.
    struct Link {
        bool is_cut = false;
        std::vector<std::string> filters;
        std::deque<std::function<void(lapi_mqtt::ConnectionEvents&)>> waiting;
    };

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
    std::set<Link*> links;
    lapi_mqtt::Traffic traffic;
    int connections_made = 0;

    /// Sends a message to each connection that has subscribed its topic.
    void send(const std::string& topic, const std::string& text,
              lapi_mqtt::PublishProperties fields = {}, bool retain = false) {
        lapi_mqtt::Incoming incoming;
        incoming.topic = topic;
        incoming.message = ecu::lapi::com::Message({text.begin(), text.end()});
        incoming.message.retain = retain ? 1 : 0;
        incoming.properties = std::move(fields);
        incoming.sent_after = std::chrono::steady_clock::now();
        on_each([&](Link& link) {
            for (const auto& filter : link.filters) {
                if (!lapi_mqtt::topic_matches(filter, topic)) continue;
                link.waiting.push_back([incoming](auto& owner) { owner.on_message(incoming); });
                return;
            }
        });
    }
    /// Acknowledges the packet that was sent as the n-th.
    void acknowledge(int n) {
        on_each([n](Link& link) {
            link.waiting.push_back([n](auto& owner) { owner.on_acknowledged(n, {}); });
        });
    }
    /// Ends every connection.
    void cut() {
        on_each([](Link& link) { link.is_cut = true; });
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

private:
    template <typename Action>
    void on_each(Action action) {
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto* link : links) action(*link);
        changed.notify_all();
    }
};

class ScriptedConnection : public lapi_mqtt::Connection {
public:
    ScriptedConnection(Broker& peer, lapi_mqtt::ConnectionEvents& owner)
        : broker(peer), events(owner) {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.links.insert(&link);
        ++broker.connections_made;
        broker.changed.notify_all();
    }
    ~ScriptedConnection() override {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.links.erase(&link);
    }

    void open(const std::atomic<bool>&) override {
        if (broker.on_open) broker.on_open();
    }
    bool loop(std::chrono::milliseconds timeout) override {
        std::unique_lock<std::mutex> lock(broker.mutex);
        broker.changed.wait_for(lock, timeout,
                                [&] { return link.is_cut || !link.waiting.empty(); });
        while (!link.waiting.empty()) {
            const auto event = std::move(link.waiting.front());
            link.waiting.pop_front();
            lock.unlock();
            event(events);
            lock.lock();
        }
        return !link.is_cut;
    }
    std::string end_cause() const override { return "cut"; }
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const lapi_mqtt::PublishProperties& fields) override {
        const std::string payload(message.payload.begin(), message.payload.end());
        const std::string retain = message.retain != 0 ? " retained q" : " q";
        return take("publish " + topic + " " + payload + retain + std::to_string(qos), &fields);
    }
    int subscribe(const std::string& filter, int qos, lapi_mqtt::RetainHandling retained) override {
        const bool wanted = retained == lapi_mqtt::RetainHandling::send;
        const std::string flags = (wanted ? " retained q" : " q") + std::to_string(qos);
        return take("subscribe " + filter + flags, nullptr, &filter);
    }
    int unsubscribe(const std::string& filter) override { return take("unsubscribe " + filter); }
    void disconnect() override { end("disconnect"); }
    void abort() override { end("abort"); }
    lapi_mqtt::Traffic traffic() const override {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        return broker.traffic;
    }

private:
    void end(const char* packet) {
        take(packet);
        const std::lock_guard<std::mutex> lock(broker.mutex);
        link.is_cut = true;
        broker.changed.notify_all();
    }
    int take(const Broker::Packet& packet, const lapi_mqtt::PublishProperties* fields = nullptr,
             const std::string* filter = nullptr) {
        const std::lock_guard<std::mutex> lock(broker.mutex);
        broker.packets.push_back(packet);
        if (fields != nullptr) broker.properties.push_back(*fields);
        if (filter != nullptr) link.filters.push_back(*filter);
        const int id = static_cast<int>(broker.packets.size());
        if (const auto reason = broker.answer(packet)) {
            link.waiting.push_back(
                [id, r = *reason](auto& owner) { owner.on_acknowledged(id, r); });
        }
        broker.changed.notify_all();
        return id;
    }

    Broker& broker;
    lapi_mqtt::ConnectionEvents& events;
    Broker::Link link;
};

}  // namespace fake
