#include "lapi_mqtt/transport/subscriptions.h"

#include <algorithm>

#include "lapi_mqtt/mqtt/topic_filter.h"

namespace lapi_mqtt {

bool Subscriptions::remove(const std::string& filter, const ObserverHandle& observer) {
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const Entry& entry) {
        return entry.filter == filter && entry.observer == observer;
    });
    if (found == entries.end()) return false;
    entries.erase(found);
    return std::none_of(entries.begin(), entries.end(),
                        [&](const Entry& entry) { return entry.filter == filter; });
}

std::vector<ObserverHandle> Subscriptions::receivers(const std::string& topic) const {
    std::vector<ObserverHandle> chosen;
    for (const Entry& entry : entries) {
        const bool is_new = std::find(chosen.begin(), chosen.end(), entry.observer) == chosen.end();
        if (is_new && topic_matches(entry.filter, topic)) chosen.push_back(entry.observer);
    }
    return chosen;
}

}  // namespace lapi_mqtt
