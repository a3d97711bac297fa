#pragma once

#include <string>
#include <vector>

#include "unit/store/store.h"

namespace unit {

/// Puts the parameters of the file `name` ("-": standard input) into the store and reports on
/// standard error what that changed. With `replace` the store then holds nothing else; a file
/// without any parameter is refused for that. Throws std::runtime_error.
void import_into(Store& store, const std::vector<Entry>& entries, const std::string& name,
                 bool replace);

}  // namespace unit
