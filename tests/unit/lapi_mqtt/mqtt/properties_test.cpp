#include "lapi_mqtt/mqtt/properties.h"

#include <gtest/gtest.h>

#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace {

using std::chrono::milliseconds;

TEST(Properties, CarryARequestsFieldsAndTheShorterOfItsTimes) {
    lapi_mqtt::PublishProperties sent;
    sent.response_topic = "clients/7/reply";
    sent.correlation_data = {"\0c", 2};
    sent.timeout = milliseconds(1500);
    sent.error = "worn\n\xfc" + std::string(2000, 'x');
    const auto list = lapi_mqtt::to_list(sent);
    const auto got = lapi_mqtt::from_list(list.get());
    EXPECT_EQ(got.response_topic, sent.response_topic);
    EXPECT_EQ(got.correlation_data, sent.correlation_data);
    EXPECT_EQ(got.timeout, sent.timeout);
    EXPECT_EQ(got.error, "worn??" + std::string(994, 'x'));
    std::uint32_t expiry_s = 0;
    mosquitto_property_read_int32(list.get(), MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &expiry_s, false);
    EXPECT_EQ(expiry_s, 2U);
    mosquitto_property* head = nullptr;  // the broker has held it for more than a second
    mosquitto_property_add_int32(&head, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, 1);
    mosquitto_property_add_string_pair(&head, MQTT_PROP_USER_PROPERTY, "timeout-ms", "1500");
    EXPECT_EQ(lapi_mqtt::from_list(head).timeout, milliseconds(1000));
    mosquitto_property_free_all(&head);
}

TEST(BrokerLimits, AreThoseOfMqttWhereConnackNamesNone) {
    const std::string none =
        "QoS up to 2, packets up to any size, up to 65535 unacknowledged messages, ";
    EXPECT_EQ(lapi_mqtt::broker_limits(nullptr), none + "retained messages: yes, wildcards: yes");
    mosquitto_property* head = nullptr;
    mosquitto_property_add_byte(&head, MQTT_PROP_MAXIMUM_QOS, 1);
    mosquitto_property_add_byte(&head, MQTT_PROP_RETAIN_AVAILABLE, 0);
    mosquitto_property_add_int32(&head, MQTT_PROP_MAXIMUM_PACKET_SIZE, 2000);
    mosquitto_property_add_int16(&head, MQTT_PROP_RECEIVE_MAXIMUM, 20);
    EXPECT_EQ(lapi_mqtt::broker_limits(head),
              "QoS up to 1, packets up to 2000 bytes, up to 20 unacknowledged messages, "
              "retained messages: no, wildcards: yes");
    mosquitto_property_free_all(&head);
}

}  // namespace
