#include "lapi_mqtt/mqtt/connection.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <exception>

#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/tcp_socket.h"

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// The broker drops a client that sends no whole packet for 1.5 of this, and a large packet on a
/// slow link takes long; dead peers are TCP's to notice.
constexpr int KEEPALIVE_S = 7200;
constexpr milliseconds DEAD_PEER{20'000};
constexpr milliseconds OPEN_SLICE{50};

/// How many messages above QoS 0 the broker may send ahead of our acknowledgements.
constexpr int RECEIVE_MAXIMUM = 20;

/// libmosquitto's global state, set up by the first connection and released at exit.
void use_library() {
    struct Library {
        Library() { mosquitto_lib_init(); }
        ~Library() { mosquitto_lib_cleanup(); }
    };
    static const Library library;
}

std::uint64_t milliseconds_since_epoch() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace

void MqttConnection::HandleDeleter::operator()(mosquitto* client) const {
    mosquitto_destroy(client);
}

MqttConnection::MqttConnection(const Settings& connection_settings, const std::string& client_id,
                               MqttEvents& owner)
    : settings(connection_settings), events(owner) {
    use_library();
    handle.reset(mosquitto_new(client_id.c_str(), true, this));
    if (!handle) throw MqttError("out of memory");
    check_result(mosquitto_int_option(handle.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5));
    check_result(mosquitto_int_option(handle.get(), MOSQ_OPT_TCP_NODELAY, 1));
    check_result(mosquitto_int_option(handle.get(), MOSQ_OPT_RECEIVE_MAXIMUM, RECEIVE_MAXIMUM));
    check_result(mosquitto_threaded_set(handle.get(), true));
    set_credentials(settings);
    set_tls(settings);
    set_callbacks();
}

MqttConnection::~MqttConnection() = default;

void MqttConnection::set_credentials(const Settings& from) {
    if (from.username.empty()) return;
    const std::string password =
        from.password_file.empty() ? std::string() : read_password(from.password_file);
    check_result(
        mosquitto_username_pw_set(handle.get(), from.username.c_str(),
                                  from.password_file.empty() ? nullptr : password.c_str()));
}

void MqttConnection::set_tls(const Settings& from) {
    if (from.ca_file.empty()) return;
    constexpr int VERIFY_PEER = 1;
    const auto path_or_null = [](const std::string& path) {
        return path.empty() ? nullptr : path.c_str();
    };
    check_result(mosquitto_tls_set(handle.get(), from.ca_file.c_str(), nullptr,
                                   path_or_null(from.cert_file), path_or_null(from.key_file),
                                   nullptr));
    check_result(mosquitto_tls_opts_set(handle.get(), VERIFY_PEER, "tlsv1.2", nullptr));
}

/// No exception leaves a callback: the frames above it are C. A message that cannot be taken
/// ends the connection, so that whoever waits for it learns of it.
template <typename Action>
void MqttConnection::guarded(Action action) noexcept {
    try {
        action();
    } catch (const std::exception& error) {
        refusal = error.what();
        abort();
    }
}

void MqttConnection::set_callbacks() {
    mosquitto* const client = handle.get();
    mosquitto_connect_v5_callback_set(client, [](mosquitto*, void* object, int reason, int,
                                                 const mosquitto_property* list) {
        MqttConnection& connection = self(object);
        std::uint8_t available = 1;
        mosquitto_property_read_byte(list, MQTT_PROP_SUBSCRIPTION_ID_AVAILABLE, &available, false);
        connection.takes_identifiers = available != 0;
        connection.accepted = reason == MQTT_RC_SUCCESS;
        if (!connection.accepted) connection.refusal = cause_of_reason(reason);
    });
    mosquitto_disconnect_v5_callback_set(
        client, [](mosquitto*, void* object, int reason, const mosquitto_property*) {
            MqttConnection& connection = self(object);
            if (reason >= FIRST_REFUSAL && connection.refusal.empty()) {
                connection.refusal = cause_of_reason(reason);
            }
        });
    mosquitto_message_v5_callback_set(
        client, [](mosquitto*, void* object, const mosquitto_message* message,
                   const mosquitto_property* properties) {
            self(object).guarded([&] { self(object).received(message, properties); });
        });
    mosquitto_publish_v5_callback_set(
        client, [](mosquitto*, void* object, int id, int reason, const mosquitto_property*) {
            self(object).guarded([&] { self(object).events.on_acknowledged(id, reason); });
        });
    // The codes of a SUBACK are what was granted: QoS 0 to 2, or a refusal.
    mosquitto_subscribe_v5_callback_set(client, [](mosquitto*, void* object, int id, int count,
                                                   const int* granted, const mosquitto_property*) {
        const int code = count > 0 ? granted[0] : FIRST_REFUSAL;
        const int reason = code < FIRST_REFUSAL ? 0 : code;
        self(object).guarded([&] { self(object).events.on_acknowledged(id, reason); });
    });
    mosquitto_unsubscribe_v5_callback_set(
        client, [](mosquitto*, void* object, int id, const mosquitto_property*) {
            self(object).guarded([&] { self(object).events.on_acknowledged(id, 0); });
        });
    mosquitto_log_callback_set(client, [](mosquitto*, void* object, int level, const char* text) {
        self(object).guarded([&] { self(object).note_log(level, text); });
    });
}

void MqttConnection::open(const std::atomic<bool>& abandoned) {
    const auto deadline = steady_clock::now() + settings.connect_timeout;
    errno = 0;
    last_result =
        mosquitto_connect_async(handle.get(), settings.host.c_str(), settings.port, KEEPALIVE_S);
    last_errno = errno;
    if (last_result != MOSQ_ERR_SUCCESS) throw MqttError(end_cause());
    tcp_socket::give_up_after(socket(), DEAD_PEER);
    while (!accepted) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
        if (left <= milliseconds::zero()) {
            throw MqttError("no answer of an MQTT broker within " +
                            std::to_string(settings.connect_timeout.count()) + " ms");
        }
        if (abandoned) throw MqttError("given up");
        if (!loop(std::min(left, OPEN_SLICE))) throw MqttError(end_cause());
        // Inside a TLS handshake libmosquitto takes a closed connection for one that is slow.
        if (!accepted && tcp_socket::is_closed_by_peer(socket())) {
            throw MqttError(closed_early());
        }
    }
}

