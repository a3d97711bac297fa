#include "lapi_mqtt/read_reply.h"

#include "lapi_mqtt/wire_reader.h"
#include "sysparam.pb.h"

namespace lapi_mqtt {
namespace {

using ecu::lapi::var::ParameterMap;
using Entry = ecu::lapi::pb::SystemParameterEntry;

/// The fields of a record, before its place in the map is known.
struct Fields {
    std::uint32_t otaid = 0;
    std::optional<std::uint32_t> did;
    std::optional<std::uint32_t> xcpid;
    std::optional<WireReader> data;
};

std::optional<Fields> decode_fields(WireReader reader) {
    Fields fields;
    while (const std::uint64_t tag = reader.tag()) {
        switch (tag) {
            case tag_of(Entry::kOtaidFieldNumber, VARINT):
                fields.otaid = reader.number();
                break;
            case tag_of(Entry::kDidFieldNumber, VARINT):
                fields.did = reader.number();
                break;
            case tag_of(Entry::kXcpidFieldNumber, VARINT):
                fields.xcpid = reader.number();
                break;
            case tag_of(Entry::kDataFieldNumber, LENGTH_DELIMITED):
                fields.data = reader.bytes();
                break;
            default:
                reader.skip(tag);
        }
    }
    if (!reader.is_good()) return std::nullopt;
    return fields;
}

/// False when the record is malformed or its OTAID is there already. Replies are in ascending
/// order, so that a record's place is mostly the end.
bool add_record(ParameterMap& parameters, const WireReader& record) {
    const auto fields = decode_fields(record);
    if (!fields) return false;
    const auto known = parameters.size();
    Entry& entry = parameters.try_emplace(parameters.end(), fields->otaid)->second;
    entry.set_otaid(fields->otaid);
    if (fields->did) entry.set_did(*fields->did);
    if (fields->xcpid) entry.set_xcpid(*fields->xcpid);
    if (fields->data) entry.set_data(fields->data->data(), fields->data->size());
    return parameters.size() > known;
}

}  // namespace

std::optional<ParameterMap> decode_read_reply(const std::vector<std::uint8_t>& payload) {
    WireReader reader(payload.data(), payload.size());
    ParameterMap parameters;
    std::optional<std::uint32_t> count;
    while (const std::uint64_t tag = reader.tag()) {
        switch (tag) {
            case tag_of(wire::ReadReply::kEntryFieldNumber, LENGTH_DELIMITED):
                if (!add_record(parameters, reader.bytes())) return std::nullopt;
                break;
            case tag_of(wire::ReadReply::kCountFieldNumber, VARINT):
                count = reader.number();
                break;
            default:
                reader.skip(tag);
        }
    }
    if (!reader.is_good() || count != parameters.size()) return std::nullopt;
    return parameters;
}

}  // namespace lapi_mqtt
