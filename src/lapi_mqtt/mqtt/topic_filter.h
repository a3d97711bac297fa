#pragma once

#include <string>

namespace lapi_mqtt {

/// How much of a filter is "$share/GROUP/"; what follows is what it receives.
std::size_t shared_prefix_length(const std::string& filter);

/// True when `topic` is among those of the topic filter, as MQTT matches them.
bool topic_matches(const std::string& filter, const std::string& topic);

}  // namespace lapi_mqtt
