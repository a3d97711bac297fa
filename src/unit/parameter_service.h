#pragma once

#include <cstdint>
#include <set>

#include "lapi_mqtt/service_client.h"
#include "unit/store/store.h"

namespace unit {

/// Answers read and write requests from the store. Called on the dispatch thread; a request that
/// cannot be carried out throws a std::exception with the text for the requester.
class ParameterService {
public:
    ParameterService(Store& parameters, std::set<std::uint32_t> read_only_otaids)
        : store(parameters), read_only(std::move(read_only_otaids)) {}

    /// Begins to serve on `client`, which must not outlive this. Throws TransportError.
    void start(lapi_mqtt::IServiceClient& client);

    ecu::lapi::com::Message read(const ecu::lapi::com::Message& request);
    ecu::lapi::com::Message write(const ecu::lapi::com::Message& request);

private:
    Store& store;
    const std::set<std::uint32_t> read_only;
};

}  // namespace unit
