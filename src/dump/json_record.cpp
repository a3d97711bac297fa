#include "dump/json_record.h"

#include <utility>

namespace dump {

using Entry = ecu::lapi::pb::SystemParameterEntry;

std::optional<Entry> next_json_record(Scanner& scanner) {
    auto object = next_object(scanner);
    if (!object) return std::nullopt;
    Entry entry;
    entry.set_otaid(object->otaid);
    if (object->did) entry.set_did(*object->did);
    if (object->xcpid) entry.set_xcpid(*object->xcpid);
    if (object->data) entry.set_data(std::move(*object->data));
    return entry;
}

std::vector<Member> members_of(const Entry& entry) {
    return {{"did", std::uint64_t{entry.did()}},
            {"xcpid", std::uint64_t{entry.xcpid()}},
            {nullptr, Bytes{entry.data()}}};
}

std::string_view json_line(const Entry& entry) {
    auto members = members_of(entry);
    members.insert(members.begin(), {"otaid", std::uint64_t{entry.otaid()}});
    return json_line(members);
}

}  // namespace dump
