#include "restore/differences.h"

#include <utility>

namespace restore {
namespace {

using ecu::lapi::var::ParameterMap;
using Entry = ecu::lapi::pb::SystemParameterEntry;

bool shown_alike(const Entry& one, const Entry& other) {
    return one.did() == other.did() && one.xcpid() == other.xcpid() && one.data() == other.data();
}

/// Drops the fields that `stored` does not have and shows just so.
void drop_fields_without_effect(Entry& wanted, const Entry& stored) {
    if (!stored.has_did() && wanted.did() == 0) wanted.clear_did();
    if (!stored.has_xcpid() && wanted.xcpid() == 0) wanted.clear_xcpid();
    if (!stored.has_data() && wanted.data().empty()) wanted.clear_data();
}

}  // namespace

Differences differences(const ParameterMap& unit, std::vector<Entry> dump) {
    Differences found;
    std::size_t known = 0;
    auto stored = unit.begin();
    for (Entry& wanted : dump) {
        const auto otaid = wanted.otaid();
        // Dumps are in ascending order, so that a parameter's place is mostly the next.
        if (stored == unit.end() || stored->first != otaid) stored = unit.find(otaid);
        const bool is_known = stored != unit.end();
        if (is_known && shown_alike(wanted, stored->second)) {
            ++found.same;
        } else {
            if (is_known) drop_fields_without_effect(wanted, stored->second);
            found.changes.emplace_hint(found.changes.end(), otaid, std::move(wanted));
        }
        if (is_known) {
            ++known;
            ++stored;
        }
    }
    found.not_in_dump = unit.size() - known;
    return found;
}

}  // namespace restore
