#pragma once

#include <memory>

#include "ecu/lapi/var.h"

/// A system-parameter client over `client`, which it shares. Throws std::runtime_error when the
/// platform gives none.
std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client);
