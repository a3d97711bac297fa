#pragma once

#include <memory>

#include "ecu/lapi/com.h"
#include "ecu/lapi/var.h"

/// The platform's clients; it may give none, which is an error like any other here.

/// A transport client; takes `configuration` over as the platform does. Throws std::runtime_error
/// when the platform gives none.
std::shared_ptr<ecu::lapi::com::ITransportClient> create_transport(
    std::unique_ptr<ecu::lapi::config::Configuration>& configuration);

/// A system-parameter client over `client`, which it shares. Throws std::runtime_error when the
/// platform gives none.
std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client);
