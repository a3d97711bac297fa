#pragma once

#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "unit/store.h"

namespace unit {

/// The unit's end of the secure store: sends the blob when a client announces that it listens for
/// it, and keeps the blob that a client sends. Called on the delivery thread.
class SecStoreService : public ecu::lapi::com::ISubscriptionObserver {
public:
    /// `transport` owns the observer, so it is only borrowed here; both must outlive the delivery.
    SecStoreService(Store& blobs, ecu::lapi::com::ITransportClient& transport)
        : store(blobs), client(transport) {}

    /// Begins to serve. Throws TransportError.
    static void start(Store& store, ecu::lapi::com::ITransportClient& client);

    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

private:
    void announced(const std::string& topic);
    void send(const std::string& blob);

    Store& store;
    ecu::lapi::com::ITransportClient& client;
};

}  // namespace unit
