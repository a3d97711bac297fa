#include "unit/sec_store_service.h"

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"

namespace unit {

using ecu::lapi::com::Message;
namespace logging = ecu::lapi::logging;

void SecStoreService::start(Store& store, ecu::lapi::com::ITransportClient& client) {
    const auto service = std::make_shared<SecStoreService>(store, client);
    client.subscribe(protocol::SECSTORE_SET_TOPIC, 1, service);
    client.subscribe(protocol::ANNOUNCEMENT_TOPIC, 1, service);
}

void SecStoreService::message(const std::string& topic, const Message& msg) {
    if (topic == protocol::ANNOUNCEMENT_TOPIC) {
        announced({msg.payload.begin(), msg.payload.end()});
    } else if (msg.retain == 0) {  // a kept message is an old one: it was stored when it was new
        store.replace_blob(msg.payload);
        logging::write(logging::NOTICE, "Stored a secure-store blob of ", msg.payload.size(),
                       " bytes");
    }
}

void SecStoreService::announced(const std::string& topic) {
    if (topic == protocol::SECSTORE_GET_TOPIC) {
        send(store.blob());
    } else if (topic == protocol::ANNOUNCEMENT_TOPIC) {
        // Our own subscription, new or renewed: a client may have announced itself in vain before.
        const std::string blob = store.blob();
        if (!blob.empty()) send(blob);
    }
}

void SecStoreService::send(const std::string& blob) {
    client.publish(protocol::SECSTORE_GET_TOPIC, Message({blob.begin(), blob.end()}));
}

}  // namespace unit
