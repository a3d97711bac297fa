#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

struct mqtt5__property;

namespace lapi_mqtt {

/// The properties of a PUBLISH packet that requests and replies use.
struct PublishProperties {
    std::string response_topic;
    std::string correlation_data;
    std::string content_type;
    std::optional<std::chrono::milliseconds> timeout;  ///< how long its sender waits for a reply
    std::optional<std::string> error;                  ///< why a reply has no result
};

struct PropertyListDeleter {
    void operator()(mqtt5__property* list) const;
};
using PropertyList = std::unique_ptr<mqtt5__property, PropertyListDeleter>;

/// Throws MqttError.
PropertyList to_list(const PublishProperties& properties);

PublishProperties from_list(const mqtt5__property* list);

/// A property that is text; empty when the list has none.
std::string read_text(const mqtt5__property* list, int identifier);

/// What the broker's CONNACK says that it accepts, as a text.
std::string broker_limits(const mqtt5__property* connack);

}  // namespace lapi_mqtt
