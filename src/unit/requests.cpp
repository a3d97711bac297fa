#include "unit/requests.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "sysparam.pb.h"

namespace unit {
namespace {

using ecu::lapi::com::Message;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using Entry = ecu::lapi::pb::SystemParameterEntry;

constexpr std::uint32_t OTAID_TAG = WireFormatLite::MakeTag(
    protocol::ReadRequest::kOtaidFieldNumber, WireFormatLite::WIRETYPE_VARINT);
constexpr std::uint32_t PACKED_OTAIDS_TAG = WireFormatLite::MakeTag(
    protocol::ReadRequest::kOtaidFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
constexpr std::uint32_t ENTRY_TAG = WireFormatLite::MakeTag(
    protocol::WriteRequest::kEntryFieldNumber, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);

/// The elements that a request may still hold.
class Allowance {
public:
    explicit Allowance(const char* name_of_elements) : name(name_of_elements) {}

    void take_one() {
        if (left-- > 0) return;
        throw std::runtime_error("the request holds more than " + std::to_string(MOST_ELEMENTS) +
                                 " " + name);
    }

private:
    const char* name;
    std::size_t left = MOST_ELEMENTS;
};

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
    Allowance allowance("OTAIDs");
    const auto take_otaid = [&](CodedInputStream& input) {
        allowance.take_one();
        return input.ReadVarint32(&otaids.emplace_back());
    };
    read_fields(request, [&](CodedInputStream& input, std::uint32_t tag) {
        if (tag == OTAID_TAG) return take_otaid(input);
        if (tag != PACKED_OTAIDS_TAG) return WireFormatLite::SkipField(&input, tag);
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
    Allowance allowance("records");
    read_fields(request, [&](CodedInputStream& input, std::uint32_t tag) {
        if (tag != ENTRY_TAG) return WireFormatLite::SkipField(&input, tag);
        allowance.take_one();
        Entry& entry = entries.emplace_back();
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
