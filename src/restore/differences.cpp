#include "restore/differences.h"

#include <algorithm>
#include <utility>

#include "protocol/record.h"

namespace restore {
namespace {

using ecu::lapi::var::ParameterMap;
using Entry = ecu::lapi::pb::SystemParameterEntry;

std::vector<std::uint32_t> without(const ParameterMap& unit, std::vector<std::uint32_t> named) {
    std::sort(named.begin(), named.end());
    std::vector<std::uint32_t> others;
    auto next = named.begin();
    for (const auto& parameter : unit) {
        while (next != named.end() && *next < parameter.first) ++next;
        if (next == named.end() || *next != parameter.first) others.push_back(parameter.first);
    }
    return others;
}

}  // namespace

Differences differences(const ParameterMap& unit, std::vector<Entry> file) {
    Differences found;
    std::vector<std::uint32_t> named;
    auto stored = unit.begin();
    for (Entry& wanted : file) {
        const auto otaid = wanted.otaid();
        named.push_back(otaid);
        // Files are in ascending order, so that a parameter's place is mostly the next.
        if (stored == unit.end() || stored->first != otaid) stored = unit.find(otaid);
        if (stored == unit.end()) {
            found.changes.emplace_hint(found.changes.end(), otaid, std::move(wanted));
            continue;
        }
        const auto changed =
            protocol::changed_fields(wanted, stored->second, protocol::Missing::zero_or_empty);
        if (changed.any()) {
            const auto added =
                found.changes.emplace_hint(found.changes.end(), otaid, stored->second);
            protocol::set_fields(added->second, changed, wanted);
        } else {
            ++found.same;
        }
        ++stored;
    }
    found.not_in_file = without(unit, std::move(named));
    return found;
}

}  // namespace restore
