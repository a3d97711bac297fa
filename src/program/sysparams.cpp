#include "program/sysparams.h"

#include <iostream>
#include <stdexcept>

namespace program {

std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client) {
    auto sysparams = ecu::lapi::var::create_sysparams_client(client);
    if (!sysparams) throw std::runtime_error("no system-parameter client could be created");
    return sysparams;
}

void report_refused(const ecu::lapi::var::ParameterMap& refused) {
    std::cerr << "Failed to write system parameters with OTAID:";
    for (const auto& parameter : refused) std::cerr << " " << parameter.first;
    std::cerr << std::endl;
}

}  // namespace program
