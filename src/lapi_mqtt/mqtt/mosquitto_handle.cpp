// libmosquitto's handle of a connection: what is set on it and what it calls.

#include <algorithm>
#include <ctime>
#include <exception>

#include "ecu/lapi/logging.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/mqtt/mosquitto_connection.h"

namespace lapi_mqtt {
namespace {

namespace logging = ecu::lapi::logging;

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

/// Asks the C library: a C++ runtime that was built with 32 bits of time is wrong from 2038 on.
std::uint64_t milliseconds_since_epoch() {
    static_assert(sizeof(std::time_t) >= 8);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1'000'000;
}

/// What the broker's CONNACK says that it takes.
std::string limits_of(const mosquitto_property* properties) {
    std::uint32_t packet_limit = 0;
    std::uint16_t at_once = UINT16_MAX;
    mosquitto_property_read_int32(properties, MQTT_PROP_MAXIMUM_PACKET_SIZE, &packet_limit, false);
    mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &at_once, false);
    const auto flag = [properties](int identifier, std::uint8_t value) {
        mosquitto_property_read_byte(properties, identifier, &value, false);
        return static_cast<int>(value);
    };
    const auto yes_or_no = [&flag](int identifier) { return flag(identifier, 1) ? "yes" : "no"; };
    return "QoS up to " + std::to_string(flag(MQTT_PROP_MAXIMUM_QOS, 2)) + ", packets up to " +
           (packet_limit == 0 ? "any size" : std::to_string(packet_limit) + " bytes") + ", up to " +
           std::to_string(at_once) +
           " unacknowledged messages, retained messages: " + yes_or_no(MQTT_PROP_RETAIN_AVAILABLE) +
           ", wildcards: " + yes_or_no(MQTT_PROP_WILDCARD_SUB_AVAILABLE);
}

MosquittoConnection& self(void* object) {
    return *static_cast<MosquittoConnection*>(object);
}

}  // namespace

void MosquittoConnection::HandleDeleter::operator()(mosquitto* client) const {
    mosquitto_destroy(client);
}

MosquittoConnection::Handle MosquittoConnection::make_handle() {
    use_library();
    Handle made(mosquitto_new(client_id.c_str(), true, this));
    if (!made) throw MqttError("out of memory");
    mosquitto* const client = made.get();
    check_result(mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5));
    check_result(mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1));
    check_result(mosquitto_int_option(client, MOSQ_OPT_RECEIVE_MAXIMUM, RECEIVE_MAXIMUM));
    check_result(mosquitto_threaded_set(client, true));
    set_credentials(client);
    set_tls(client);
    set_will(client);
    set_callbacks(client);
    return made;
}

void MosquittoConnection::set_credentials(mosquitto* client) {
    if (settings.username.empty()) return;
    const bool has_password = !settings.password_file.empty();
    const std::string password = has_password ? read_password(settings.password_file) : "";
    check_result(mosquitto_username_pw_set(client, settings.username.c_str(),
                                           has_password ? password.c_str() : nullptr));
}

void MosquittoConnection::set_tls(mosquitto* client) {
    if (!tls) return;
    check_result(mosquitto_int_option(client, MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0));
    check_result(mosquitto_void_option(client, MOSQ_OPT_SSL_CTX, tls->get()));
    // Not insecure: our own context checks the name, which libmosquitto does not know.
    check_result(mosquitto_tls_insecure_set(client, true));
}

void MosquittoConnection::set_will(mosquitto* client) {
    if (!will) return;
    check_result(mosquitto_will_set(client, will->topic.c_str(),
                                    static_cast<int>(will->payload.size()), will->payload.data(), 1,
                                    true));
}

/// No exception leaves a callback: the frames above it are C. A message that cannot be taken
/// ends the connection, so that whoever waits for it learns of it.
template <typename Action>
void MosquittoConnection::guarded(Action action) noexcept {
    try {
        action();
    } catch (const std::exception& error) {
        refusal = error.what();
        abort();
    }
}

void MosquittoConnection::set_callbacks(mosquitto* client) {
    using Client = mosquitto*;
    using Properties = const mosquitto_property*;
    mosquitto_connect_v5_callback_set(
        client, [](Client, void* object, int code, int, Properties properties) {
            self(object).guarded([&] { self(object).greeted(code, properties); });
        });
    mosquitto_disconnect_v5_callback_set(client,
                                         [](Client, void* object, int code, Properties properties) {
                                             const Reason reason = reason_of(code, properties);
                                             MosquittoConnection& connection = self(object);
                                             if (reason.is_refusal() && connection.refusal.empty())
                                                 connection.refusal = reason.text;
                                         });
    mosquitto_message_v5_callback_set(
        client, [](Client, void* object, const mosquitto_message* message, Properties properties) {
            self(object).guarded([&] { self(object).received(message, properties); });
        });
    mosquitto_publish_v5_callback_set(
        client, [](Client, void* object, int id, int code, Properties properties) {
            self(object).guarded(
                [&] { self(object).events.on_acknowledged(id, reason_of(code, properties)); });
        });
    mosquitto_subscribe_v5_callback_set(client, [](Client, void* object, int id, int count,
                                                   const int* granted, Properties properties) {
        const int code = count > 0 ? granted[0] : MQTT_RC_UNSPECIFIED;
        self(object).guarded(
            [&] { self(object).events.on_acknowledged(id, reason_of(code, properties)); });
    });
    mosquitto_unsubscribe_v5_callback_set(client, [](Client, void* object, int id, Properties) {
        self(object).guarded([&] { self(object).events.on_acknowledged(id, {}); });
    });
    mosquitto_log_callback_set(client, [](Client, void* object, int level, const char* text) {
        self(object).guarded([&] { self(object).note_log(level, text); });
    });
}

void MosquittoConnection::greeted(int code, const mqtt5__property* properties) {
    const Reason reason = reason_of(code, properties);
    accepted = code == MQTT_RC_SUCCESS;
    if (!accepted) {
        refusal = reason.text;
        return;
    }
    logging::write(logging::DEBUG, "Accepted by the broker at ", settings.place(), " (", address,
                   ") as ", client_id, "; ", limits_of(properties));
}

void MosquittoConnection::received(const mosquitto_message* message,
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
/// acknowledgement of the message that is RECEIVE_MAXIMUM before it.
MosquittoConnection::Clock::time_point MosquittoConnection::earliest_sending(int qos) {
    if (qos == 0) return last_found_empty;
    auto earliest = last_found_empty;
    if (last_read.size() == RECEIVE_MAXIMUM) {
        earliest = std::max(earliest, last_read.front());
        last_read.pop_front();
    }
    last_read.push_back(Clock::now());
    return earliest;
}

/// The cause of a failed handshake reaches only libmosquitto's log, in one of the forms
/// "OpenSSL Error[0]: error:CODE:LIBRARY::REASON" and "Error: REASON"; the first one tells most.
void MosquittoConnection::note_log(int level, const char* text) {
    if (level != MOSQ_LOG_ERR || !tls || !tls_cause.empty()) return;
    const std::string record = text;
    const auto reason_at = record.rfind(": ");
    tls_cause = reason_at == std::string::npos ? record : record.substr(reason_at + 2);
    const auto library_end = tls_cause.rfind(':');
    if (library_end != std::string::npos) tls_cause.erase(0, library_end + 1);
}

}  // namespace lapi_mqtt
