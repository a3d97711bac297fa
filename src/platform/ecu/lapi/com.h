#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
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
    std::uint8_t retain = 0;  ///< 1 when the broker had kept the message
    std::vector<std::uint8_t> payload;
    std::uint8_t duplicate = 0;  ///< 1 when it is known to be delivered again
};

/// Receives the messages of a subscription.
class ISubscriptionObserver {
public:
    virtual ~ISubscriptionObserver() = default;

    /// Called on the library's delivery thread, with no lock of the library held.
    virtual void message(const std::string& topic, const Message& msg) = 0;
};

/// Answers one request: returns the reply, or throws a std::exception whose text then reaches the
/// requester instead. Called on the delivery thread.
using RequestHandler = std::function<Message(const Message& request)>;

/// Tells what became of a message: true once the broker has it, false when that will never be
/// known. Called once, on the delivery thread.
using TakenHandler = std::function<void(bool taken)>;

/// Told how far a transfer is: bytes moved, and of how many; 0 where that is not known.
using TransferHook = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// What a client lets the broker keep about itself on a topic.
struct Presence {
    std::string topic;
    std::string present;  ///< from `show_presence` on
    std::string absent;   ///< once the client is gone, however it went
};

/// Added to the QoS of a subscription: the messages that the broker has kept are wanted too.
inline constexpr int WITH_KEPT = 4;

/// A broker operation that failed. The text names the step, the broker's host and port, and the
/// cause.
class TransportError : public std::runtime_error {
public:
    enum class Kind {
        failed,       ///< the operation had no effect
        no_listener,  ///< the broker knows nobody who serves the request's topic
        unanswered,   ///< sent, but whether it took effect is not known
        refused,      ///< the service answered with an error text
    };

    TransportError(Kind kind_of_error, const std::string& text)
        : std::runtime_error(text), error_kind(kind_of_error) {}
    Kind kind() const { return error_kind; }

private:
    Kind error_kind;
};

/// A client of the broker. Goes through `connect`, `start`, use, `disconnect`, `stop`, in this
/// order, called by one thread at a time; observers and handlers may `publish`.
class ITransportClient {
public:
    virtual ~ITransportClient() = default;

    /// Returns when the connection is accepted, or has failed; a failure is logged at ERROR and
    /// thrown by the first operation that needs the broker.
    virtual void connect() = 0;

    /// Returns when the broker has taken everything that was published, and says goodbye. Throws
    /// TransportError when a message was lost or the connection stalls; `stop` still follows.
    virtual void disconnect() = 0;

    /// Queues the message, to go out while the caller goes on; whether the broker has taken it is
    /// `disconnect`'s to tell, and a WARNING tells when it reached nobody. Throws TransportError
    /// without a connection or for a message that is too large.
    virtual void publish(const std::string& topic, const Message& message) = 0;

    /// Queues the message, at QoS 1 at least, and has `taken` told. Throws TransportError as above,
    /// and then tells nothing.
    virtual void publish(const std::string& topic, const Message& message, TakenHandler taken) = 0;

    /// Returns when the broker has granted the subscription to the topic filter; the library keeps
    /// `observer` until `unsubscribe`. An observer gets a message once, however many of its filters
    /// match. `qos` is 0, 1 or 2, or one of them plus WITH_KEPT. Throws TransportError.
    virtual void subscribe(const std::string& topic, int qos,
                           std::shared_ptr<ISubscriptionObserver> observer) = 0;

    /// Ends the subscription of this observer; a delivery that has begun may still reach it.
    /// Without a connection only the library's own record of it is dropped.
    virtual void unsubscribe(const std::string& topic,
                             std::shared_ptr<ISubscriptionObserver> observer) = 0;

    /// Sends a request and returns its reply. Throws TransportError. Not from the delivery thread.
    virtual Message request(const std::string& topic, const Message& message) = 0;

    /// Answers the requests on a topic until `disconnect`. Throws TransportError.
    virtual void serve(const std::string& topic, RequestHandler handler) = 0;

    /// Prepares a presence, before `connect`; nothing is shown yet.
    virtual void set_presence(Presence presence) = 0;

    /// Shows the presence until `disconnect`, again after each reconnection. Throws TransportError.
    virtual void show_presence() = 0;

    /// Has `hook` told now and then while bytes move, by whichever thread drives the connection,
    /// with no lock held. Call it before `connect`.
    virtual void report_transfers(TransferHook hook) = 0;

    /// Lets delivery begin, on a thread of the library's own.
    virtual void start() = 0;

    /// Ends the delivery thread; no observer or handler is called after it returns.
    virtual void stop() = 0;
};

enum class TransportType { mqtt = 0 };

/// Builds a client and takes `config` over, leaving it empty. Logs each complaint about a value at
/// ERROR, then throws TransportError.
std::shared_ptr<ITransportClient> create_client(std::unique_ptr<config::Configuration>& config,
                                                TransportType type);

}  // namespace ecu::lapi::com
