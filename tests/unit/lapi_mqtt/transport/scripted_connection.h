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

/// A packet as "connect", "publish TOPIC PAYLOAD q1", "subscribe FILTER q1", "unsubscribe FILTER".
using Packet = std::string;

/// The broker's side of scripted connections, of which there is one at a time: what was sent over
/// all of them, and what it does.
class Broker {
public:
    using Event = std::function<void(lapi_mqtt::ConnectionEvents&)>;

    std::function<void()> on_open;                         ///< runs while a connection is opened
    std::vector<lapi_mqtt::PublishProperties> properties;  ///< of the publications, in order
    std::atomic<std::uint64_t> bytes_received = 0;         ///< by the client

    /// Packets that begin so are acknowledged with this reason from now on, or not at all.
    void script(const Packet& begin, std::optional<lapi_mqtt::Reason> reason) {
        const std::lock_guard<std::mutex> lock(mutex);
        reasons.emplace_back(begin, std::move(reason));
    }
    void send(const std::string& topic, const std::string& text,
              const lapi_mqtt::PublishProperties& fields = {}, bool retain = false) {
        ecu::lapi::com::Message message({text.begin(), text.end()});
        message.retain = retain ? 1 : 0;
        const auto now = std::chrono::steady_clock::now();
        tell([=](auto& owner) { owner.on_message({topic, message, fields, now}); });
    }
    /// Acknowledges the n-th packet.
    void acknowledge(int n) {
        tell([n](auto& owner) { owner.on_acknowledged(n, {}); });
    }
    /// Ends the connection.
    void cut() { tell(nullptr); }

    /// What was sent, once so many packets have come, or after 5 seconds.
    std::vector<Packet> sent(std::size_t count = 0) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, std::chrono::seconds(5), [&] { return packets.size() >= count; });
        return packets;
    }

    /// Takes a packet and returns its number.
    int take(const Packet& packet) {
        std::optional<lapi_mqtt::Reason> reason;
        std::unique_lock<std::mutex> lock(mutex);
        packets.push_back(packet);
        for (const auto& [begin, given] : reasons) {
            if (packet.rfind(begin, 0) == 0) reason = given;
        }
        const int n = static_cast<int>(packets.size());
        if (reason) {
            events.emplace_back([n, r = *reason](auto& owner) { owner.on_acknowledged(n, r); });
        }
        changed.notify_all();
        return n;
    }
    /// What there is to tell, once there is something.
    std::vector<Event> wait_for_events(std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait_for(lock, timeout, [this] { return !events.empty(); });
        return std::exchange(events, {});
    }

private:
    void tell(Event event) {
        const std::lock_guard<std::mutex> lock(mutex);
        events.push_back(std::move(event));
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::vector<Packet> packets;
    std::vector<Event> events;  ///< an empty one is the connection's end
    std::vector<std::pair<Packet, std::optional<lapi_mqtt::Reason>>> reasons{
        {"", lapi_mqtt::Reason{}}, {"subscribe", lapi_mqtt::Reason{1, ""}}};
};

class ScriptedConnection : public lapi_mqtt::Connection {
public:
    ScriptedConnection(Broker& peer, lapi_mqtt::ConnectionEvents& events)
        : broker(peer), owner(events) {
        broker.wait_for_events({});  // the connection before it has ended
        broker.take("connect");
    }
    void open(const std::atomic<bool>&) override {
        if (broker.on_open) broker.on_open();
    }
    bool loop(std::chrono::milliseconds timeout) override {
        for (const auto& event : broker.wait_for_events(timeout)) {
            if (!event) return false;
            event(owner);
        }
        return true;
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
    void disconnect() override { end("disconnect"); }
    void abort() override { end("abort"); }
    lapi_mqtt::Traffic traffic() const override { return {0, broker.bytes_received}; }

private:
    void end(const Packet& packet) {
        broker.take(packet);
        broker.cut();
    }

    Broker& broker;
    lapi_mqtt::ConnectionEvents& owner;
};

}  // namespace fake
