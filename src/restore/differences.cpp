#include "restore/differences.h"

#include <utility>

#include "protocol/record.h"

namespace restore {

using ecu::lapi::var::ParameterMap;

Differences differences(const ParameterMap& unit, ParameterMap file) {
    Differences found;
    ParameterMap& changes = found.changes;
    auto stored = unit.begin();
    while (!file.empty()) {
        auto wanted = file.extract(file.begin());
        for (; stored != unit.end() && stored->first < wanted.key(); ++stored) {
            found.not_in_file.push_back(stored->first);
        }
        if (stored == unit.end() || stored->first != wanted.key()) {
            changes.insert(changes.end(), std::move(wanted));
            continue;
        }
        const auto changed = protocol::changed_fields(wanted.mapped(), stored->second,
                                                      protocol::Missing::zero_or_empty);
        if (changed.any()) {
            const auto added = changes.insert(changes.end(), *stored);
            protocol::set_fields(added->second, changed, wanted.mapped());
        } else {
            ++found.same;
        }
        ++stored;
    }
    for (; stored != unit.end(); ++stored) found.not_in_file.push_back(stored->first);
    return found;
}

}  // namespace restore
