#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/transport/subscriptions.h"

namespace lapi_mqtt {

/// The transport client over MQTT 5. The delivery thread drives the connection, replaces a lost
/// one, and calls observers and handlers; while there is none yet, whoever waits drives.
class TransportClient final : public ecu::lapi::com::ITransportClient, private MqttEvents {
public:
    using Message = ecu::lapi::com::Message;
    using TransportError = ecu::lapi::com::TransportError;

    explicit TransportClient(Settings checked_settings);
    ~TransportClient() override;
    TransportClient(const TransportClient&) = delete;
    TransportClient& operator=(const TransportClient&) = delete;

    void connect() override;
    void disconnect() override;
    void publish(const std::string& topic, const Message& message) override;
    void subscribe(const std::string& topic, int qos, ObserverHandle observer) override;
    void unsubscribe(const std::string& topic, ObserverHandle observer) override;
    Message request(const std::string& topic, const Message& message) override;
    void serve(const std::string& topic, ecu::lapi::com::RequestHandler handler) override;
    void start() override;
    void stop() override;

private:
    using Lock = std::unique_lock<std::mutex>;
    using Clock = std::chrono::steady_clock;
    using Kind = TransportError::Kind;
    enum class WaitEnd { done, connection_lost, out_of_patience };

    /// What an operation was about to do, for its error text.
    struct Step {
        const char* verb;
        const std::string& topic;
    };

    /// Reasons by number of the connection and packet id: each connection counts its packets anew.
    using Acknowledgements = std::map<std::pair<unsigned, int>, std::optional<int>>;

    /// Keeps the acknowledgement of a packet while this lives. Begun under the lock that the
    /// packet was queued under, it cannot be late.
    class Acknowledgement {
    public:
        Acknowledgement(TransportClient& owner, int packet_id);
        ~Acknowledgement();
        Acknowledgement(const Acknowledgement&) = delete;
        Acknowledgement& operator=(const Acknowledgement&) = delete;
        bool is_here() const { return entry->second.has_value(); }
        int reason() const { return entry->second.value_or(0); }
        bool is_of_this_connection() const { return entry->first.first == client.connection_count; }

    private:
        TransportClient& client;
        Acknowledgements::iterator entry;
    };

    /// A message of which the broker is still to show that it has taken it.
    struct Publication {
        Publication(TransportClient& owner, int packet_id, std::string publication_topic);
        Acknowledgement proof;
        std::string topic;
    };

    [[noreturn]] void fail(Kind kind, const Step& step, const std::string& cause) const;
    template <typename Queue>
    int queue_packet(const Step& step, Queue queue);
    void need_delivery();
    void drive_or_wait(Lock& lock, Clock::time_point until);
    template <typename Done>
    WaitEnd wait_for(Lock& lock, std::chrono::milliseconds patience, Done done);
    void await_grant(Lock& lock, int id, const Step& step);
    void await_taken(Lock& lock, const Publication& publication);
    Message await_reply(Lock& lock, int id, std::optional<Incoming>& reply, const Step& step);
    bool on_delivery_thread() const { return std::this_thread::get_id() == delivery_id; }

    // Of the thread that drives the connection, in transport_delivery.cpp.
    void open_connection();
    void drive(Lock& lock, Clock::time_point until);
    bool drive_once(std::chrono::milliseconds timeout);
    void lose_connection();
    bool reconnect();
    void subscribe_again();
    void deliver_until_the_end();
    void deliver_inbox();
    void deliver(Incoming& incoming);
    void take_reply(Incoming& incoming);
    void answer(const ecu::lapi::com::RequestHandler& handler, const Incoming& request);
    void send_reply(const Incoming& request, const Message& reply,
                    const std::optional<std::string>& error);
    void on_message(Incoming incoming) override;
    void on_acknowledged(int id, int reason) override;

    // Constant after construction.
    const Settings settings;
    const std::string client_id;
    const std::string place;
    const std::string reply_topic;

    // Guarded by `mutex`; `connection` is replaced only by the thread that drives it.
    std::mutex mutex;
    std::condition_variable changed;
    std::unique_ptr<MqttConnection> connection;  ///< null while there is none
    std::string down_cause = "not connected";    ///< why there is none
    unsigned connection_count = 0;               ///< tells a waiter that its connection went
    Acknowledgements acknowledgements;           ///< of the packets that somebody waits for
    std::map<std::string, std::optional<Incoming>> calls;            ///< reply by correlation data
    std::map<std::string, ecu::lapi::com::RequestHandler> services;  ///< by topic
    std::optional<Publication> unproven;  ///< the first that was lost, else the last
    Subscriptions subscriptions;
    bool started = false;
    bool replies_subscribed = false;
    std::uint64_t foreign_bytes_end = 0;  ///< bytes moved when the last foreign reply was whole
    bool leaving = false;                 ///< DISCONNECT is on its way
    bool finished = false;                ///< the delivery thread is about to end

    std::atomic<bool> stopping{false};
    std::atomic<std::thread::id> delivery_id{};

    // Of the thread that drives the connection.
    std::vector<Incoming> inbox;

    std::thread delivery;
};

}  // namespace lapi_mqtt
