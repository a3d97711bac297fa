#include "secstore/sec_store.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"

namespace {

namespace com = ecu::lapi::com;
namespace logging = ecu::lapi::logging;

constexpr std::chrono::seconds RECEPTION_TIMEOUT(10);

/// Forwards to a store until it is released. The library may keep the observer for longer than the
/// store lives, and may be delivering to it at that moment.
class SecStoreObserver : public com::ISubscriptionObserver {
public:
    explicit SecStoreObserver(SecStore* receiver) : store(receiver) {}

    void message(const std::string& topic, const com::Message& msg) override {
        const std::lock_guard<std::mutex> lock(forwarding);
        if (store != nullptr) store->message(topic, msg);
    }

    /// Waits for a delivery in progress; the store is not reached afterwards.
    void release_store() {
        const std::lock_guard<std::mutex> lock(forwarding);
        store = nullptr;
    }

private:
    std::mutex forwarding;
    SecStore* store;  // guarded by forwarding
};

/// Ends the forwarding on every way out.
struct Release {
    void operator()(SecStoreObserver* observer) const { observer->release_store(); }
};

}  // namespace

SecStore::SecStore(std::shared_ptr<com::ITransportClient>& transport) : client(transport) {}

const std::string& SecStore::get_data() {
    auto reception = blob_promise.get_future();
    const auto observer = std::make_shared<SecStoreObserver>(this);
    const std::unique_ptr<SecStoreObserver, Release> forwarding(observer.get());
    client->subscribe(protocol::SECSTORE_GET_TOPIC, 0, observer);
    const auto deadline = std::chrono::steady_clock::now() + RECEPTION_TIMEOUT;
    if (reception.wait_until(deadline) == std::future_status::ready) {
        blob = reception.get();
    } else {
        logging::write(logging::WARNING, "Timeout waiting for data from SecStore data");
    }
    try {
        client->unsubscribe(protocol::SECSTORE_GET_TOPIC, observer);
    } catch (const std::exception& error) {
        // Whether a blob has arrived is settled by now.
        logging::write(logging::DEBUG, "Unsubscribing failed: ", error.what());
    }
    return blob;
}

void SecStore::set_data(const std::string& new_blob) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(new_blob.data());
    const com::Message message(std::vector<std::uint8_t>(bytes, bytes + new_blob.size()));
    client->publish(protocol::SECSTORE_SET_TOPIC, message);
    logging::write(logging::NOTICE, "Blob(", new_blob.size(), ") has been published!");
}

void SecStore::message(const std::string& topic, const com::Message& msg) {
    if (topic == protocol::SECSTORE_GET_TOPIC) {
        logging::write(logging::DEBUG, "Message on GET_TOPIC, payload: ", msg.payload.size());
        // The hand-over is for once, and a flood of blobs must not cost a copy of each.
        if (handed_over.exchange(true)) return;
        blob_promise.set_value(
            std::string(reinterpret_cast<const char*>(msg.payload.data()), msg.payload.size()));
    } else if (topic == protocol::SECSTORE_SET_TOPIC) {
        logging::write(logging::DEBUG, "Message on SET_TOPIC");
    }
}
