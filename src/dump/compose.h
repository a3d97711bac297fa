#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "system_parameter_entry.pb.h"

namespace dump {

/// The six lines that show a parameter stored under `otaid`. The data's bytes stand in them as they
/// are.
std::string compose(std::uint32_t otaid, const ecu::lapi::pb::SystemParameterEntry& entry);

/// Writes the same to the front of `buffer`, which grows when it has to, and returns its size.
std::size_t compose_into(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry);

}  // namespace dump
