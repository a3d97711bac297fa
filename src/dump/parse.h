#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "system_parameter_entry.pb.h"

namespace dump {

/// The parameters in the text that `korvid get` prints, byte for byte any value. Throws
/// std::runtime_error "NAME:LINE: cause" for text that is not that.
std::vector<ecu::lapi::pb::SystemParameterEntry> parse(std::string_view text,
                                                       const std::string& name);

}  // namespace dump
