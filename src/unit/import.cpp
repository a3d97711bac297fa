#include "unit/import.h"

#include <iostream>
#include <stdexcept>

#include "program/input.h"
#include "unit/options.h"

namespace unit {

using program::input_name;

void import_into(Store& store, const std::vector<Entry>& entries, const std::string& name,
                 bool replace) {
    if (replace && entries.empty()) {
        throw std::runtime_error(input_name(name) +
                                 " holds no parameters: the store was not replaced");
    }
    const ImportResult result = store.import(entries, replace);
    std::cerr << PROGRAM_NAME << ": imported " << entries.size() << " parameters from "
              << input_name(name) << ": " << result.added << " added, " << result.changed
              << " changed, " << result.unchanged << " unchanged; "
              << (replace ? "removed " : "the store holds ") << result.others << " others"
              << std::endl;
}

}  // namespace unit
