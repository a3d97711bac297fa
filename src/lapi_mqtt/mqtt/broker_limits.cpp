#include "lapi_mqtt/mqtt/broker_limits.h"

#include <cstdint>

#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace lapi_mqtt {

std::string broker_limits(const mqtt5__property* connack) {
    std::uint32_t packet_limit = 0;
    std::uint16_t receive_maximum = UINT16_MAX;
    mosquitto_property_read_int32(connack, MQTT_PROP_MAXIMUM_PACKET_SIZE, &packet_limit, false);
    mosquitto_property_read_int16(connack, MQTT_PROP_RECEIVE_MAXIMUM, &receive_maximum, false);
    const auto byte = [connack](int identifier, std::uint8_t value) {
        mosquitto_property_read_byte(connack, identifier, &value, false);
        return value;
    };
    const auto yes_or_no = [&byte](int identifier) { return byte(identifier, 1) ? "yes" : "no"; };
    return "QoS up to " + std::to_string(byte(MQTT_PROP_MAXIMUM_QOS, 2)) + ", packets up to " +
           (packet_limit == 0 ? "any size" : std::to_string(packet_limit) + " bytes") + ", up to " +
           std::to_string(receive_maximum) +
           " unacknowledged messages, retained messages: " + yes_or_no(MQTT_PROP_RETAIN_AVAILABLE) +
           ", wildcards: " + yes_or_no(MQTT_PROP_WILDCARD_SUB_AVAILABLE);
}

}  // namespace lapi_mqtt
