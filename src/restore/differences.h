#pragma once

#include <cstddef>
#include <vector>

#include "ecu/lapi/var.h"

namespace restore {

/// What a dump would change in a unit.
struct Differences {
    /// The parameters that the unit has otherwise or not at all, as they are to be. A field
    /// that the unit does not have and the dump shows as 0 or as empty is left out, and so not
    /// sent.
    ecu::lapi::var::ParameterMap changes;

    std::size_t same = 0;         ///< parameters that the unit has as the dump has them
    std::size_t not_in_dump = 0;  ///< parameters that only the unit has
};

/// A dump shows a field that is not there as 0 or as empty; such a field is no difference. `dump`
/// names each OTAID once.
Differences differences(const ecu::lapi::var::ParameterMap& unit,
                        std::vector<ecu::lapi::pb::SystemParameterEntry> dump);

}  // namespace restore
