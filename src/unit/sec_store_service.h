#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lapi_mqtt/service_client.h"
#include "unit/store/store.h"

namespace unit {

/// The unit's end of the secure store. It stores the blob that a client sends; of several that wait
/// only the newest. It sends the blob when clients announce that they listen for it: one blob for
/// all that wait, and one at a time.
///
/// Before each blob it publishes a message of its own. Once that is acknowledged, every newer blob
/// that the broker had for us has arrived, so that nobody gets an older one.
///
/// Called on the dispatch thread.
class SecStoreService : public ecu::lapi::com::ISubscriptionObserver,
                        public std::enable_shared_from_this<SecStoreService> {
public:
    /// Both must live until the dispatch has ended. `transport` owns the observer, which therefore
    /// only refers to it.
    SecStoreService(Store& blobs, lapi_mqtt::IServiceClient& transport)
        : store(blobs), client(transport) {}

    /// Begins to serve. Throws TransportError.
    static void start(Store& store, lapi_mqtt::IServiceClient& client);

    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

private:
    enum class Wanted {
        no,
        unless_empty,  ///< we may have missed the announcement of a client
        yes,
    };

    void begin_round();
    void send_blob();
    void end_round(bool acknowledged, Wanted served = Wanted::no);
    void store_newest();

    Store& store;
    lapi_mqtt::IServiceClient& client;
    Wanted wanted = Wanted::no;  ///< by clients that no blob in flight serves
    bool in_flight = false;
    std::optional<std::vector<std::uint8_t>> newest;  ///< blob that is not stored yet
};

}  // namespace unit
