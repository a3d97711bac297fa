#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/properties.h"
#include "lapi_mqtt/network/tcp_socket.h"

namespace lapi_mqtt {

/// A message as it came in.
struct Incoming {
    std::string topic;
    ecu::lapi::com::Message message;
    PublishProperties properties;
    std::chrono::steady_clock::time_point sent_after;  ///< the broker sent it no earlier
};

/// What a connection reports to its owner, inside `loop` and under libmosquitto's callback lock.
/// While a call blocks nothing more is read, so that the broker buffers what comes.
class ConnectionEvents {
public:
    virtual ~ConnectionEvents() = default;
    virtual void on_message(Incoming incoming) = 0;

    /// PUBACK, PUBCOMP, SUBACK (its code is the QoS granted) or UNSUBACK of the packet `id`; also
    /// called for a QoS 0 PUBLISH when it has been written.
    virtual void on_acknowledged(int id, const Reason& reason) = 0;
};

/// Whether the broker sends the retained messages of a new subscription.
enum class RetainHandling { send, do_not_send };

/// One MQTT 5 connection, from CONNECT to its end; a lost one is replaced by a new object, so that
/// nothing of it is ever sent again. `open` and `loop` belong to one thread; packets may be queued
/// by any, and go out in `loop`. Operations throw MqttError.
class Connection {
public:
    virtual ~Connection() = default;

    /// Returns when the broker has accepted the connection; name look-up, TCP, TLS and CONNACK
    /// together. Throws at the configured timeout, and soon after `cancelled` turns true.
    virtual void open(const std::atomic<bool>& cancelled) = 0;

    /// Reads and writes for at most about `timeout`. False when the connection has ended.
    virtual bool loop(std::chrono::milliseconds timeout) = 0;

    /// Why `loop` returned false.
    virtual std::string end_cause() const = 0;

    /// Each queues a packet and returns its id.
    virtual int publish(const std::string& topic, const ecu::lapi::com::Message& message, int qos,
                        const PublishProperties& properties) = 0;
    virtual int subscribe(const std::string& filter, int qos, RetainHandling retained) = 0;
    virtual int unsubscribe(const std::string& filter) = 0;

    /// Queues DISCONNECT, on which the broker publishes the last will, if there is one. `loop`
    /// returns false once it and all before it are written.
    virtual void disconnect() = 0;

    /// Cuts the connection; `loop` returns false at once.
    virtual void abort() = 0;

    virtual Traffic traffic() const = 0;
};

using ConnectionFactory = std::function<std::unique_ptr<Connection>(ConnectionEvents& events)>;

}  // namespace lapi_mqtt
