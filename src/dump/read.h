#pragma once

#include <string>
#include <vector>

#include "dump/scanner.h"
#include "system_parameter_entry.pb.h"

namespace dump {

/// The parameters in a dump, or in JSON Lines when the first character that is not blank is "{",
/// each once. Of JSON a parameter has the fields that its object names. Throws std::runtime_error
/// "NAME:LINE: cause" for text that is neither, and where two of one OTAID say different things.
std::vector<ecu::lapi::pb::SystemParameterEntry> read_parameters(Source source,
                                                                 const std::string& name);

/// The same of a file, or of standard input for "-". Throws std::system_error, too.
std::vector<ecu::lapi::pb::SystemParameterEntry> read_file(const std::string& file);

}  // namespace dump
