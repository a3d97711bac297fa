#include <gtest/gtest.h>
#include <mosquitto.h>
#include <mqtt_protocol.h>

#include "lapi_mqtt/logging/printable.h"
#include "lapi_mqtt/mqtt/error.h"

namespace {

TEST(Reasons, SpeakTheBrokersOwnWords) {
    mosquitto_property* head = nullptr;
    mosquitto_property_add_string(&head, MQTT_PROP_REASON_STRING, "ask the admin");
    mosquitto_property_add_string(&head, MQTT_PROP_SERVER_REFERENCE, "b.test:1883");
    EXPECT_EQ(lapi_mqtt::reason_of(0x87, nullptr).text, "Not authorized");
    EXPECT_EQ(lapi_mqtt::reason_of(0x9d, head).text, "Server moved (ask the admin), use b.test:1883 instead");
    mosquitto_property_free_all(&head);
}

TEST(Printable, EscapesWhatATerminalWouldNotShowAsItIs) {
    const std::pair<std::string, const char*> table[] = {
        {"plain \xc3\xbc \xe2\x82\xac \xf0\x9f\x98\x80", "plain \xc3\xbc \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"a\r\n\tb\x1b[2J\x7f", "a\\r\\n\\tb\\x1b[2J\\x7f"},
        {"x\xe2\x80\xaey\xe2\x80\x8bz\xef\xbb\xbf", "x\\u202ey\\u200bz\\ufeff"},
        {"\xc2\x9b", "\\u009b"},
        {"\xff\xc0\xaf\xed\xa0\x80\xe2\x80", "\\xff\\xc0\\xaf\\xed\\xa0\\x80\\xe2\\x80"},
        {std::string("\0", 1), "\\x00"},
        {"\xf3\xa0\x81\x81", "\\U000e0041"},
    };
    for (const auto& [text, shown] : table) EXPECT_EQ(lapi_mqtt::printable(text), shown);
}

}  // namespace
