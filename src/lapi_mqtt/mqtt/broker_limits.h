#pragma once

#include <string>

struct mqtt5__property;

namespace lapi_mqtt {

/// What the broker's CONNACK says that it accepts, as a text.
std::string broker_limits(const mqtt5__property* connack);

}  // namespace lapi_mqtt
