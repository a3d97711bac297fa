#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "ecu/lapi/progress.h"
#include "lapi_mqtt/link/acknowledgements.h"
#include "lapi_mqtt/link/deadline.h"
#include "lapi_mqtt/link/reconnect_delay.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/transport_error.h"

namespace lapi_mqtt {

/// How long something has taken, in whole milliseconds.
inline std::int64_t milliseconds_since(Deadline::Clock::time_point began) {
    using std::chrono::milliseconds;
    return std::chrono::duration_cast<milliseconds>(Deadline::Clock::now() - began).count();
}

/// Keeps a connection to the broker up and owns it, its lock and the thread that runs its loop.
/// While there is no such thread whoever waits runs the loop, which spares a short run the thread
/// and its hand-overs.
class Link final : private ConnectionEvents {
public:
    using Lock = std::unique_lock<std::mutex>;
    using Kind = TransportError::Kind;
    enum class WaitEnd { done, connection_lost, idle_timeout, total_timeout };

    /// Called on the thread that runs the loop.
    class Owner {
    public:
        virtual ~Owner() = default;

        /// With no lock held.
        virtual void on_message(Incoming incoming) = 0;

        /// With the lock held: connected again, what the connection is to carry is queued here. May
        /// throw TransportError.
        virtual void on_reconnected() = 0;
    };

    /// `broker` names the broker in texts. Borrows its owner.
    Link(std::string broker, ConnectionFactory connection_factory, Owner& link_owner);
    ~Link() override { stop(); }

    /// Returns when the connection is accepted or has failed, which is logged at ERROR.
    void connect();

    /// Ends the thread, bounded: sends what is left of a `disconnect`, else cuts the connection.
    void stop();

    Lock lock() const { return Lock(mutex); }
    const std::string& place() const { return broker_place; }
    ecu::lapi::com::Transfer transfer() const;

    // The rest is called with the lock held.

    /// A thread runs the loop from here on, and replaces the connection when it is lost. Without
    /// effect unless there is a connection.
    void run_on_a_thread();

    /// Queues DISCONNECT behind what is queued. Waits until it is sent, bounded, unless a thread
    /// runs the loop.
    void disconnect(Lock& lock);

    // Each queues a packet on `step.topic`. `handler` is told its acknowledgement; without one a
    // refusal is logged. They throw TransportError.
    void publish(const Step& step, const ecu::lapi::com::Message& message, int qos,
                 const PublishProperties& properties = {}, Acknowledgements::Handler handler = {});
    void subscribe(const Step& step, int qos, RetainHandling retained,
                   Acknowledgements::Handler handler = {});
    void unsubscribe(const Step& step);

    /// Subscribes, waits for SUBACK and returns the QoS that it grants. Throws TransportError, also
    /// for a refusal, and after `timeout` at the latest.
    int subscribe_and_wait(Lock& lock, const Step& step, int qos, RetainHandling retained,
                           std::chrono::milliseconds timeout);

    /// Waits until `done()` or for as long as `timeouts` and what moves let it: what goes out up to
    /// `send_end`, and what comes in. Releases the lock while it waits.
    template <typename Done>
    WaitEnd wait(Lock& lock, Deadline::Timeouts timeouts, std::uint64_t send_end, Done done);

    /// Begins the transfer of a packet of `size` bytes that is queued next, and returns what
    /// `bytes_acked` will be at the most when it has gone out.
    std::uint64_t begin_transfer(std::size_t size);

    /// What came in until now is unrelated to whoever waits.
    void note_unrelated() { unrelated_end = movement().traffic.bytes_received; }

    void notify() { changed.notify_all(); }
    void abort();

    /// Throws TransportError unless there is a connection that will not be disconnected.
    void require_connection(const Step& step) const;

    bool is_all_acknowledged() const { return acknowledgements.is_empty(); }
    bool is_up() const { return connection != nullptr; }
    bool is_leaving() const { return leaving; }
    const std::string& down_cause() const { return why_down; }

    /// Which connection it is, counted.
    unsigned generation() const { return losses; }

    TransportError error(Kind kind, const Step& step, const std::string& cause) const;
    [[noreturn]] void fail(Kind kind, const Step& step, const std::string& cause) const {
        throw error(kind, step, cause);
    }

private:
    template <typename Action>
    void queue(const Step& step, std::size_t size, Action action,
               Acknowledgements::Handler handler);
    void open();
    void run();
    bool reconnect();
    bool poll(std::chrono::milliseconds timeout);
    void abort_when_overdue();
    void end_connection(const std::string& cause);
    void run_or_wait(Lock& lock, Deadline::Clock::time_point until);
    Movement movement() const;
    void on_message(Incoming incoming) override { owner.on_message(std::move(incoming)); }
    void on_acknowledged(int id, const Reason& reason) override;

    const std::string broker_place;
    const ConnectionFactory factory;
    Owner& owner;

    // Guarded by mutex. `connection` is replaced only by the thread that runs the loop, which may
    // look at it without the lock.
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::unique_ptr<Connection> connection;  ///< null while there is none
    std::string why_down = "not connected";  ///< while there is none
    unsigned losses = 0;                     ///< tells a waiter that its connection ended
    Acknowledgements acknowledgements;
    std::uint64_t unrelated_end = 0;
    std::uint64_t transfer_begin = 0;  ///< `bytes_acked` when the last transfer began
    std::uint64_t transfer_size = 0;
    bool leaving = false;  ///< DISCONNECT is queued, or will be on the next connection
    bool ended = false;    ///< the thread is about to

    ReconnectDelay reconnect_delay;  // of the thread that runs the loop
    std::atomic<bool> stopping{false};
    std::thread thread;  // of the thread that starts and stops
};

template <typename Done>
Link::WaitEnd Link::wait(Lock& lock, Deadline::Timeouts timeouts, std::uint64_t send_end,
                         Done done) {
    Deadline deadline(timeouts, Deadline::Clock::now(), movement(), send_end);
    const unsigned before = losses;
    while (!done()) {
        if (!connection || losses != before) return WaitEnd::connection_lost;
        const auto now = Deadline::Clock::now();
        deadline.update(now, movement());
        if (now >= deadline.time()) {
            return deadline.is_total() ? WaitEnd::total_timeout : WaitEnd::idle_timeout;
        }
        run_or_wait(lock, std::min(deadline.time(), now + timeouts.idle / 4));
    }
    return WaitEnd::done;
}

}  // namespace lapi_mqtt
