#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/config/settings.h"
#include "lapi_mqtt/mqtt/properties.h"

struct mosquitto;
struct mosquitto_message;

namespace lapi_mqtt {

/// A message as it came in.
struct Incoming {
    std::string topic;
    ecu::lapi::com::Message message;
    PublishProperties properties;
    std::chrono::steady_clock::time_point sent_after;  ///< the broker sent it no earlier
};

/// What a connection tells its owner. Called inside `loop`, under libmosquitto's callback lock:
/// take note and return.
class MqttEvents {
public:
    virtual ~MqttEvents() = default;
    virtual void on_message(Incoming incoming) = 0;

    /// SUBACK, UNSUBACK or PUBACK of the packet `id`. A `reason` from 0x80 on is a refusal.
    virtual void on_acknowledged(int id, int reason) = 0;
};

/// One MQTT 5 connection, from CONNECT to its end; a lost one is replaced by a new object, so that
/// nothing of it is ever sent again. `open` and `loop` belong to one thread; the packets may be
/// queued by any, and go out in `loop`. Operations throw MqttError.
class MqttConnection {
public:
    MqttConnection(const Settings& connection_settings, const std::string& client_id,
                   MqttEvents& owner);
    ~MqttConnection();
    MqttConnection(const MqttConnection&) = delete;
    MqttConnection& operator=(const MqttConnection&) = delete;

    /// Returns when the broker has accepted the connection; name look-up, TCP, TLS and CONNACK
    /// together. Throws at the configured time-out, and soon after `abandoned` turns true.
    void open(const std::atomic<bool>& abandoned);

    /// Reads and writes for at most about `timeout`. False when the connection has ended.
    bool loop(std::chrono::milliseconds timeout);

    /// Why `loop` returned false.
    std::string end_cause() const;

    /// Each queues a packet and returns its id.
    int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                const PublishProperties& properties);
    int subscribe(const std::string& filter, int qos);
    int subscribe(const std::string& filter, int qos, std::uint32_t identifier);
    int unsubscribe(const std::string& filter);

    /// Queues DISCONNECT; `loop` returns false once it and all before it are written.
    void disconnect();

    /// Cuts the connection; `loop` returns false at once.
    void abort();

    /// Grows while the peer takes or sends bytes.
    std::uint64_t bytes_moved() const;

private:
    void set_credentials(const Settings& settings);
    void set_tls(const Settings& settings);
    void set_callbacks();
    std::string closed_early() const;
    int socket() const;

    static MqttConnection& self(void* object) { return *static_cast<MqttConnection*>(object); }
    template <typename Action>
    void guarded(Action action) noexcept;
    void received(const mosquitto_message* message, const mqtt5__property* properties);
    std::chrono::steady_clock::time_point earliest_sending(int qos);
    void note_log(int level, const char* text);

    struct HandleDeleter {
        void operator()(mosquitto* client) const;
    };

    const Settings& settings;
    MqttEvents& events;
    std::unique_ptr<mosquitto, HandleDeleter> handle;

    // Of the thread that calls open and loop.
    std::chrono::steady_clock::time_point drained = std::chrono::steady_clock::now();
    std::deque<std::chrono::steady_clock::time_point>
        last_read;  ///< of messages that are flow-controlled
    bool accepted = false;
    bool takes_identifiers = true;  ///< the broker knows subscription identifiers
    std::string refusal;            ///< the broker's own reason for an end
    std::string tls_cause;          ///< libmosquitto tells it to its log only
    int last_result = 0;
    int last_errno = 0;
};

}  // namespace lapi_mqtt
