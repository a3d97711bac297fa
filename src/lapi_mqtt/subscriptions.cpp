#include "lapi_mqtt/subscriptions.h"

#include <mosquitto.h>

#include <algorithm>

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

bool Subscriptions::remove(const std::string& filter, const ObserverHandle& observer) {
    const auto same = [&](const Entry& entry) {
        return entry.filter == filter && entry.observer == observer;
    };
    const auto found = std::find_if(entries.begin(), entries.end(), same);
    if (found == entries.end()) return false;
    entries.erase(found);
    return std::none_of(entries.begin(), entries.end(),
                        [&](const Entry& entry) { return entry.filter == filter; });
}

std::vector<ObserverHandle> Subscriptions::observers_of(const std::string& topic) const {
    std::vector<ObserverHandle> observers;
    for (const Entry& entry : entries) {
        if (!topic_matches(entry.filter, topic)) continue;
        if (std::find(observers.begin(), observers.end(), entry.observer) == observers.end()) {
            observers.push_back(entry.observer);
        }
    }
    return observers;
}

}  // namespace lapi_mqtt
