#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "system_parameter_entry.pb.h"

namespace dump {

/// The parameters in the text that `korvid get` prints, byte for byte any value. Throws
/// std::runtime_error "NAME:LINE: cause" for text that is not that. `progress`, where there is one,
/// is told of how many bytes of how many are parsed, at each parameter.
std::vector<ecu::lapi::pb::SystemParameterEntry> parse(
    std::string_view text, const std::string& name,
    const std::function<void(std::uint64_t done, std::uint64_t total)>& progress = {});

}  // namespace dump
