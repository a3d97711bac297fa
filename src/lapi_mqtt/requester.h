#pragma once

#include <string>

#include "ecu/lapi/com.h"

namespace lapi_mqtt {

/// What the parameter service's client needs of the transport client, which is one.
class IRequester {
public:
    virtual ~IRequester() = default;

    /// Sends a request and returns its reply. Throws TransportError. Not from the dispatch thread.
    virtual ecu::lapi::com::Message request(const std::string& topic,
                                            const ecu::lapi::com::Message& message) = 0;
};

}  // namespace lapi_mqtt
