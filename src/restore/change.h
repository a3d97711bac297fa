#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "system_parameter_entry.pb.h"

namespace restore {

/// A parameter that differs.
struct Change {
    std::uint32_t otaid;
    const ecu::lapi::pb::SystemParameterEntry* was;  ///< null when the unit does not have it
    const ecu::lapi::pb::SystemParameterEntry* is;   ///< null when the file does not name it
    bool refused;
};

/// One line, with its end, that tells how the parameter changes: the fields that differ, as they
/// were and as they are, or all of them of a parameter that only one side has. Printable ASCII
/// only: a value of nothing but printable characters, tabs and line ends is quoted, with C's
/// escapes, any other shown in hexadecimal. Of a long value the part is shown where the two begin
/// to differ.
std::string change_line(const Change& change);

/// The same as a line of JSON, with all fields of both sides. Valid until the next one.
std::string_view change_json(const Change& change);

}  // namespace restore
