#pragma once

#include <memory>
#include <string>
#include <vector>

#include "ecu/lapi/var.h"
#include "lapi_mqtt/requester.h"
#include "sysparam.pb.h"

namespace lapi_mqtt {

/// The parameter service's client over any transport client that carries requests.
class SysparamClient final : public ecu::lapi::var::ISystemParameterClient {
public:
    using ParameterMap = ecu::lapi::var::ParameterMap;
    using Entry = ecu::lapi::pb::SystemParameterEntry;

    explicit SysparamClient(std::shared_ptr<IRequester> shared_transport)
        : transport(std::move(shared_transport)) {}

    std::pair<bool, Entry> get_parameter(std::uint32_t otaid, int reserved) override;
    ParameterMap get_parameters(int reserved) override;
    void set_parameters(ParameterMap& parameters) override;
    std::pair<bool, ParameterMap> write_parameters() override;

private:
    const std::shared_ptr<IRequester> transport;

    /// The reply of the last `get_parameters` as it came: a quarter of the size of its records.
    std::vector<std::uint8_t> last_read;

    /// In ascending order of their OTAIDs.
    protocol::WriteRequest changes;
};

}  // namespace lapi_mqtt
