#include "lapi_mqtt/mqtt/mosquitto_connection.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/address.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/mqtt/tcp_socket.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;

/// The broker drops a client that sends no whole packet for 1.5 of this, and a large packet on a
/// slow link takes long; dead peers are TCP's to notice. Where others watch for our end the broker
/// has to notice it.
constexpr int KEEPALIVE_S = 7200;
constexpr int KEEPALIVE_WITH_WILL_S = 300;

constexpr milliseconds DEAD_PEER{20'000};
constexpr milliseconds OPEN_SLICE{50};

/// A TLS record begins so; no MQTT packet from a broker does.
constexpr int TLS_ALERT = 0x15;
constexpr int TLS_HANDSHAKE = 0x16;

/// OpenSSL's words for a peer that closes the connection and says nothing.
constexpr char GONE_WITHIN_TLS[] = "unexpected eof while reading";

/// How long an address may keep silent before the next one is tried beside it.
constexpr milliseconds NEXT_ADDRESS_AFTER{250};

}  // namespace

MosquittoConnection::MosquittoConnection(const Settings& connection_settings, const std::string& id,
                                         const std::optional<Will>& last_will,
                                         ConnectionEvents& owner)
    : settings(connection_settings), client_id(id), will(last_will), events(owner) {
    if (!settings.ca_file.empty()) tls = std::make_unique<TlsContext>(settings);
}

MosquittoConnection::~MosquittoConnection() = default;

void MosquittoConnection::open(const std::atomic<bool>& abandoned) {
    const auto deadline = Clock::now() + settings.connect_timeout;
    auto untried = resolve(settings.host, deadline, abandoned);
    for (;;) {
        reach_one_of(untried, deadline, abandoned);
        await_greeting(deadline, abandoned);
        if (accepted) return;
        note_failure(address, end_cause());
        if (!refusal.empty() || untried.empty()) throw MqttError(failures);
    }
}

/// Throws MqttError when all of them have failed; those that were not needed stay in `addresses`.
void MosquittoConnection::reach_one_of(std::vector<std::string>& addresses,
                                       Clock::time_point deadline,
                                       const std::atomic<bool>& abandoned) {
    std::vector<Attempt> under_way;
    auto next_start = Clock::now();
    for (;;) {
        const auto now = Clock::now();
        if (!addresses.empty() && (under_way.empty() || now >= next_start)) {
            const std::string next = addresses.front();
            addresses.erase(addresses.begin());
            if (begin(next, under_way)) next_start = now + NEXT_ADDRESS_AFTER;
        }
        if (under_way.empty()) {
            if (addresses.empty()) throw MqttError(failures);
            continue;
        }
        require_time(deadline, abandoned);
        std::vector<int> sockets;
        sockets.reserve(under_way.size());
        for (const auto& attempt : under_way) {
            sockets.push_back(mosquitto_socket(attempt.handle.get()));
        }
        tcp_socket::await_connected(sockets, OPEN_SLICE);
        if (take_reached(under_way)) break;
    }
    for (auto& left : under_way) addresses.push_back(left.address);
}

/// False when the attempt has failed already.
bool MosquittoConnection::begin(const std::string& next, std::vector<Attempt>& under_way) {
    logging::write(logging::DEBUG, "Trying ", next, " port ", settings.port);
    Attempt attempt{next, make_handle()};
    errno = 0;
    last_result = mosquitto_connect_async(attempt.handle.get(), next.c_str(), settings.port,
                                          will ? KEEPALIVE_WITH_WILL_S : KEEPALIVE_S);
    last_errno = errno;
    if (last_result != MOSQ_ERR_SUCCESS) {
        note_failure(next, end_cause());
        return false;
    }
    under_way.push_back(std::move(attempt));
    return true;
}

/// True when one is connected, which is ours from here on; attempts that failed are gone.
bool MosquittoConnection::take_reached(std::vector<Attempt>& under_way) {
    for (auto attempt = under_way.begin(); attempt != under_way.end();) {
        const auto state = tcp_socket::connection_state(mosquitto_socket(attempt->handle.get()));
        if (!state) {
            ++attempt;
            continue;
        }
        Attempt decided = std::move(*attempt);
        attempt = under_way.erase(attempt);
        // Reset means that it was connected: the last words of the broker may be there to be read.
        if (*state == 0 || *state == ECONNRESET) {
            handle = std::move(decided.handle);
            address = decided.address;
            return true;
        }
        note_failure(decided.address, std::strerror(*state));
    }
    return false;
}

/// Returns when the broker has answered or has gone.
void MosquittoConnection::await_greeting(Clock::time_point deadline,
                                         const std::atomic<bool>& abandoned) {
    last_result = 0;
    tls_cause.clear();
    last_found_empty = Clock::now();
    tcp_socket::give_up_after(socket(), DEAD_PEER);
    while (!accepted) {
        require_time(deadline, abandoned);
        const int next = tcp_socket::next_byte(socket());
        if (!tls && (next == TLS_ALERT || next == TLS_HANDSHAKE)) {
            last_result = MOSQ_ERR_TLS;
            tls_cause = "the broker speaks TLS on this port, and no ca_file is set";
            return;
        }
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (!loop(std::clamp(left, milliseconds::zero(), OPEN_SLICE))) return;
        // Inside a TLS handshake libmosquitto takes a closed connection for one that is slow.
        if (!accepted && tcp_socket::next_byte(socket()) == tcp_socket::END) {
            last_result = MOSQ_ERR_CONN_LOST;
            return;
        }
    }
}

