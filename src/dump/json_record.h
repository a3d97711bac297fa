#pragma once

#include <optional>
#include <string>

#include "dump/scanner.h"
#include "system_parameter_entry.pb.h"

/// Records as JSON. Apart from the JSON itself, which a program without records uses, too.
namespace dump {

/// Appends all fields of a record but its OTAID, as the members of an object.
void append_fields(std::string& json, const ecu::lapi::pb::SystemParameterEntry& entry);

/// The record in the next line that is not blank, with the fields that the line's object names;
/// nothing at the end. Throws std::runtime_error "NAME:LINE: cause" for a line that is no such
/// object.
std::optional<ecu::lapi::pb::SystemParameterEntry> next_object(Scanner& scanner);

}  // namespace dump