bool MqttConnection::loop(milliseconds timeout) {
    // The time from before the look: a process is put to sleep at the end of a system call.
    const auto now = steady_clock::now();
    if (!tcp_socket::is_readable(socket())) drained = now;
    tcp_socket::acknowledge_at_once(socket());
    errno = 0;
    last_result = mosquitto_loop(handle.get(), static_cast<int>(timeout.count()), 1);
    last_errno = errno;
    return last_result == MOSQ_ERR_SUCCESS && refusal.empty();
}

/// What a broker does that expects TLS and gets none, or the other way round.
std::string MqttConnection::closed_early() const {
    return std::string(settings.ca_file.empty() ? "" : "TLS: ") +
           "the connection was closed before it was accepted";
}

std::string MqttConnection::end_cause() const {
    if (!refusal.empty()) return refusal;
    if (!tls_cause.empty()) return "TLS: " + tls_cause;
    if (last_result == MOSQ_ERR_CONN_LOST && !accepted) return closed_early();
    return cause_of_result(last_result, last_errno);
}

int MqttConnection::publish(const std::string& topic, const ecu::lapi::com::Message& message,
                            int qos, const PublishProperties& properties) {
    if (message.payload.size() > INT_MAX)
        throw MqttError(cause_of_result(MOSQ_ERR_PAYLOAD_SIZE, 0));
    const PropertyList list = to_list(properties);
    int id = 0;
    check_result(mosquitto_publish_v5(handle.get(), &id, topic.c_str(),
                                      static_cast<int>(message.payload.size()),
                                      message.payload.data(), qos, false, list.get()));
    return id;
}

int MqttConnection::subscribe(const std::string& filter, int qos) {
    int id = 0;
    check_result(mosquitto_subscribe_v5(handle.get(), &id, filter.c_str(), qos, 0, nullptr));
    return id;
}

int MqttConnection::subscribe(const std::string& filter, int qos, std::uint32_t identifier) {
    if (!takes_identifiers) return subscribe(filter, qos);
    const PropertyList list = subscription_list(identifier);
    int id = 0;
    check_result(mosquitto_subscribe_v5(handle.get(), &id, filter.c_str(), qos, 0, list.get()));
    return id;
}

int MqttConnection::unsubscribe(const std::string& filter) {
    int id = 0;
    check_result(mosquitto_unsubscribe(handle.get(), &id, filter.c_str()));
    return id;
}

void MqttConnection::disconnect() {
    mosquitto_disconnect(handle.get());
}

void MqttConnection::abort() {
    tcp_socket::shut_down(socket());
}

std::uint64_t MqttConnection::bytes_moved() const {
    return tcp_socket::bytes_moved(socket());
}

int MqttConnection::socket() const {
    return mosquitto_socket(handle.get());
}

void MqttConnection::received(const mosquitto_message* message, const mqtt5__property* properties) {
    Incoming incoming;
    incoming.topic = message->topic;
    const auto* const bytes = static_cast<const std::uint8_t*>(message->payload);
    incoming.message.payload.assign(bytes, bytes + message->payloadlen);
    incoming.message.qos = static_cast<std::uint8_t>('0' + message->qos);
    incoming.message.timestamp = milliseconds_since_epoch();
    incoming.message.retain = message->retain ? 1 : 0;
    incoming.properties = from_list(properties);
    incoming.sent_after = earliest_sending(message->qos);
    events.on_message(std::move(incoming));
}

/// What is read now was sent after the socket was last found empty; and, above QoS 0, after the
/// message was read whose acknowledgement made room for it. While requests keep coming in only the
/// latter moves on, after this process slept only the former tells.
steady_clock::time_point MqttConnection::earliest_sending(int qos) {
    if (qos == 0) return drained;
    auto earliest = drained;
    if (last_read.size() == RECEIVE_MAXIMUM) {
        earliest = std::max(earliest, last_read.front());
        last_read.pop_front();
    }
    last_read.push_back(steady_clock::now());
    return earliest;
}

/// The cause of a failed handshake reaches only libmosquitto's log, in one of the forms
/// "OpenSSL Error[0]: error:CODE:LIBRARY::REASON" and "Error: REASON"; the first one tells most.
void MqttConnection::note_log(int level, const char* text) {
    if (level != MOSQ_LOG_ERR || settings.ca_file.empty() || !tls_cause.empty()) return;
    const std::string record = text;
    tls_cause = record.substr(record.rfind(": ") + 2);
    const auto library_end = tls_cause.rfind(':');
    if (library_end != std::string::npos) tls_cause.erase(0, library_end + 1);
}

}  // namespace lapi_mqtt
