#pragma once

#include "dump/json.h"
#include "system_parameter_entry.pb.h"

/// Records as JSON. Apart from the JSON itself, which a program without records uses, too.
namespace dump {

/// A record with the fields that the object names.
ecu::lapi::pb::SystemParameterEntry record_of(Object object);

/// Adds all fields of a record but its OTAID to the object that was begun.
void add_fields(JsonLines& json, const ecu::lapi::pb::SystemParameterEntry& entry);

}  // namespace dump
