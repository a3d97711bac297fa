#include "lapi_mqtt/mqtt/properties.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"
#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
template <typename Value>
using CPointer = std::unique_ptr<Value, Free>;

using std::chrono::milliseconds;
using std::chrono::seconds;

/// A property's text has to be UTF-8 without control characters, whatever a cause was written in.
std::string to_ascii(std::string text) {
    constexpr std::size_t MAX_SIZE = 1000;
    text.resize(std::min(text.size(), MAX_SIZE));
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character < ' ' || character > '~'; },
        '?');
    return text;
}

/// libmosquitto 2.1 hands out a null pointer for a text that is empty.
std::string text_of(const char* text) {
    return text == nullptr ? "" : text;
}

std::string read_binary(const mqtt5__property* list, int identifier) {
    void* bytes = nullptr;
    std::uint16_t size = 0;
    if (mosquitto_property_read_binary(list, identifier, &bytes, &size, false) == nullptr) {
        return {};
    }
    const CPointer<void> owned(bytes);
    return {static_cast<const char*>(bytes), size};
}

std::optional<std::string> read_user_property(const mqtt5__property* list, const std::string& key) {
    bool skip_first = false;
    for (;;) {
        char* name = nullptr;
        char* value = nullptr;
        list = mosquitto_property_read_string_pair(list, MQTT_PROP_USER_PROPERTY, &name, &value,
                                                   skip_first);
        if (list == nullptr) return std::nullopt;
        const CPointer<char> owned_name(name);
        const CPointer<char> owned_value(value);
        if (key == text_of(name)) return text_of(value);
        skip_first = true;
    }
}

/// Message expiry is in whole seconds, so that the exact time travels beside it. The broker takes
/// the time that a message waits in its queues off the expiry, so that the shorter one counts.
std::optional<milliseconds> read_timeout(const mqtt5__property* list) {
    std::uint32_t expiry_s = 0;
    const bool expires = mosquitto_property_read_int32(list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                                       &expiry_s, false) != nullptr;
    const auto text = read_user_property(list, protocol::TIMEOUT_PROPERTY).value_or("");
    std::uint32_t timeout_ms = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), timeout_ms);
    const bool has_timeout = error == std::errc() && end == text.data() + text.size();
    if (has_timeout && expires)
        return std::min<milliseconds>(milliseconds(timeout_ms), seconds(expiry_s));
    if (has_timeout) return milliseconds(timeout_ms);
    if (expires) return seconds(expiry_s);
    return std::nullopt;
}

}  // namespace

void PropertyListDeleter::operator()(mqtt5__property* list) const {
    mosquitto_property_free_all(&list);
}

PropertyList to_list(const PublishProperties& properties) {
    mosquitto_property* head = nullptr;
    int result = MOSQ_ERR_SUCCESS;
    const auto add = [&](auto function, int identifier, auto... arguments) {
        if (result == MOSQ_ERR_SUCCESS) result = function(&head, identifier, arguments...);
    };
    const auto add_text = [&add](int identifier, const std::string& text) {
        if (!text.empty()) add(mosquitto_property_add_string, identifier, text.c_str());
    };
    const auto add_user_property = [&add](const char* name, const std::string& text) {
        add(mosquitto_property_add_string_pair, MQTT_PROP_USER_PROPERTY, name, text.c_str());
    };
    add_text(MQTT_PROP_RESPONSE_TOPIC, properties.response_topic);
    add_text(MQTT_PROP_CONTENT_TYPE, properties.content_type);
    const std::string& correlation = properties.correlation_data;
    if (!correlation.empty()) {
        add(mosquitto_property_add_binary, MQTT_PROP_CORRELATION_DATA, correlation.data(),
            static_cast<std::uint16_t>(correlation.size()));
    }
    if (properties.timeout) {
        add(mosquitto_property_add_int32, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
            static_cast<std::uint32_t>(std::chrono::ceil<seconds>(*properties.timeout).count()));
        const bool is_request = !properties.response_topic.empty();
        const std::string timeout_ms = std::to_string(properties.timeout->count());
        if (is_request) add_user_property(protocol::TIMEOUT_PROPERTY, timeout_ms);
    }
    if (properties.error) add_user_property(protocol::ERROR_PROPERTY, to_ascii(*properties.error));
    PropertyList list(head);
    check_result(result);
    return list;
}

std::string read_text(const mqtt5__property* list, int identifier) {
    char* text = nullptr;
    if (mosquitto_property_read_string(list, identifier, &text, false) == nullptr) return {};
    const CPointer<char> owned(text);
    return text_of(text);
}

PublishProperties from_list(const mqtt5__property* list) {
    PublishProperties properties;
    if (list == nullptr) return properties;
    properties.response_topic = read_text(list, MQTT_PROP_RESPONSE_TOPIC);
    properties.correlation_data = read_binary(list, MQTT_PROP_CORRELATION_DATA);
    properties.content_type = read_text(list, MQTT_PROP_CONTENT_TYPE);
    properties.timeout = read_timeout(list);
    properties.error = read_user_property(list, protocol::ERROR_PROPERTY);
    return properties;
}

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
