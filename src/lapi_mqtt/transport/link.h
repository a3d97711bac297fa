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
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/transport/acknowledgements.h"
#include "lapi_mqtt/transport/patience.h"
#include "lapi_mqtt/transport_error.h"

namespace lapi_mqtt {

/// What an operation was about to do, for its error text.
struct Step {
    const char* verb;
    std::string topic;
};

/// How long something has taken, in whole milliseconds.
inline std::int64_t milliseconds_since(Patience::Clock::time_point began) {
    using std::chrono::milliseconds;
    return std::chrono::duration_cast<milliseconds>(Patience::Clock::now() - began).count();
}

/// Keeps a connection to the broker up and owns it, its lock and the thread that drives it. While
/// there is no such thread whoever waits drives, which spares a short run the thread and its
/// hand-overs.
class Link final : private ConnectionEvents {
public:
    using Lock = std::unique_lock<std::mutex>;
    using Kind = TransportError::Kind;
    enum class WaitEnd { done, connection_lost, out_of_patience };

    /// Told on the thread that drives.
    class Owner {
    public:
        virtual ~Owner() = default;

        /// With no lock held.
        virtual void on_message(Incoming incoming) = 0;

        /// With the lock held: the connection is there again, what it is to carry is queued here.
        /// May throw MqttError.
        virtual void on_reconnected(Connection& connection) = 0;

        /// With the lock held.
        virtual void on_lost() = 0;
    };

    /// `broker` names the broker in texts. Borrows its owner.
    Link(std::string broker, ConnectionFactory connection_factory, Owner& link_owner);
    ~Link() override;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// Returns when the connection is accepted or has failed, which is logged at ERROR.
    void connect();

    /// A thread drives the connection from here on, and replaces it when it is lost. Without effect
    /// unless there is a connection.
    void drive_on_a_thread(const Lock& lock);

    /// Says goodbye behind what is queued. Waits for it, bounded, unless a thread drives.
    void disconnect(Lock& lock);

    /// Ends the thread, bounded.
    void stop();

    Lock lock() { return Lock(mutex); }
    /// As ITransferProgress tells it.
    ecu::lapi::com::Transfer transfer() const;

    const std::string& place() const { return broker_place; }

    // With the lock held, which is the first argument.

    /// Queues a packet by `action(connection)` and returns its id. Throws TransportError.
    template <typename Action>
    int queue(const Lock& lock, const Step& step, Action action);
    void expect(const Lock& lock, int packet_id, Acknowledgements::Handler handler);
    std::shared_ptr<const Awaited> expect(const Lock& lock, int packet_id);

    /// Waits until `done()`, with patience for what goes out up to `taken_end` and what comes in.
    template <typename Done>
    WaitEnd wait(Lock& lock, Patience::Limits limits, std::uint64_t taken_end, Done done);

    /// Waits for the broker's word on a SUBSCRIBE and returns the QoS that it grants. Throws
    /// TransportError for a refusal and in `time_out` at the latest.
    int await_grant(Lock& lock, int packet_id, std::chrono::milliseconds time_out,
                    const Step& step);

    /// A packet of `size` bytes is queued now: what `traffic().taken` will be at the most when it
    /// has gone out.
    std::uint64_t taken_behind(const Lock& lock, std::size_t size);

    /// What came in until now was for nobody who waits.
    void note_foreign(const Lock& lock);
    void notify() { changed.notify_all(); }
    void abort(const Lock& lock);
    bool is_up(const Lock& lock) const;
    bool is_leaving(const Lock& lock) const;
    const std::string& down_cause(const Lock& lock) const;

    [[noreturn]] void fail(Kind kind, const Step& step, const std::string& cause) const;

private:
    void open();
    void run();
    bool reconnect();
    bool drive(std::chrono::milliseconds timeout);
    void lose_connection();
    void drive_or_wait(Lock& lock, Patience::Clock::time_point until);
    Movement movement() const;
    void on_message(Incoming incoming) override;
    void on_acknowledged(int id, const Reason& reason) override;

    const std::string broker_place;
    const ConnectionFactory factory;
    Owner& owner;

    // Guarded by mutex. `connection` is replaced only by the thread that drives, which may look at
    // it without the lock.
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::unique_ptr<Connection> connection;  ///< null while there is none
    std::string why_down = "not connected";  ///< while there is none
    unsigned losses = 0;                     ///< tells a waiter that its connection went
    Acknowledgements acknowledgements;
    std::uint64_t foreign_end = 0;
    std::uint64_t sent_from = 0;  ///< `traffic().taken` when the last packet was queued
    std::uint64_t sent_size = 0;  ///< of that packet
    bool leaving = false;         ///< DISCONNECT is on its way
    bool ended = false;           ///< the thread is about to

    std::atomic<bool> stopping{false};
    std::thread thread;  // of the thread that starts and stops
};

template <typename Action>
int Link::queue(const Lock& /*lock*/, const Step& step, Action action) {
    if (!connection) fail(Kind::not_connected, step, why_down);
    try {
        return action(*connection);
    } catch (const MqttError& error) {
        fail(Kind::failed, step, error.what());
    }
}

template <typename Done>
Link::WaitEnd Link::wait(Lock& lock, Patience::Limits limits, std::uint64_t taken_end, Done done) {
    Patience patience(limits, Patience::Clock::now(), movement(), taken_end);
    const unsigned before = losses;
    while (!done()) {
        if (!connection || losses != before) return WaitEnd::connection_lost;
        const auto now = Patience::Clock::now();
        patience.look(now, movement());
        if (now >= patience.end()) return WaitEnd::out_of_patience;
        drive_or_wait(lock, std::min(patience.end(), now + limits.rest / 4));
    }
    return WaitEnd::done;
}

}  // namespace lapi_mqtt
