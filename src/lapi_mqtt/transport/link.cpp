#include "lapi_mqtt/transport/link.h"

#include <algorithm>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/logging/printable.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;
using Clock = Patience::Clock;

/// An idle connection is looked at so often; a unit cannot tell the age of a request any better.
constexpr milliseconds LOOP_SLICE{50};

constexpr milliseconds FIRST_BACK_OFF{50};
constexpr milliseconds LAST_BACK_OFF{1000};

/// How long DISCONNECT may take to go out.
constexpr milliseconds GOODBYE_PATIENCE{2'000};

/// Packets carry more than their payload, and TLS adds to its records.
constexpr std::uint64_t FRAMING_BYTES = 4096;
constexpr std::uint64_t FRAMING_SHARE = 64;

}  // namespace

Link::Link(std::string broker, ConnectionFactory connection_factory, Owner& link_owner)
    : broker_place(std::move(broker)), factory(std::move(connection_factory)), owner(link_owner) {}

Link::~Link() {
    stop();
}

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

void Link::open() {
    ConnectionEvents& events = *this;
    auto fresh = factory(events);
    fresh->open(stopping);
    const Lock held(mutex);
    connection = std::move(fresh);
    if (losses > 0) owner.on_reconnected(*connection);
    if (leaving) connection->disconnect();
}

void Link::drive_on_a_thread(const Lock& /*lock*/) {
    if (connection && !thread.joinable()) thread = std::thread([this] { run(); });
}

void Link::run() {
    do {
        while (drive(LOOP_SLICE)) {
        }
    } while (reconnect());
    const Lock held(mutex);
    ended = true;
    changed.notify_all();
}

/// False when the connection has ended.
bool Link::drive(milliseconds timeout) {
    const bool connected = connection->loop(timeout);
    if (!connected) lose_connection();
    return connected;
}

ecu::lapi::com::Transfer Link::transfer() const {
    const Lock held(mutex);
    const Movement now = movement();
    const std::uint64_t sent = now.traffic.taken - std::min(sent_from, now.traffic.taken);
    if (sent < sent_size) return {sent, sent_size};
    return {now.traffic.received - std::min(now.foreign_end, now.traffic.received), 0};
}

void Link::lose_connection() {
    const Lock held(mutex);
    why_down = "the connection was lost: " + connection->end_cause();
    connection.reset();
    ++losses;
    foreign_end = sent_from = sent_size = 0;
    acknowledgements.connection_lost();
    owner.on_lost();
    changed.notify_all();
    if (!leaving) logging::write(logging::WARNING, "Broker at ", broker_place, ": ", why_down);
}

bool Link::reconnect() {
    for (auto back_off = FIRST_BACK_OFF;; back_off = std::min(2 * back_off, LAST_BACK_OFF)) {
        {
            Lock held(mutex);
            changed.wait_for(held, back_off, [this] { return stopping || leaving; });
            if (stopping || leaving) return false;
        }
        try {
            open();
            logging::write(logging::NOTICE, "Broker at ", broker_place, ": connected again");
            return true;
        } catch (const std::exception& error) {
            const Lock held(mutex);
            connection.reset();
            acknowledgements.connection_lost();
            why_down = error.what();
        }
    }
}

void Link::disconnect(Lock& lock) {
    leaving = true;
    changed.notify_all();
    if (connection) connection->disconnect();
    const auto deadline = Clock::now() + GOODBYE_PATIENCE;
    while (connection && !thread.joinable() && Clock::now() < deadline) {
        drive_or_wait(lock, deadline);
    }
}

void Link::stop() {
    {
        Lock held(mutex);
        stopping = true;
        changed.notify_all();
        if (!thread.joinable()) return;
        const bool in_time =
            leaving && changed.wait_for(held, GOODBYE_PATIENCE, [this] { return ended; });
        if (!in_time) abort(held);
    }
    thread.join();
}

void Link::expect(const Lock& /*lock*/, int packet_id, Acknowledgements::Handler handler) {
    acknowledgements.expect(packet_id, std::move(handler));
}

std::shared_ptr<const Awaited> Link::expect(const Lock& /*lock*/, int packet_id) {
    return acknowledgements.expect(packet_id);
}

int Link::await_grant(Lock& lock, int packet_id, milliseconds time_out, const Step& step) {
    const auto word = expect(lock, packet_id);
    const auto end = wait(lock, {time_out, time_out}, 0, [&word] { return word->is_here; });
    if (end == WaitEnd::out_of_patience) fail(Kind::failed, step, "the broker does not answer");
    if (end == WaitEnd::connection_lost || !word->outcome) fail(Kind::failed, step, why_down);
    if (word->outcome->is_refusal()) fail(Kind::failed, step, word->outcome->text);
    logging::write(logging::DEBUG, "Granted at QoS ", word->outcome->code, ": ", step.topic);
    return word->outcome->code;
}

void Link::drive_or_wait(Lock& lock, Clock::time_point until) {
    if (thread.joinable()) {
        changed.wait_until(lock, until);
        return;
    }
    lock.unlock();
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now());
    drive(std::max(left, milliseconds::zero()));
    lock.lock();
}

Movement Link::movement() const {
    return {connection ? connection->traffic() : Traffic(), foreign_end};
}

std::uint64_t Link::taken_behind(const Lock& /*lock*/, std::size_t size) {
    sent_from = movement().traffic.taken;
    sent_size = size;
    return sent_from + size + size / FRAMING_SHARE + FRAMING_BYTES;
}

void Link::note_foreign(const Lock& /*lock*/) {
    foreign_end = movement().traffic.received;
}

void Link::abort(const Lock& /*lock*/) {
    if (connection) connection->abort();
}

bool Link::is_up(const Lock& /*lock*/) const {
    return connection != nullptr;
}

bool Link::is_leaving(const Lock& /*lock*/) const {
    return leaving;
}

const std::string& Link::down_cause(const Lock& /*lock*/) const {
    return why_down;
}

void Link::fail(Kind kind, const Step& step, const std::string& cause) const {
    throw TransportError(kind, printable(std::string("Cannot ") + step.verb + " " + step.topic +
                                         " on the broker at " + broker_place + ": " + cause));
}

void Link::on_message(Incoming incoming) {
    owner.on_message(std::move(incoming));
}

void Link::on_acknowledged(int id, const Reason& reason) {
    const Lock held(mutex);
    if (acknowledgements.take(id, reason)) {
        changed.notify_all();
    } else if (reason.is_refusal()) {
        logging::write(logging::ERROR, "The broker at ", broker_place,
                       " refused a packet: ", reason.text);
    }
}

}  // namespace lapi_mqtt
