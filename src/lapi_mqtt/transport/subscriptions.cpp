#include "lapi_mqtt/transport/subscriptions.h"

#include <algorithm>

#include "lapi_mqtt/mqtt/topic_filter.h"

namespace lapi_mqtt {

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

std::uint32_t Subscriptions::identifier_of(const std::string& filter) {
    const auto next = static_cast<std::uint32_t>(identifiers.size() + 1);
    return identifiers.emplace(filter, next).first->second;
}

std::vector<ObserverHandle> Subscriptions::receivers(
    const std::string& topic, const std::vector<std::uint32_t>& sent_for) const {
    std::vector<ObserverHandle> seen;
    std::vector<ObserverHandle> chosen;
    for (const Entry& entry : entries) {
        if (!topic_matches(entry.filter, topic)) continue;
        if (std::find(seen.begin(), seen.end(), entry.observer) != seen.end()) continue;
        seen.push_back(entry.observer);
        const auto identifier = identifiers.find(entry.filter);
        const bool meant = sent_for.empty() || (identifier != identifiers.end() &&
                                                std::find(sent_for.begin(), sent_for.end(),
                                                          identifier->second) != sent_for.end());
        if (meant) chosen.push_back(entry.observer);
    }
    return chosen;
}

}  // namespace lapi_mqtt
