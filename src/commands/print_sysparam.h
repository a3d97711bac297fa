#pragma once

#include <cstdint>
#include <string>

#include "ecu/lapi/var.h"

namespace commands {

/// The six lines that show a parameter stored under `otaid`. The data's bytes stand in them as they
/// are.
std::string compose_sysparam(std::uint32_t otaid, const ecu::lapi::pb::SystemParameterEntry& entry);

/// Writes the lines to standard output, in one write and without a flush.
void print_sysparam(const std::uint32_t& otaid, const ecu::lapi::pb::SystemParameterEntry& entry);

}  // namespace commands
