#pragma once

#include "ecu/lapi/config.h"

namespace unit {

/// Asks whether another unit serves on the broker: clients would get an answer now from the one and
/// now from the other. Throws std::runtime_error when there is one, or no connection; where that
/// cannot be found out, a WARNING says why.
void require_alone(const ecu::lapi::config::Configuration& configuration);

}  // namespace unit
