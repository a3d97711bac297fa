#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "ecu/lapi/com.h"
#include "system_parameter_entry.pb.h"

/// Client of the system-parameter service.
namespace ecu::lapi::var {

/// Records by OTAID, in ascending unsigned order.
using ParameterMap = std::map<unsigned int, pb::SystemParameterEntry>;

/// Synchronous; every operation may throw std::exceptions. Used by one thread at a time.
class ISystemParameterClient {
public:
    virtual ~ISystemParameterClient() = default;

    /// Found flag and record; the record is default-constructed when the service does not hold it.
    virtual std::pair<bool, pb::SystemParameterEntry> get_parameter(std::uint32_t otaid,
                                                                    int reserved) = 0;

    /// Every parameter that the service holds.
    virtual ParameterMap get_parameters(int reserved) = 0;

    /// Hands over the parameters that the next `write_parameters` is to write. Only what differs
    /// from the last `get_parameters` is kept; `parameters` need not outlive the call.
    virtual void set_parameters(ParameterMap& parameters) = 0;

    /// Writes what `set_parameters` kept. Returns a success flag and the records that the service
    /// refused.
    virtual std::pair<bool, ParameterMap> write_parameters() = 0;
};

/// A client over `transport`, which it shares.
std::shared_ptr<ISystemParameterClient> create_sysparams_client(
    std::shared_ptr<com::ITransportClient> transport);

}  // namespace ecu::lapi::var
