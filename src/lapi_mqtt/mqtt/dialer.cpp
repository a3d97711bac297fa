#include "lapi_mqtt/mqtt/dialer.h"

#include <poll.h>

#include <cerrno>
#include <cstring>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/network/tcp_socket.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;

/// How long an address may keep silent before the next one is tried beside it.
constexpr milliseconds NEXT_ADDRESS_AFTER{250};

constexpr milliseconds POLL_INTERVAL{50};

int socket_of(const Dialer::Attempt& attempt) {
    return mosquitto_socket(attempt.handle.get());
}

void wait_for_one(const std::vector<Dialer::Attempt>& attempts) {
    std::vector<pollfd> watched;
    watched.reserve(attempts.size());
    for (const auto& attempt : attempts) watched.push_back({socket_of(attempt), POLLOUT, 0});
    static_cast<void>(poll(watched.data(), static_cast<nfds_t>(watched.size()),
                           static_cast<int>(POLL_INTERVAL.count())));
}

}  // namespace

Dialer::Dialer(std::string host_name, std::vector<std::string> addresses, Begin begin_attempt)
    : host(std::move(host_name)), begin(std::move(begin_attempt)), untried(std::move(addresses)) {}

std::optional<Dialer::Attempt> Dialer::next(const ConnectLimit& limit) {
    auto next_start = std::chrono::steady_clock::now();
    while (!untried.empty() || !in_flight.empty()) {
        const auto now = std::chrono::steady_clock::now();
        if (!untried.empty() && (in_flight.empty() || now >= next_start)) {
            if (begin_next()) next_start = now + NEXT_ADDRESS_AFTER;
        }
        if (in_flight.empty()) continue;
        check(limit);
        wait_for_one(in_flight);
        if (auto connected = take_connected()) {
            for (const auto& left : in_flight) untried.push_back(left.address);
            in_flight.clear();
            return connected;
        }
    }
    return std::nullopt;
}

/// False when the attempt has failed already.
bool Dialer::begin_next() {
    const std::string address = untried.front();
    untried.erase(untried.begin());
    try {
        in_flight.push_back({address, begin(address)});
        return true;
    } catch (const MqttError& error) {
        note_failure(address, error.what());
        return false;
    }
}

std::optional<Dialer::Attempt> Dialer::take_connected() {
    for (auto attempt = in_flight.begin(); attempt != in_flight.end();) {
        const auto state = TcpSocket::connection_state(socket_of(*attempt));
        if (!state) {
            ++attempt;
            continue;
        }
        Attempt decided = std::move(*attempt);
        attempt = in_flight.erase(attempt);
        // A reset connection was established: there may be something of the broker's to read.
        if (*state == 0 || *state == ECONNRESET) return decided;
        note_failure(decided.address, std::strerror(*state));
    }
    return std::nullopt;
}

void Dialer::note_failure(const std::string& address, const std::string& cause) {
    logging::write(logging::DEBUG, "No connection to ", address, ": ", cause);
    if (!failure_text.empty()) failure_text += "; ";
    failure_text += (address == host ? "" : address + ": ") + cause;
}

void Dialer::check(const ConnectLimit& limit) const {
    if (!limit.has_passed()) return;
    throw MqttError("no answer of an MQTT broker within " + std::to_string(limit.timeout.count()) +
                    " ms" + (failure_text.empty() ? "" : "; " + failure_text));
}

}  // namespace lapi_mqtt
