#include "unit/requests.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "protocol/wire_format.h"
#include "sysparam.pb.h"

namespace unit {
namespace {

using ecu::lapi::com::Message;
using google::protobuf::io::CodedInputStream;

constexpr std::uint32_t OTAID_TAG =
    protocol::make_tag(protocol::ReadRequest::kOtaidFieldNumber, protocol::VARINT);
constexpr std::uint32_t PACKED_OTAIDS_TAG =
    protocol::make_tag(protocol::ReadRequest::kOtaidFieldNumber, protocol::LENGTH_DELIMITED);
constexpr std::uint32_t ENTRY_TAG =
    protocol::make_tag(protocol::WriteRequest::kEntryFieldNumber, protocol::LENGTH_DELIMITED);

/// Makes room for one more element, up to the limit.
template <typename Element>
Element& add_to(std::vector<Element>& elements, const char* name) {
    if (elements.size() < MAX_ELEMENTS) return elements.emplace_back();
    throw std::runtime_error("the request holds more than " + std::to_string(MAX_ELEMENTS) + " " +
                             name);
}

/// Calls `read_one` until the end of the length-delimited field that `input` stands at.
template <typename ReadOne>
bool within_field(CodedInputStream& input, ReadOne read_one) {
    int size = 0;
    if (!input.ReadVarintSizeAsInt(&size)) return false;
    const auto limit = input.PushLimit(size);
    if (input.BytesUntilLimit() != size || !read_one()) return false;
    input.PopLimit(limit);
    return true;
}

/// `take_field` gets each field's tag; false from it ends the reading with an error.
template <typename TakeField>
void read_fields(const Message& message, TakeField take_field) {
    CodedInputStream input(message.payload.data(), static_cast<int>(message.payload.size()));
    bool whole = true;
    while (whole) {
        const std::uint32_t tag = input.ReadTag();
        if (tag == 0) break;
        whole = take_field(input, tag);
    }
    if (!whole || !input.ConsumedEntireMessage()) throw std::runtime_error("malformed request");
}

}  // namespace

std::vector<std::uint32_t> parse_read_request(const Message& request) {
    std::vector<std::uint32_t> otaids;
    const auto take_otaid = [&otaids](CodedInputStream& input) {
        return input.ReadVarint32(&add_to(otaids, "OTAIDs"));
    };
    read_fields(request, [&](CodedInputStream& input, std::uint32_t tag) {
        if (tag == OTAID_TAG) return take_otaid(input);
        if (tag != PACKED_OTAIDS_TAG) return protocol::skip_field(input, tag);
        return within_field(input, [&] {
            while (input.BytesUntilLimit() > 0) {
                if (!take_otaid(input)) return false;
            }
            return true;
        });
    });
    std::sort(otaids.begin(), otaids.end());
    otaids.erase(std::unique(otaids.begin(), otaids.end()), otaids.end());
    return otaids;
}

std::vector<Entry> parse_write_request(const Message& request) {
    std::vector<Entry> entries;
    read_fields(request, [&](CodedInputStream& input, std::uint32_t tag) {
        if (tag != ENTRY_TAG) return protocol::skip_field(input, tag);
        Entry& entry = add_to(entries, "records");
        return within_field(input, [&] {
            return entry.MergeFromCodedStream(&input) && input.ConsumedEntireMessage();
        });
    });
    for (const Entry& entry : entries) {
        if (!entry.has_otaid()) throw std::runtime_error("a record without OTAID");
    }
    return entries;
}

}  // namespace unit
