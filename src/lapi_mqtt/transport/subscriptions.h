#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/com.h"

namespace lapi_mqtt {

using ObserverHandle = std::shared_ptr<ecu::lapi::com::ISubscriptionObserver>;

/// Who observes which topic filter. Not thread-safe.
class Subscriptions {
public:
    struct Entry {
        std::string filter;
        int qos;
        ObserverHandle observer;
    };

    void add(Entry entry) { entries.push_back(std::move(entry)); }

    /// The subscription identifier of a filter, from 1 on; the broker names it in what it sends.
    std::uint32_t identifier_of(const std::string& filter);

    /// True when an entry went and no other one of the same filter is left.
    bool remove(const std::string& filter, const ObserverHandle& observer);

    /// Who is to get a message that the broker sent for the subscriptions in `identifiers`. A
    /// broker may send one message once for each filter that matches; an observer gets it once,
    /// with the first of its filters. Without identifiers each observer of the topic gets it.
    std::vector<ObserverHandle> receivers(const std::string& topic,
                                          const std::vector<std::uint32_t>& identifiers) const;

    const std::vector<Entry>& all() const { return entries; }

private:
    std::vector<Entry> entries;
    std::map<std::string, std::uint32_t> identifiers;  ///< by filter
};

}  // namespace lapi_mqtt
