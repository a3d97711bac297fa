#pragma once

#include <cstdint>
#include <string>

#include "system_parameter_entry.pb.h"

namespace restore {

/// One line, with its end, that tells how a parameter changes: the fields that differ, as they were
/// and as they are, or all of them when it is new (`was` is null). Printable ASCII only: a value of
/// nothing but printable characters, tabs and line ends is quoted, with C's escapes, any other
/// shown in hexadecimal. Of a long value the part is shown where the two begin to differ.
std::string change_line(std::uint32_t otaid, const ecu::lapi::pb::SystemParameterEntry* was,
                        const ecu::lapi::pb::SystemParameterEntry& is);

}  // namespace restore
