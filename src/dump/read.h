#pragma once

#include <string>

#include "dump/scanner.h"
#include "ecu/lapi/var.h"

namespace dump {

/// The parameters in a dump, or in JSON Lines when the first character that is not blank is "{".
/// Of JSON a parameter has the fields that its object names. Throws std::runtime_error
/// "NAME:LINE: cause" for text that is neither, and where two of one OTAID say different things.
ecu::lapi::var::ParameterMap read_parameters(Source source, const std::string& name);

/// The same of a file, or of standard input for "-". Throws std::system_error, too.
ecu::lapi::var::ParameterMap read_file(const std::string& file);

}  // namespace dump
