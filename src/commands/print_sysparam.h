#pragma once

#include <cstdint>

#include "ecu/lapi/var.h"

namespace commands {

/// Writes the six lines that show a parameter stored under `otaid` to standard output, in one write
/// and without a flush.
void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry);

}  // namespace commands
