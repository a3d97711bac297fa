#include "lapi_mqtt/link/link.h"

#include <algorithm>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/logging/printable.h"

namespace lapi_mqtt {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Clock = Deadline::Clock;

/// Poll interval of an idle connection; also the resolution of request ages.
constexpr milliseconds POLL_INTERVAL{50};

constexpr milliseconds OVERDUE_CHECK_INTERVAL{1'000};

/// How long DISCONNECT may take to go out.
constexpr milliseconds DISCONNECT_TIMEOUT{2'000};

/// Packets carry more than their payload, and TLS adds to its records.
constexpr std::uint64_t FRAMING_BYTES = 4096;
constexpr std::uint64_t FRAMING_SHARE = 64;

Link::Link(std::string broker, ConnectionFactory connection_factory, Owner& link_owner)
    : broker_place(std::move(broker)), factory(std::move(connection_factory)), owner(link_owner) {}

void Link::connect() {
    try {
        open();
    } catch (const std::exception& error) {
        const Lock held(mutex);
        why_down = error.what();
        logging::write(logging::ERROR, "Cannot connect to the broker at ", broker_place, ": ",
                       why_down);
    }
}

/// Whoever is leaving by now sends nothing but DISCONNECT, whoever is stopping not even that.
void Link::open() {
    ConnectionEvents& events = *this;
    auto fresh = factory(events);
    fresh->open(stopping);
    const Lock held(mutex);
    if (stopping) throw MqttError("cancelled");
    connection = std::move(fresh);
    why_down.clear();
    reconnect_delay.connected(Clock::now());
    if (leaving) {
        connection->disconnect();
    } else if (losses > 0) {
        owner.on_reconnected();
    }
}

void Link::run_on_a_thread() {
    if (connection && !thread.joinable()) thread = std::thread([this] { run(); });
}

void Link::run() {
    do {
        auto next_check = Clock::now() + OVERDUE_CHECK_INTERVAL;
        while (poll(POLL_INTERVAL)) {
            if (Clock::now() < next_check) continue;
            abort_when_overdue();
            next_check = Clock::now() + OVERDUE_CHECK_INTERVAL;
        }
    } while (reconnect());
    const Lock held(mutex);
    ended = true;
    changed.notify_all();
}

/// False when the connection has ended.
bool Link::poll(milliseconds timeout) {
    const bool connected = connection->loop(timeout);
    if (!connected) end_connection("the connection was lost: " + connection->end_cause());
    return connected;
}

void Link::abort_when_overdue() {
    const Lock held(mutex);
    const auto step = acknowledgements.overdue(Clock::now());
    if (!step || leaving) return;
    logging::write(logging::WARNING, "The broker at ", broker_place,
                   " does not acknowledge: ", step->verb, " ", step->topic);
    connection->abort();
}

void Link::end_connection(const std::string& cause) {
    const Lock held(mutex);
    const bool is_news = cause != why_down;
    why_down = cause;
    if (connection) reconnect_delay.lost(Clock::now());
    connection.reset();
    ++losses;
    unrelated_end = transfer_begin = transfer_size = 0;
    acknowledgements.connection_lost();
    changed.notify_all();
    if (is_news && !leaving && !stopping) {
        logging::write(logging::WARNING, "Broker at ", broker_place, ": ", why_down);
    }
}

bool Link::reconnect() {
    for (;;) {
        const auto delay = reconnect_delay.next();
        {
            Lock held(mutex);
            changed.wait_for(held, delay, [this] { return stopping || leaving; });
            if (stopping || leaving) return false;
        }
        try {
            open();
            logging::write(logging::NOTICE, "Broker at ", broker_place, ": connected again");
            return true;
        } catch (const std::exception& error) {
            end_connection(std::string("cannot connect again: ") + error.what());
        }
    }
}

void Link::disconnect(Lock& lock) {
    leaving = true;
    changed.notify_all();
    if (connection) connection->disconnect();
    const auto deadline = Clock::now() + DISCONNECT_TIMEOUT;
    while (connection && !thread.joinable() && Clock::now() < deadline) {
        run_or_wait(lock, deadline);
    }
}

void Link::stop() {
    {
        Lock held(mutex);
        stopping = true;
        changed.notify_all();
        if (!thread.joinable()) return;
        const bool in_time =
            leaving && changed.wait_for(held, DISCONNECT_TIMEOUT, [this] { return ended; });
        if (!in_time) abort();
    }
    thread.join();
}

/// `action(connection)` queues a packet with `size` bytes of payload and returns its id.
template <typename Action>
void Link::queue(const Step& step, std::size_t size, Action action,
                 Acknowledgements::Handler handler) {
    require_connection(step);
    if (acknowledgements.is_full()) fail(Kind::failed, step, "too much is unacknowledged");
    try {
        const int id = action(*connection);
        acknowledgements.expect(id, step, size, Clock::now(), std::move(handler));
    } catch (const MqttError& error) {
        fail(Kind::failed, step, error.what());
    }
}

void Link::publish(const Step& step, const ecu::lapi::com::Message& message, int qos,
                   const PublishProperties& properties, Acknowledgements::Handler handler) {
    const auto send = [&](Connection& on) {
        return on.publish(step.topic, message, qos, properties);
    };
    queue(step, message.payload.size(), send, std::move(handler));
}

void Link::subscribe(const Step& step, int qos, RetainHandling retained,
                     Acknowledgements::Handler handler) {
    const auto send = [&](Connection& on) { return on.subscribe(step.topic, qos, retained); };
    queue(step, 0, send, std::move(handler));
}

void Link::unsubscribe(const Step& step) {
    queue(step, 0, [&](Connection& on) { return on.unsubscribe(step.topic); }, {});
}

int Link::subscribe_and_wait(Lock& lock, const Step& step, int qos, RetainHandling retained,
                             milliseconds timeout) {
    const auto ack = std::make_shared<std::optional<Outcome>>();
    subscribe(step, qos, retained, [ack](const Outcome& outcome) { ack->emplace(outcome); });
    wait(lock, {timeout, timeout}, 0, [&ack] { return ack->has_value(); });
    if (!ack->has_value()) fail(Kind::failed, step, "the broker does not answer");
    const Outcome& outcome = ack->value();
    if (!outcome || outcome->is_refusal()) {
        fail(Kind::failed, step, outcome ? outcome->text : why_down);
    }
    logging::write(logging::DEBUG, "Granted at QoS ", outcome->code, ": ", step.topic);
    return outcome->code;
}

void Link::run_or_wait(Lock& lock, Clock::time_point until) {
    if (thread.joinable()) {
        changed.wait_until(lock, until);
        return;
    }
    struct Released {
        explicit Released(Lock& held) : lock(held) { lock.unlock(); }
        ~Released() { lock.lock(); }
        Lock& lock;
    };
    const Released released(lock);
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    poll(std::max(left, milliseconds::zero()));
}

Movement Link::movement() const {
    return {connection ? connection->traffic() : Traffic(), unrelated_end};
}

ecu::lapi::com::Transfer Link::transfer() const {
    const Lock held(mutex);
    const Movement now = movement();
    const std::uint64_t acked = now.traffic.bytes_acked;
    const std::uint64_t sent = acked - std::min(transfer_begin, acked);
    if (sent < transfer_size) return {sent, transfer_size};
    const std::uint64_t received = now.traffic.bytes_received;
    return {received - std::min(unrelated_end, received), 0};
}

std::uint64_t Link::begin_transfer(std::size_t size) {
    transfer_begin = movement().traffic.bytes_acked;
    transfer_size = size;
    return transfer_begin + size + size / FRAMING_SHARE + FRAMING_BYTES;
}

void Link::abort() {
    if (connection) connection->abort();
}

void Link::require_connection(const Step& step) const {
    if (leaving) fail(Kind::not_connected, step, "disconnected");
    if (!connection) fail(Kind::not_connected, step, why_down);
}

TransportError Link::error(Kind kind, const Step& step, const std::string& cause) const {
    return {kind, printable(std::string("Cannot ") + step.verb + " " + step.topic +
                            " on the broker at " + broker_place + ": " + cause)};
}

void Link::on_acknowledged(int id, const Reason& reason) {
    const Lock held(mutex);
    const auto refused = acknowledgements.acknowledge(id, reason);
    changed.notify_all();
    if (!refused) return;
    logging::write(logging::ERROR, "The broker at ", broker_place, " refused to ", refused->verb,
                   " ", refused->topic, ": ", reason.text);
}

}  // namespace lapi_mqtt
