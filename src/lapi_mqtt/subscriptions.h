#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"

namespace lapi_mqtt {

using ObserverHandle = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;

/// True when `topic` is among those of the topic filter, as MQTT matches them.
bool topic_matches(const std::string& filter, const std::string& topic);

/// Who observes which topic filter. Not thread-safe.
class Subscriptions {
public:
    struct Entry {
        std::string filter;
        int qos;
        ObserverHandle observer;
    };

    void add(Entry entry) { entries.push_back(std::move(entry)); }

    /// True when an entry went and no other one of the same filter is left.
    bool remove(const std::string& filter, const ObserverHandle& observer);

    /// Each observer once, however many of its filters match.
    std::vector<ObserverHandle> observers_of(const std::string& topic) const;

    const std::vector<Entry>& all() const { return entries; }

private:
    std::vector<Entry> entries;
};

}  // namespace lapi_mqtt
