#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ecu/lapi/var.h"

namespace restore {

/// What a file of parameters would change in a unit.
struct Differences {
    /// The parameters that the unit has otherwise or not at all, as they are to be.
    ecu::lapi::var::ParameterMap changes;

    std::size_t same = 0;                    ///< parameters that the unit has as the file has them
    std::vector<std::uint32_t> not_in_file;  ///< parameters that only the unit has
};

/// A field that an entry of the file does not have is no difference, nor is one that the unit does
/// not have and the file shows as 0 or as empty, as a dump does.
Differences differences(const ecu::lapi::var::ParameterMap& unit,
                        ecu::lapi::var::ParameterMap file);

}  // namespace restore
