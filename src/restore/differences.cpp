#include "restore/differences.h"

#include <utility>

#include "protocol/record.h"

namespace restore {

using ecu::lapi::var::ParameterMap;

Differences differences(const ParameterMap& unit, ParameterMap file) {
    Differences found;
    auto wanted = file.begin();
    for (const auto& [otaid, stored] : unit) {
        while (wanted != file.end() && wanted->first < otaid) ++wanted;
        if (wanted == file.end() || wanted->first != otaid) {
            found.not_in_file.push_back(otaid);
            continue;
        }
        const auto changed =
            protocol::changed_fields(wanted->second, stored, protocol::Missing::zero_or_empty);
        if (!changed.any()) {
            wanted = file.erase(wanted);
            ++found.same;
            continue;
        }
        auto entry = stored;
        protocol::set_fields(entry, changed, wanted->second);
        wanted->second = std::move(entry);
    }
    found.changes = std::move(file);
    return found;
}

}  // namespace restore
