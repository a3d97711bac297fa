#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/mqtt/connection.h"

namespace lapi_mqtt {

using ObserverHandle = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;

/// Who observes which topic filter. Not thread-safe.
class Subscriptions {
public:
    struct Entry {
        std::string filter;
        int qos;
        RetainHandling retained;
        ObserverHandle observer;
    };

    void add(Entry entry) { entries.push_back(std::move(entry)); }

    /// True when an entry went and no other one of the same filter is left.
    bool remove(const std::string& filter, const ObserverHandle& observer);

    /// Who is to get a message on a topic, each once.
    std::vector<ObserverHandle> receivers(const std::string& topic) const;

    const std::vector<Entry>& all() const { return entries; }

private:
    std::vector<Entry> entries;
};

}  // namespace lapi_mqtt
