#pragma once

#include <optional>

#include "dump/scanner.h"
#include "system_parameter_entry.pb.h"

namespace dump {

/// The next parameter in the text that `korvid get` prints, byte for byte any value; nothing at the
/// end. Throws std::runtime_error "NAME:LINE: cause" for text that is not that.
std::optional<ecu::lapi::pb::SystemParameterEntry> next_block(Scanner& scanner);

}  // namespace dump
