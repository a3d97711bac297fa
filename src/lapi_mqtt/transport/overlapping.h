#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/transport/subscriptions.h"

namespace lapi_mqtt {

/// Subscriptions whose filters overlap with others of the same client go over a second client. A
/// broker may send a message once, or once for each filter that matches, and nothing in the message
/// tells which; of filters that do not overlap every broker sends it once.
class Overlapping {
public:
    using ClientHandle = std::unique_ptr<ecu::lapi::com::ITransportClient>;
    using Message = ecu::lapi::com::Message;

    /// Hands a message to an observer, unless it gets it by a subscription of the first client.
    using Forward = std::function<void(const ObserverHandle& observer, const std::string& topic,
                                       const Message& message)>;

    /// `make_client` makes the second client when it is needed. `forward` is called on its delivery
    /// thread.
    Overlapping(std::function<ClientHandle()> make_client, Forward forward);

    /// Throws TransportError.
    void subscribe(const std::string& topic, int qos, const ObserverHandle& observer);
    void unsubscribe(const std::string& topic, const ObserverHandle& observer);
    void disconnect();
    void stop();

private:
    const std::function<ClientHandle()> make;
    const Forward forward;

    // Of the thread that calls the client's operations.
    std::map<ObserverHandle, ObserverHandle> stand_ins;  ///< by observer, one for each
    ClientHandle client;
};

}  // namespace lapi_mqtt
