#pragma once

#include "system_parameter_entry.pb.h"

/// What of a record another one has to be given.
namespace protocol {

/// What a field that the stored record does not have counts as.
enum class Missing { different, zero_or_empty };

struct ChangedFields {
    bool did;
    bool xcpid;
    bool data;

    bool any() const { return did || xcpid || data; }
};

/// The fields that `wanted` has and `stored` does not have alike.
inline ChangedFields changed_fields(const ecu::lapi::pb::SystemParameterEntry& wanted,
                                    const ecu::lapi::pb::SystemParameterEntry& stored,
                                    Missing missing) {
    const bool any = missing == Missing::zero_or_empty;
    return {
        wanted.has_did() && !((any || stored.has_did()) && wanted.did() == stored.did()),
        wanted.has_xcpid() && !((any || stored.has_xcpid()) && wanted.xcpid() == stored.xcpid()),
        wanted.has_data() && !((any || stored.has_data()) && wanted.data() == stored.data()),
    };
}

/// Gives `record` these fields of `wanted`.
inline void set_fields(ecu::lapi::pb::SystemParameterEntry& record, const ChangedFields& fields,
                       const ecu::lapi::pb::SystemParameterEntry& wanted) {
    if (fields.did) record.set_did(wanted.did());
    if (fields.xcpid) record.set_xcpid(wanted.xcpid());
    if (fields.data) record.set_data(wanted.data());
}

}  // namespace protocol
