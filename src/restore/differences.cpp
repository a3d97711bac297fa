#include "restore/differences.h"

#include <utility>

#include "protocol/record.h"

namespace restore {

using ecu::lapi::var::ParameterMap;

Differences differences(const ParameterMap& unit, ParameterMap file) {
    Differences found;
    ParameterMap& changes = found.changes;
    auto stored = unit.begin();
    const auto is_left = [&] { return stored != unit.end(); };
    for (auto& [otaid, wanted] : file) {
        for (; is_left() && stored->first < otaid; ++stored) {
            found.not_in_file.push_back(stored->first);
        }
        if (!is_left() || stored->first != otaid) {
            changes.emplace_hint(changes.end(), otaid, std::move(wanted));
            continue;
        }
        const auto changed =
            protocol::changed_fields(wanted, stored->second, protocol::Missing::zero_or_empty);
        if (changed.any()) {
            const auto added = changes.insert(changes.end(), *stored);
            protocol::set_fields(added->second, changed, wanted);
        } else {
            ++found.same;
        }
        ++stored;
    }
    for (; is_left(); ++stored) found.not_in_file.push_back(stored->first);
    return found;
}

}  // namespace restore
