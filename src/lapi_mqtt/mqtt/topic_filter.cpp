#include "lapi_mqtt/mqtt/topic_filter.h"

#include <mosquitto.h>

namespace lapi_mqtt {

bool topic_matches(const std::string& filter, const std::string& topic) {
    constexpr char SHARED[] = "$share/";
    std::string own = filter;
    if (own.rfind(SHARED, 0) == 0) {  // "$share/GROUP/FILTER" receives what FILTER does
        const auto group_end = own.find('/', sizeof SHARED - 1);
        if (group_end == std::string::npos) return false;
        own.erase(0, group_end + 1);
    }
    bool matches = false;
    return mosquitto_topic_matches_sub(own.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS &&
           matches;
}

}  // namespace lapi_mqtt
