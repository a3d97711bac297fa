#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "system_parameter_entry.pb.h"

namespace dump {

/// The six lines that show a parameter stored under `otaid`, at the front of `buffer`, which grows
/// when it has to. The data's bytes stand in them as they are.
std::string_view compose(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry);

/// An OTAID in both notations: "288 - 0x120".
std::string compose_otaid(std::uint32_t otaid);

}  // namespace dump
