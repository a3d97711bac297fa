#pragma once

#include <string>

namespace lapi_mqtt {

/// True when `topic` is among those of the topic filter, as MQTT matches them.
bool topic_matches(const std::string& filter, const std::string& topic);

}  // namespace lapi_mqtt
