#include "lapi_mqtt/sysparam/read_reply.h"

#include <google/protobuf/io/coded_stream.h>

#include "protocol/wire_format.h"
#include "sysparam.pb.h"

namespace lapi_mqtt {
namespace {

using ecu::lapi::var::ParameterMap;
using google::protobuf::io::CodedInputStream;
using Entry = ecu::lapi::pb::SystemParameterEntry;

constexpr std::uint32_t ENTRY_TAG =
    protocol::make_tag(protocol::ReadReply::kEntryFieldNumber, protocol::LENGTH_DELIMITED);
constexpr std::uint32_t COUNT_TAG =
    protocol::make_tag(protocol::ReadReply::kCountFieldNumber, protocol::VARINT);

/// False when the record is malformed, names no OTAID, or one that is there already.
bool read_record(CodedInputStream& input, ParameterMap& parameters) {
    int size = 0;
    const void* record = nullptr;
    int left = 0;  // the reply is one piece of memory
    if (!input.ReadVarintSizeAsInt(&size) || !input.GetDirectBufferPointer(&record, &left))
        return false;
    Entry entry;
    if (size > left || !entry.ParseFromArray(record, size) || !input.Skip(size)) return false;
    if (!entry.has_otaid()) return false;
    // Replies are in ascending order, so that a record's place is mostly the end.
    const auto known = parameters.size();
    parameters.try_emplace(parameters.end(), entry.otaid(), std::move(entry));
    return parameters.size() > known;
}

}  // namespace

std::optional<ParameterMap> decode_read_reply(const std::vector<std::uint8_t>& payload) {
    CodedInputStream input(payload.data(), static_cast<int>(payload.size()));
    ParameterMap parameters;
    std::optional<std::uint32_t> count;
    while (const std::uint32_t tag = input.ReadTag()) {
        std::uint32_t number = 0;
        if (tag == ENTRY_TAG) {
            if (!read_record(input, parameters)) return std::nullopt;
        } else if (tag == COUNT_TAG) {
            if (!input.ReadVarint32(&number)) return std::nullopt;
            count = number;
        } else if (!protocol::skip_field(input, tag)) {
            return std::nullopt;
        }
    }
    if (!input.ConsumedEntireMessage() || count != parameters.size()) return std::nullopt;
    return parameters;
}

}  // namespace lapi_mqtt
