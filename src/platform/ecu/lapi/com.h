#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ecu/lapi/config.h"

/// Transport client: the connection to the unit's publish/subscribe broker.
namespace ecu::lapi::com {

/// The unit of data that is published and received.
struct Message {
    Message() = default;
    explicit Message(std::vector<std::uint8_t> bytes) : payload(std::move(bytes)) {}
    Message(const Message&) = default;
    Message(Message&&) = default;
    Message& operator=(const Message&) = default;
    Message& operator=(Message&&) = default;
    virtual ~Message() = default;

    /// The QoS that the byte stands for, and the other way round.
    int get_qos() const { return qos == '1' || qos == '2' ? qos - '0' : 0; }
    void set_qos(int level) { qos = static_cast<std::uint8_t>('0' + level); }

    /// Time of reception in milliseconds since the Unix epoch; 0 in a message built for publishing.
    std::uint64_t get_timestamp() const { return timestamp; }

    std::uint8_t qos = 0;  ///< '0', '1' or '2' on delivery; a zero byte publishes at QoS 0
    std::uint64_t timestamp = 0;
    std::uint8_t retain = 0;  ///< 1 when it was published with RETAIN set
    std::vector<std::uint8_t> payload;
    std::uint8_t duplicate = 0;  ///< 1 when it is known to be delivered again
};

/// Receives the messages of a subscription.
class ISubscriptionObserver {
public:
    virtual ~ISubscriptionObserver() = default;

    /// Called on the library's dispatch thread, with no lock of the library held.
    virtual void message(const std::string& topic, const Message& msg) = 0;
};

/// Added to the QoS of a subscription by who only watches: retained messages come, too, and nothing
/// is announced, so that no unit sends anything because of it.
inline constexpr int WATCH_ONLY = 4;

/// A client of the broker. Goes through `connect`, `start`, use, `disconnect`, `stop`, in this
/// order, called by one thread at a time; observers may `publish`. Operations throw
/// std::exceptions.
class ITransportClient {
public:
    virtual ~ITransportClient() = default;

    /// Returns when the connection is accepted, or has failed; a failure is logged at ERROR and
    /// thrown by the first operation that needs the broker.
    virtual void connect() = 0;

    /// Returns when the broker has acknowledged everything that was published and the connection is
    /// closed. Throws when a message was lost or the connection stalls; `stop` still follows.
    virtual void disconnect() = 0;

    /// Queues the message, to go out while the caller goes on; `disconnect` tells whether the
    /// broker acknowledged it, and a WARNING when it had no matching subscribers. Throws without a
    /// connection or for a message that is too large.
    virtual void publish(const std::string& topic, const Message& message) = 0;

    /// Returns when the broker has granted the subscription to the topic filter; the library keeps
    /// `observer` until `unsubscribe`, and calls it once for each PUBLISH that arrives, however
    /// many of its filters match. `qos` is 0, 1 or 2, or one of them plus WATCH_ONLY. Throws when
    /// the broker refuses.
    virtual void subscribe(const std::string& topic, int qos,
                           std::shared_ptr<ISubscriptionObserver> observer) = 0;

    /// Ends the subscription of this observer; a call that has begun may still reach it. Without a
    /// connection only the library's own record of it is dropped.
    virtual void unsubscribe(const std::string& topic,
                             std::shared_ptr<ISubscriptionObserver> observer) = 0;

    /// Lets observers be called, on a thread of the library's own.
    virtual void start() = 0;

    /// Ends that thread; no observer is called after it returns.
    virtual void stop() = 0;
};

enum class TransportType { mqtt = 0 };

/// Builds a client and takes `config` over, leaving it empty. Logs each error of a value, then
/// throws.
std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType type);

}  // namespace ecu::lapi::com
