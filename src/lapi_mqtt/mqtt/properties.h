#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct mqtt5__property;

namespace lapi_mqtt {

/// The properties of a PUBLISH packet that requests and replies use.
struct PublishProperties {
    std::string response_topic;
    std::string correlation_data;
    std::string content_type;
    std::optional<std::chrono::milliseconds> timeout;     ///< how long a reply is awaited
    std::optional<std::string> error;                     ///< why a reply has no result
    std::vector<std::uint32_t> subscription_identifiers;  ///< of the broker alone
};

struct PropertyListDeleter {
    void operator()(mqtt5__property* list) const;
};
using PropertyList = std::unique_ptr<mqtt5__property, PropertyListDeleter>;

/// The properties of a SUBSCRIBE packet. Throws MqttError.
PropertyList subscription_list(std::uint32_t identifier);

/// Throws MqttError.
PropertyList to_list(const PublishProperties& properties);

PublishProperties from_list(const mqtt5__property* list);

}  // namespace lapi_mqtt
