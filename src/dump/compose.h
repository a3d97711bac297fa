#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "system_parameter_entry.pb.h"

namespace dump {

/// The six lines that show a parameter stored under `otaid`. The data's bytes stand in them as they
/// are.
std::string compose(std::uint32_t otaid, const ecu::lapi::pb::SystemParameterEntry& entry);

/// Writes the same to the front of `buffer`, which grows when it has to, and returns its size.
std::size_t compose_into(std::string& buffer, std::uint32_t otaid,
                         const ecu::lapi::pb::SystemParameterEntry& entry);

/// An OTAID in both notations: "288 - 0x120".
std::string compose_otaid(std::uint32_t otaid);

/// True when `text` begins with the bytes of `data` as a block shows them.
bool begins_with_hex(std::string_view text, std::string_view data);

}  // namespace dump
