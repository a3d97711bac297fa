#include "program/sysparams.h"

#include <stdexcept>

std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client) {
    auto sysparams = ecu::lapi::var::create_sysparams_client(client);
    if (!sysparams) throw std::runtime_error("no system-parameter client could be created");
    return sysparams;
}
