#include "lapi_mqtt/mqtt/error.h"

#include <netdb.h>

#include <cerrno>
#include <cstring>

#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "lapi_mqtt/mqtt/properties.h"

namespace lapi_mqtt {

std::string cause_of_result(int result, int system_error) {
    switch (result) {
        case MOSQ_ERR_ERRNO:
            // A peer that goes in the middle of a packet leaves no system error behind.
            return system_error == 0 ? "the connection was closed" : std::strerror(system_error);
        case MOSQ_ERR_EAI:
            return gai_strerror(system_error);
        case MOSQ_ERR_CONN_LOST:
        case MOSQ_ERR_NO_CONN:
            return "the connection was closed";
        case MOSQ_ERR_PROTOCOL:
        case MOSQ_ERR_MALFORMED_PACKET:
            return "the answer is not that of an MQTT 5 broker";
        case MOSQ_ERR_PAYLOAD_SIZE:
            return "more than one MQTT message can hold (268435455 bytes)";
        case MOSQ_ERR_OVERSIZE_PACKET:
            return "more than this broker takes in one packet";
        case MOSQ_ERR_QOS_NOT_SUPPORTED:
            return "the broker takes messages at QoS 0 only, requests and replies need QoS 1";
        case MOSQ_ERR_RETAIN_NOT_SUPPORTED:
            return "the broker does not support retained messages";
        case MOSQ_ERR_INVAL:
            return "not a valid topic or value";
        default:
            return mosquitto_strerror(result);
    }
}

Reason reason_of(int code, const mqtt5__property* properties) {
    Reason reason{code, code == MQTT_RC_QOS_NOT_SUPPORTED
                            ? cause_of_result(MOSQ_ERR_QOS_NOT_SUPPORTED, 0)
                            : mosquitto_reason_string(code)};
    const std::string reason_string = read_text(properties, MQTT_PROP_REASON_STRING);
    if (!reason_string.empty()) reason.text += " (" + reason_string + ")";
    const std::string server = read_text(properties, MQTT_PROP_SERVER_REFERENCE);
    if (!server.empty()) reason.text += ", use " + server + " instead";
    return reason;
}

void check_result(int result) {
    const int system_error = errno;
    if (result != MOSQ_ERR_SUCCESS) throw MqttError(cause_of_result(result, system_error));
}

}  // namespace lapi_mqtt
