#include "lapi_mqtt/mqtt/topic_filter.h"

#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace lapi_mqtt {

std::size_t shared_prefix_length(const std::string& filter) {
    constexpr char SHARED[] = "$share/";
    if (filter.rfind(SHARED, 0) != 0) return 0;
    const auto group_end = filter.find('/', sizeof SHARED - 1);
    return group_end == std::string::npos ? 0 : group_end + 1;
}

bool topic_matches(const std::string& filter, const std::string& topic) {
    const std::string own = filter.substr(shared_prefix_length(filter));
    bool matches = false;
    // libmosquitto looks at no more of a malformed filter than it needs; no broker grants one.
    return mosquitto_sub_topic_check(own.c_str()) == MOSQ_ERR_SUCCESS &&
           mosquitto_topic_matches_sub(own.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS &&
           matches;
}

}  // namespace lapi_mqtt
