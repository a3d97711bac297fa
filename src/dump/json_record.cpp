#include "dump/json_record.h"

#include <utility>

namespace dump {

using Entry = ecu::lapi::pb::SystemParameterEntry;

Entry record_of(Object object) {
    Entry entry;
    entry.set_otaid(object.otaid);
    if (object.did) entry.set_did(*object.did);
    if (object.xcpid) entry.set_xcpid(*object.xcpid);
    if (object.data) entry.set_data(std::move(*object.data));
    return entry;
}

void add_fields(JsonLines& json, const Entry& entry) {
    json.number("did", entry.did());
    json.number("xcpid", entry.xcpid());
    json.value(entry.data());
}

}  // namespace dump
