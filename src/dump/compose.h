#pragma once

#include <cstdint>
#include <string>

#include "system_parameter_entry.pb.h"

namespace dump {

/// Makes `text` the six lines that show a parameter stored under `otaid`. The data's bytes stand in
/// them as they are.
void compose(std::string& text, std::uint32_t otaid,
             const ecu::lapi::pb::SystemParameterEntry& entry);

/// An OTAID in both notations: "288 - 0x120".
std::string compose_otaid(std::uint32_t otaid);

}  // namespace dump
