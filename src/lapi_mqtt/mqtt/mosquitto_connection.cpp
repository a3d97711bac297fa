#include "lapi_mqtt/mqtt/mosquitto_connection.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/network/address.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;
using std::chrono::milliseconds;

/// The broker drops a client that sends no whole packet for 1.5 of this, and a large packet on a
/// slow link takes long; dead peers are TCP's to notice. Where others watch for our end the broker
/// has to notice it.
constexpr int KEEPALIVE_S = 7200;
constexpr int KEEPALIVE_WITH_WILL_S = 300;

/// How many messages above QoS 0 the broker may send ahead of our acknowledgements. A service
/// derives the age of a request from it. libmosquitto 2.0.11 counts messages of QoS 2 wrongly, so
/// everybody else names the most that there is.
constexpr int RECEIVE_MAXIMUM = 65'535;
constexpr int RECEIVE_MAXIMUM_OF_SERVICE = 20;

constexpr milliseconds DEAD_PEER_TIMEOUT{20'000};
constexpr milliseconds POLL_INTERVAL{50};

/// A TLS record begins so; no MQTT packet from a broker does.
constexpr int TLS_ALERT = 0x15;
constexpr int TLS_HANDSHAKE = 0x16;

/// Asks the C library: a C++ runtime that was built with 32 bits of time is wrong from 2038 on.
std::uint64_t milliseconds_since_epoch() {
    static_assert(sizeof(std::time_t) >= 8);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

}  // namespace

MosquittoConnection::MosquittoConnection(const Settings& connection_settings, const std::string& id,
                                         const std::optional<Will>& last_will,
                                         ConnectionEvents& owner)
    : settings(connection_settings), client_id(id), will(last_will), events(owner) {
    if (!settings.ca_file.empty()) tls = std::make_unique<TlsContext>(settings);
}

void MosquittoConnection::open(const std::atomic<bool>& cancelled) {
    const ConnectLimit limit{settings.connect_timeout, cancelled};
    Dialer dialer(settings.host, resolve(settings.host, limit),
                  [this](const std::string& to) { return begin(to); });
    while (auto reached = dialer.next(limit)) {
        address = reached->address;
        handle = std::move(reached->handle);
        socket.emplace(mosquitto_socket(handle.get()));
        wait_for_connack(dialer, limit);
        if (failure.was_accepted) return;
        handle.reset();
        if (tls) tls->read_alert(socket->number());
        dialer.note_failure(address, end_cause());
    }
    throw MqttError(dialer.failures());
}

MosquittoHandle MosquittoConnection::begin(const std::string& to) {
    logging::write(logging::DEBUG, "Trying ", to, " port ", settings.port);
    auto made = make_handle(settings, client_id, will,
                            will ? RECEIVE_MAXIMUM_OF_SERVICE : RECEIVE_MAXIMUM, tls.get(), this);
    set_callbacks(made.get());
    forget_failure();
    errno = 0;
    failure.result = mosquitto_connect_async(made.get(), to.c_str(), settings.port,
                                             will ? KEEPALIVE_WITH_WILL_S : KEEPALIVE_S);
    failure.system_error = errno;
    // A broker on this machine may have refused the TLS handshake already.
    if (failure.result != MOSQ_ERR_SUCCESS) throw MqttError(end_cause());
    return made;
}

/// What one address did is not the cause of what another one does.
void MosquittoConnection::forget_failure() {
    failure = {};
    if (tls) tls->forget_findings();
}

/// Returns when the broker has answered or has gone.
void MosquittoConnection::wait_for_connack(const Dialer& dialer, const ConnectLimit& limit) {
    forget_failure();
    last_found_empty = Clock::now();
    socket->set_dead_peer_timeout(DEAD_PEER_TIMEOUT);
    while (!failure.was_accepted) {
        dialer.check(limit);
        const int next = socket->next_byte();
        failure.speaks_tls = !tls && (next == TLS_ALERT || next == TLS_HANDSHAKE);
        if (failure.speaks_tls || !loop(POLL_INTERVAL)) return;
        // Inside a TLS handshake libmosquitto takes a closed connection for one that is slow.
        if (!failure.was_accepted && socket->next_byte() == TcpSocket::END) {
            failure.result = MOSQ_ERR_CONN_LOST;
            return;
        }
    }
}

bool MosquittoConnection::loop(milliseconds timeout) {
    // The time before the check: a process is put to sleep at the end of a system call.
    const auto now = Clock::now();
    if (!socket->is_readable()) last_found_empty = now;
    socket->acknowledge_at_once();
    errno = 0;
    failure.result = mosquitto_loop(handle.get(), static_cast<int>(timeout.count()), 1);
    failure.system_error = errno;
    return failure.result == MOSQ_ERR_SUCCESS && failure.refusal.text.empty();
}

std::string MosquittoConnection::end_cause() const {
    Failure end = failure;
    if (tls) {
        end.certificate_refusal = tls->findings().refusal;
        end.tls_alert = tls->findings().alert;
    }
    return cause_with_hint(end, settings);
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
    // Without "retain as published" a unit could not tell what was published with RETAIN set. A
    // Subscription Identifier would tell the copies apart that a broker sends for each of several
    // overlapping filters; but a broker may name two of them in one PUBLISH, which libmosquitto
    // takes for malformed.
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
    // A clean DISCONNECT would take the will back.
    const int reason = will ? MQTT_RC_DISCONNECT_WITH_WILL_MSG : MQTT_RC_NORMAL_DISCONNECTION;
    mosquitto_disconnect_v5(handle.get(), reason, nullptr);
}

/// Calls METHOD of the connection that libmosquitto hands back. No exception leaves it: the frames
/// above it are C. A message that cannot be stored ends the connection, so that whoever waits for
/// it learns of it.
template <auto METHOD, typename... Arguments>
void MosquittoConnection::call(mosquitto* /*client*/, void* object,
                               Arguments... arguments) noexcept {
    auto& self = *static_cast<MosquittoConnection*>(object);
    try {
        (self.*METHOD)(arguments...);
    } catch (const std::exception& error) {
        self.failure.refusal.text = error.what();
        self.abort();
    }
}

void MosquittoConnection::set_callbacks(mosquitto* client) {
    using Self = MosquittoConnection;
    mosquitto_connect_v5_callback_set(client, call<&Self::on_connack>);
    mosquitto_disconnect_v5_callback_set(client, call<&Self::on_disconnect>);
    mosquitto_message_v5_callback_set(client, call<&Self::on_publish>);
    mosquitto_publish_v5_callback_set(client, call<&Self::on_published>);
    mosquitto_subscribe_v5_callback_set(client, call<&Self::on_suback>);
    mosquitto_unsubscribe_v5_callback_set(client, call<&Self::on_unsuback>);
    mosquitto_log_callback_set(client, call<&Self::on_log>);
}

void MosquittoConnection::on_connack(int code, int /*flags*/, const mqtt5__property* properties) {
    failure.was_accepted = code == MQTT_RC_SUCCESS;
    if (!failure.was_accepted) {
        failure.refusal = reason_of(code, properties);
        return;
    }
    logging::write(logging::DEBUG, "Accepted by the broker at ", settings.place(), " (", address,
                   ") as ", client_id, "; ", broker_limits(properties));
}

void MosquittoConnection::on_disconnect(int code, const mqtt5__property* properties) {
    const Reason reason = reason_of(code, properties);
    if (reason.is_refusal() && failure.refusal.text.empty()) failure.refusal = reason;
}

void MosquittoConnection::on_published(int id, int code, const mqtt5__property* properties) {
    events.on_acknowledged(id, reason_of(code, properties));
}

void MosquittoConnection::on_suback(int id, int count, const int* granted,
                                    const mqtt5__property* properties) {
    on_published(id, count > 0 ? granted[0] : MQTT_RC_UNSPECIFIED, properties);
}

void MosquittoConnection::on_unsuback(int id, const mqtt5__property* /*properties*/) {
    events.on_acknowledged(id, {});
}

void MosquittoConnection::on_publish(const mosquitto_message* message,
                                     const mqtt5__property* properties) {
    Incoming incoming;
    incoming.topic = message->topic;
    const auto* const bytes = static_cast<const std::uint8_t*>(message->payload);
    incoming.message.payload.assign(bytes, bytes + message->payloadlen);
    incoming.message.set_qos(message->qos);
    incoming.message.timestamp = milliseconds_since_epoch();
    incoming.message.retain = message->retain ? 1 : 0;
    incoming.properties = from_list(properties);
    incoming.sent_after = earliest_sending(message->qos);
    events.on_message(std::move(incoming));
}

/// What is read now was sent after the socket was last found empty; and, above QoS 0, after the
/// acknowledgement of the message that is the Receive Maximum before it.
MosquittoConnection::Clock::time_point MosquittoConnection::earliest_sending(int qos) {
    auto earliest = last_found_empty;
    if (qos == 0 || !will) return earliest;
    if (last_read.size() == RECEIVE_MAXIMUM_OF_SERVICE) {
        earliest = std::max(earliest, last_read.front());
        last_read.pop_front();
    }
    last_read.push_back(Clock::now());
    return earliest;
}

/// Of several errors the first one is the most specific.
void MosquittoConnection::on_log(int level, const char* text) {
    if (level != MOSQ_LOG_ERR || !tls || !failure.tls_error.empty()) return;
    failure.tls_error = tls_error_in(text);
}

}  // namespace lapi_mqtt