void MosquittoConnection::require_time(Clock::time_point deadline,
                                       const std::atomic<bool>& abandoned) const {
    if (abandoned) throw MqttError("given up");
    if (Clock::now() < deadline) return;
    throw MqttError("no answer of an MQTT broker within " +
                    std::to_string(settings.connect_timeout.count()) + " ms" +
                    (failures.empty() ? "" : "; " + failures));
}

void MosquittoConnection::note_failure(const std::string& tried, const std::string& cause) {
    logging::write(logging::DEBUG, "No connection to ", tried, ": ", cause);
    if (!failures.empty()) failures += "; ";
    failures += (tried == settings.host ? "" : tried + ": ") + cause;
}

bool MosquittoConnection::loop(milliseconds timeout) {
    // The time from before the look: a process is put to sleep at the end of a system call.
    const auto now = Clock::now();
    if (!tcp_socket::is_readable(socket())) last_found_empty = now;
    tcp_socket::acknowledge_at_once(socket());
    errno = 0;
    last_result = mosquitto_loop(handle.get(), static_cast<int>(timeout.count()), 1);
    last_errno = errno;
    return last_result == MOSQ_ERR_SUCCESS && refusal.empty();
}

/// What a broker does that expects TLS and gets none, or the other way round.
std::string MosquittoConnection::closed_early() const {
    const std::string closed = "the connection was closed before it was accepted; does the broker ";
    if (!tls) return closed + "expect TLS on this port? (no ca_file is set)";
    return "TLS: " + closed + "speak TLS on this port, and take clients " +
           (settings.cert_file.empty() ? "without a certificate?" : "with this certificate?");
}

std::string MosquittoConnection::end_cause() const {
    if (!refusal.empty()) return refusal;
    if (tls && !tls->refusal().empty()) return "TLS: " + tls->refusal();
    if (!tls_cause.empty() && tls_cause != GONE_WITHIN_TLS) {
        const bool is_plain = tls_cause.find("wrong version number") != std::string::npos;
        return "TLS: " + tls_cause + (is_plain ? ": the broker does not speak TLS here" : "");
    }
    // A peer that closes with bytes unread resets the connection, and its last words may be lost;
    // within TLS libmosquitto tells that, as any system error, as EPROTO.
    const bool gone_within_tls = tls && (!tls_cause.empty() || last_errno == EPROTO);
    const bool reset = last_errno == 0 || last_errno == ECONNRESET || last_errno == EPIPE;
    const int result = gone_within_tls ? MOSQ_ERR_CONN_LOST : last_result;
    const bool closed = result == MOSQ_ERR_CONN_LOST || (result == MOSQ_ERR_ERRNO && reset);
    if (closed && !accepted) return closed_early();
    return cause_of_result(result, last_errno);
}

int MosquittoConnection::publish(const std::string& topic, const ecu::lapi::com::Message& message,
                                 int qos, const PublishProperties& properties) {
    if (message.payload.size() > INT_MAX) {
        throw MqttError(cause_of_result(MOSQ_ERR_PAYLOAD_SIZE, 0));
    }
    const PropertyList list = to_list(properties);
    int id = 0;
    check_result(mosquitto_publish_v5(
        handle.get(), &id, topic.c_str(), static_cast<int>(message.payload.size()),
        message.payload.data(), qos, message.retain != 0, list.get()));
    return id;
}

int MosquittoConnection::subscribe(const std::string& filter, int qos, RetainHandling retained) {
    // Without "retain as published" a unit could not tell what was published with RETAIN set.
    const int options = MQTT_SUB_OPT_RETAIN_AS_PUBLISHED |
                        (retained == RetainHandling::send ? MQTT_SUB_OPT_SEND_RETAIN_ALWAYS
                                                          : MQTT_SUB_OPT_SEND_RETAIN_NEVER);
    int id = 0;
    check_result(mosquitto_subscribe_v5(handle.get(), &id, filter.c_str(), qos, options, nullptr));
    return id;
}

int MosquittoConnection::unsubscribe(const std::string& filter) {
    int id = 0;
    check_result(mosquitto_unsubscribe(handle.get(), &id, filter.c_str()));
    return id;
}

void MosquittoConnection::disconnect() {
    mosquitto_disconnect(handle.get());
}

void MosquittoConnection::abort() {
    tcp_socket::shut_down(socket());
}

Traffic MosquittoConnection::traffic() const {
    return tcp_socket::traffic(socket());
}

int MosquittoConnection::socket() const {
    return mosquitto_socket(handle.get());
}

}  // namespace lapi_mqtt
