#include "lapi_mqtt/mqtt/error.h"

#include <mosquitto.h>
#include <netdb.h>

#include <cerrno>
#include <cstring>

namespace lapi_mqtt {

std::string cause_of_result(int result, int system_error) {
    switch (result) {
        case MOSQ_ERR_ERRNO:
            return std::strerror(system_error);
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
        case MOSQ_ERR_INVAL:
            return "not a valid topic or value";
        default:
            return mosquitto_strerror(result);
    }
}

std::string cause_of_reason(int reason) {
    return mosquitto_reason_string(reason);
}

void check_result(int result) {
    const int system_error = errno;
    if (result != MOSQ_ERR_SUCCESS) throw MqttError(cause_of_result(result, system_error));
}

}  // namespace lapi_mqtt
