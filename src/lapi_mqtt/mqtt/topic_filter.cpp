#include "lapi_mqtt/mqtt/topic_filter.h"

#include <string_view>

#include "lapi_mqtt/mqtt/libmosquitto.h"

namespace lapi_mqtt {
namespace {

/// Takes the first level off a filter; "#" at its end stays, as it matches all that may follow.
std::string_view take_level(std::string_view& filter) {
    const auto slash = filter.find('/');
    const std::string_view level = filter.substr(0, slash);
    filter.remove_prefix(slash == std::string_view::npos ? filter.size() : slash + 1);
    return level;
}

}  // namespace

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

bool filters_overlap(const std::string& one, const std::string& other) {
    // A slash at the end makes the end of the filter a level like any other.
    const std::string one_ended = one.substr(shared_prefix_length(one)) + "/";
    const std::string other_ended = other.substr(shared_prefix_length(other)) + "/";
    std::string_view left = one_ended;
    std::string_view right = other_ended;
    while (!left.empty() && !right.empty()) {
        const auto left_level = take_level(left);
        const auto right_level = take_level(right);
        if (left_level == "#" || right_level == "#") return true;
        if (left_level != "+" && right_level != "+" && left_level != right_level) return false;
    }
    // "a/#" also matches "a".
    return left == right || left == "#/" || right == "#/";
}

}  // namespace lapi_mqtt
