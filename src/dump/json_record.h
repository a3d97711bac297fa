#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "dump/json.h"
#include "system_parameter_entry.pb.h"

/// Records as JSON. Apart from the JSON itself, which a program without records uses, too.
namespace dump {

/// The next object as a record with the fields that it names.
std::optional<ecu::lapi::pb::SystemParameterEntry> next_json_record(Scanner& scanner);

/// A record as a line, with its end. Valid until the next line is composed.
std::string_view json_line(const ecu::lapi::pb::SystemParameterEntry& entry);

/// All fields of a record but its OTAID. Refers to the record.
std::vector<Member> members_of(const ecu::lapi::pb::SystemParameterEntry& entry);

}  // namespace dump
