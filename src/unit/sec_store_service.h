#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lapi_mqtt/service_client.h"
#include "unit/store/store.h"

namespace unit {

/// The unit's end of the secure store: keeps the blob that a client sends, and sends it to clients
/// that announce that they listen for it. All that wait get one blob, and one blob at a time is on
/// its way. Before it is read from the store a message of our own goes to the broker: once that is
/// acknowledged, every new blob that the broker had for us before has arrived, so that nobody gets
/// an older one. Of blobs that wait to be stored only the newest is. Called on the dispatch thread.
class SecStoreService : public ecu::lapi::com::ISubscriptionObserver,
                        public std::enable_shared_from_this<SecStoreService> {
public:
    /// `transport` owns the observer, so it is only borrowed here; both must outlive the dispatch.
    SecStoreService(Store& blobs, lapi_mqtt::IServiceClient& transport)
        : store(blobs), client(transport) {}

    /// Begins to serve. Throws TransportError.
    static void start(Store& store, lapi_mqtt::IServiceClient& client);

    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

private:
    enum class Wanted {
        no,
        unless_empty,  ///< somebody may listen whose announcement we have missed
        yes,
    };

    void want(Wanted kind);
    void begin_round();
    void send_blob();
    bool publish_blob();
    void end_round(bool acknowledged);
    void store_newest();

    Store& store;
    lapi_mqtt::IServiceClient& client;
    Wanted wanted = Wanted::no;  ///< by those that the round in flight will not serve
    Wanted served = Wanted::no;  ///< by those that the blob on its way is for
    bool in_flight = false;
    std::optional<std::vector<std::uint8_t>> newest;  ///< blob that is not stored yet
};

}  // namespace unit
