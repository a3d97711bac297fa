#include "unit/sec_store_service.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"

namespace unit {

using ecu::lapi::com::Message;
namespace logging = ecu::lapi::logging;
namespace {

/// Without a connection there is nobody to serve, and the transport has said why.
void report_unless_disconnected(const std::exception& error) {
    using lapi_mqtt::TransportError;
    const auto* failure = dynamic_cast<const TransportError*>(&error);
    if (failure && failure->kind() == TransportError::Kind::not_connected) return;
    logging::write(logging::ERROR, "Cannot send the secure-store blob: ", error.what());
}

}  // namespace

void SecStoreService::start(Store& store, lapi_mqtt::IServiceClient& client) {
    const auto service = std::make_shared<SecStoreService>(store, client);
    // In this order, so that the second subscription is announced to ourselves, too.
    client.subscribe(protocol::ANNOUNCEMENT_TOPIC, 1, service);
    client.subscribe(protocol::SECSTORE_SET_TOPIC, 1, service);
}

void SecStoreService::message(const std::string& topic, const Message& msg) {
    if (topic == protocol::SECSTORE_SET_TOPIC) {
        if (!newest) client.post([self = shared_from_this()] { self->store_newest(); });
        newest = msg.payload;
        return;
    }
    const std::string subscribed(msg.payload.begin(), msg.payload.end());
    if (subscribed == protocol::SECSTORE_GET_TOPIC) {
        wanted = Wanted::yes;
    } else if (subscribed == protocol::ANNOUNCEMENT_TOPIC) {
        // Our own subscription, new or renewed: clients may have announced themselves before it.
        wanted = std::max(wanted, Wanted::unless_empty);
    } else {
        return;
    }
    if (!in_flight) begin_round();
}

void SecStoreService::store_newest() {
    if (!newest) return;  // stored already, for a client that waited
    const auto blob = *std::exchange(newest, std::nullopt);
    try {
        store.replace_blob(blob);
        logging::write(logging::NOTICE, "Stored a secure-store blob of ", blob.size(), " bytes");
    } catch (const std::exception& error) {
        logging::write(logging::ERROR, "Cannot store a secure-store blob of ", blob.size(),
                       " bytes: ", error.what());
    }
}

void SecStoreService::begin_round() {
    try {
        // A message without the name of a topic means nothing to anybody.
        client.publish(protocol::ANNOUNCEMENT_TOPIC, Message(),
                       [self = shared_from_this()](bool acknowledged) {
                           acknowledged ? self->send_blob() : self->end_round(false);
                       });
        in_flight = true;
    } catch (const std::exception& error) {
        report_unless_disconnected(error);
    }
}

void SecStoreService::send_blob() {
    store_newest();
    const Wanted served = std::exchange(wanted, Wanted::no);
    const auto publish = [&](const Message& blob) {
        client.publish(protocol::SECSTORE_GET_TOPIC, blob,
                       [self = shared_from_this(), served](bool acknowledged) {
                           self->end_round(acknowledged, served);
                       });
    };
    try {
        const Message blob(store.blob());
        if (served == Wanted::yes || !blob.payload.empty()) return publish(blob);
        end_round(true);
    } catch (const std::exception& error) {
        report_unless_disconnected(error);
        try {
            publish(Message());  // an empty blob ends the wait of clients
        } catch (const std::exception&) {
            end_round(false, served);
        }
    }
}

/// Without the acknowledgement some clients may have got nothing. They are served once our own
/// announcement arrives on the next connection.
void SecStoreService::end_round(bool acknowledged, Wanted served) {
    in_flight = false;
    if (!acknowledged) {
        wanted = std::max(wanted, served);
    } else if (wanted != Wanted::no) {
        begin_round();
    }
}

}  // namespace unit
