#include "program/clients.h"

#include <stdexcept>

std::shared_ptr<ecu::lapi::com::ITransportClient> create_transport(
    std::unique_ptr<ecu::lapi::config::Configuration>& configuration) {
    using namespace ecu::lapi;
    auto client = com::create_client(configuration, com::TransportType::mqtt);
    if (!client) throw std::runtime_error("no transport client could be created");
    return client;
}

std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client) {
    auto sysparams = ecu::lapi::var::create_sysparams_client(client);
    if (!sysparams) throw std::runtime_error("no system-parameter client could be created");
    return sysparams;
}
