#pragma once

#include <string>
#include <vector>

#include "unit/store/store.h"

namespace unit {

/// The parameters of a dump or of JSON Lines in the file `name`, or on standard input for "-".
/// Throws std::exception that names the file, and the line if it is bad.
std::vector<Entry> read_import(const std::string& name);

/// Puts them into the store and tells on standard error what that changed. With `replace` the store
/// then holds nothing else; a dump without any parameter is refused for that. Throws
/// std::runtime_error.
void import_into(Store& store, const std::vector<Entry>& entries, const std::string& name,
                 bool replace);

}  // namespace unit
