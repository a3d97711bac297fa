// Any property list is read, and what is read survives the list that is made from it.
#include "lapi_mqtt/mqtt/properties.h"

#include <algorithm>

#include "fuzz/fuzz.h"
#include "lapi_mqtt/mqtt/error.h"
#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace {

/// Adds a property that is written as its identifier, the name of a user property, '=' and a value.
/// Of the functions the one for its type succeeds.
void add(mosquitto_property*& list, const std::string& text) {
    const auto equals = text.find('=');
    if (equals == 0 || equals == std::string::npos) return;
    const int identifier = static_cast<unsigned char>(text[0]);
    const std::string name = text.substr(1, equals - 1).data(), value = text.substr(equals + 1);
    const auto size = static_cast<std::uint16_t>(value.size());
    const auto number = static_cast<std::uint32_t>(std::strtoul(value.data(), nullptr, 10));
    mosquitto_property_add_string_pair(&list, identifier, name.data(), value.data());
    mosquitto_property_add_string(&list, identifier, value.data());
    mosquitto_property_add_binary(&list, identifier, value.data(), size);
    mosquitto_property_add_int32(&list, identifier, number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    mosquitto_property* head = nullptr;
    for (const auto& text : texts_of(data, size)) add(head, text);
    const lapi_mqtt::PropertyList list(head);
    lapi_mqtt::reason_of(0x87, list.get());
    auto from = lapi_mqtt::from_list(list.get());
    from.error = std::string(data, data + size);
    const auto again = lapi_mqtt::from_list(lapi_mqtt::to_list(from).get());
    require(again.response_topic == from.response_topic);
    require(again.correlation_data == from.correlation_data);
    require(again.content_type == from.content_type);
    require(again.timeout >= from.timeout);
    const auto is_printable = [](char shown) { return shown >= ' ' && shown < 127; };
    require(again.error->size() == std::min<std::size_t>(size, 1000));
    require(std::all_of(again.error->begin(), again.error->end(), is_printable));
    return 0;
}
