#pragma once

#include <memory>

#include "ecu/lapi/var.h"

namespace program {

/// A system-parameter client over `client`, which it shares. Throws std::runtime_error when the
/// platform gives none.
std::shared_ptr<ecu::lapi::var::ISystemParameterClient> create_sysparams(
    const std::shared_ptr<ecu::lapi::com::ITransportClient>& client);

/// Names the parameters that a write has not written on standard error.
void report_refused(const ecu::lapi::var::ParameterMap& refused);

}  // namespace program
