// What a property list says is read as it stands, and the list that is made from it says the same.
#include "lapi_mqtt/mqtt/properties.h"

#include <algorithm>
#include <map>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace {

/// The first value of each identifier and name.
using Said = std::map<std::pair<int, std::string>, std::string>;

/// Adds a property that is written as its identifier, the name of a user property, '=' and a value.
void add(mosquitto_property*& list, const std::string& text, Said& said) {
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos) return;
    const int identifier = static_cast<unsigned char>(text[0]);
    const std::string name = text.substr(1, equals - 1).data(), value = text.substr(equals + 1).data();
    const auto size = static_cast<std::uint16_t>(value.size());
    const auto number = static_cast<std::uint32_t>(std::strtoul(value.data(), nullptr, 10));
    const int results[] = {
        // of the function for its type, success
        mosquitto_property_add_string_pair(&list, identifier, name.data(), value.data()),
        mosquitto_property_add_string(&list, identifier, value.data()),
        mosquitto_property_add_binary(&list, identifier, value.data(), size),
        mosquitto_property_add_int32(&list, identifier, number),
    };
    if (std::count(std::begin(results), std::end(results), MOSQ_ERR_SUCCESS) == 0) return;
    said.try_emplace({identifier, results[0] == MOSQ_ERR_SUCCESS ? name : ""}, value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace std::chrono_literals;
    mosquitto_property* head = nullptr;
    Said said;
    for (const auto& text : texts_of(data, size)) add(head, text, said);
    const lapi_mqtt::PropertyList list(head);
    auto from = lapi_mqtt::from_list(list.get());
    const auto expiry = said.find({MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, ""});
    const bool is_told = said.count({MQTT_PROP_USER_PROPERTY, "timeout-ms"}) != 0;
    require(from.timeout ? is_told || expiry != said.end() : expiry == said.end());
    if (expiry != said.end() && expiry->second == "1") require(from.timeout <= 1000ms);
    require(from.error.has_value() == (said.count({MQTT_PROP_USER_PROPERTY, "error"}) != 0));
    require(from.error.value_or("") == said[{MQTT_PROP_USER_PROPERTY, "error"}]);
    require(from.response_topic == said[{MQTT_PROP_RESPONSE_TOPIC, ""}]);
    require(from.correlation_data == said[{MQTT_PROP_CORRELATION_DATA, ""}]);
    require(from.content_type == said[{MQTT_PROP_CONTENT_TYPE, ""}]);
    const auto reason = lapi_mqtt::reason_of(0x87, list.get()).text;
    require(reason.find(said[{MQTT_PROP_REASON_STRING, ""}]) != std::string::npos);

    from.error = std::string(data, data + size);
    const auto again = lapi_mqtt::from_list(lapi_mqtt::to_list(from).get());
    require(again.response_topic == from.response_topic && again.correlation_data == from.correlation_data);
    require(from.response_topic.empty() ? again.timeout >= from.timeout : again.timeout == from.timeout);
    require(again.content_type == from.content_type && again.error->size() == std::min<std::size_t>(size, 1000));
    require(
        std::all_of(again.error->begin(), again.error->end(), [](char shown) { return shown >= ' ' && shown < 127; }));
    return 0;
}
