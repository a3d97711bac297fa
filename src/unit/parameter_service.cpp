#include "unit/parameter_service.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"
#include "protocol/wire_format.h"
#include "sysparam.pb.h"

namespace unit {
namespace {

using ecu::lapi::com::Message;

/// How many OTAIDs or records one request may hold: small ones would cost far more time and memory
/// than the message that brings them.
constexpr std::size_t MAX_ELEMENTS = std::size_t{1} << 18U;

void require_well_formed(bool is_well_formed) {
    if (!is_well_formed) throw std::runtime_error("malformed request");
}

using Bytes = std::vector<std::uint8_t>::const_iterator;

/// Throws for a request with too many elements, before each becomes an object that is many times as
/// large. `count(tag, begin, end)` tells how many are in the field with these bytes behind its tag.
template <typename Count>
void require_bounded(const Message& message, const char* name, Count count) {
    const auto& bytes = message.payload;
    google::protobuf::io::CodedInputStream input(bytes.data(), static_cast<int>(bytes.size()));
    std::size_t elements = 0;
    while (const std::uint32_t tag = input.ReadTag()) {
        const auto begin = bytes.begin() + input.CurrentPosition();
        require_well_formed(protocol::skip_field(input, tag));
        elements += count(tag, begin, bytes.begin() + input.CurrentPosition());
        if (elements > MAX_ELEMENTS) {
            throw std::runtime_error("the request holds more than " + std::to_string(MAX_ELEMENTS) +
                                     " " + name);
        }
    }
    require_well_formed(input.ConsumedEntireMessage());
}

/// The last byte of a varint is the one below 0x80. A packed field begins with its size.
std::size_t count_otaids(std::uint32_t tag, Bytes begin, Bytes end) {
    constexpr int FIELD = protocol::ReadRequest::kOtaidFieldNumber;
    const bool is_packed = tag == protocol::make_tag(FIELD, protocol::LENGTH_DELIMITED);
    if (!is_packed && tag != protocol::make_tag(FIELD, protocol::VARINT)) return 0;
    const auto varints = std::count_if(begin, end, [](auto byte) { return byte < 0x80; });
    return static_cast<std::size_t>(varints) - (is_packed ? 1 : 0);
}

std::size_t count_records(std::uint32_t tag, Bytes /*begin*/, Bytes /*end*/) {
    constexpr int FIELD = protocol::WriteRequest::kEntryFieldNumber;
    return tag == protocol::make_tag(FIELD, protocol::LENGTH_DELIMITED) ? 1 : 0;
}

template <typename Request>
Request parse(const Message& message) {
    Request request;
    const auto size = static_cast<int>(message.payload.size());
    require_well_formed(request.ParseFromArray(message.payload.data(), size));
    return request;
}

/// In ascending order and each once.
std::vector<std::uint32_t> parse_read_request(const Message& message) {
    require_bounded(message, "OTAIDs", count_otaids);
    const auto request = parse<protocol::ReadRequest>(message);
    std::vector<std::uint32_t> otaids(request.otaid().begin(), request.otaid().end());
    std::sort(otaids.begin(), otaids.end());
    otaids.erase(std::unique(otaids.begin(), otaids.end()), otaids.end());
    return otaids;
}

/// What MQTT can carry in one packet, less room for topic and properties.
constexpr std::size_t MAX_REPLY_BYTES = 268'435'455 - 1024;

void require_room(std::size_t size) {
    if (size <= MAX_REPLY_BYTES) return;
    throw std::runtime_error("the reply of more than " + std::to_string(MAX_REPLY_BYTES) +
                             " bytes is more than one MQTT message can hold");
}

Message serialized(const google::protobuf::MessageLite& message) {
    const std::size_t size = message.ByteSizeLong();
    require_room(size);
    std::vector<std::uint8_t> payload(size);
    message.SerializeWithCachedSizesToArray(payload.data());
    return Message(std::move(payload));
}

}  // namespace

void ParameterService::start(lapi_mqtt::IServiceClient& client) {
    client.serve(protocol::SYSPARAM_READ_TOPIC,
                 [this](const Message& request) { return read(request); });
    client.serve(protocol::SYSPARAM_WRITE_TOPIC,
                 [this](const Message& request) { return write(request); });
}

Message ParameterService::read(const Message& message) {
    const auto wanted = parse_read_request(message);
    protocol::ReadReply reply;
    std::size_t data_size = 0;
    const auto add = [&](Entry entry) {
        data_size += entry.data().size();
        require_room(data_size);
        *reply.add_entry() = std::move(entry);
    };
    wanted.empty() ? store.for_each(add) : store.for_each(wanted, add);
    reply.set_count(static_cast<std::uint32_t>(reply.entry_size()));
    return serialized(reply);
}

Message ParameterService::write(const Message& message) {
    require_bounded(message, "records", count_records);
    const auto request = parse<protocol::WriteRequest>(message);
    protocol::WriteReply reply;
    std::vector<const Entry*> entries;
    for (const Entry& entry : request.entry()) {
        if (!entry.has_otaid()) throw std::runtime_error("a record without OTAID");
        if (read_only.count(entry.otaid()) == 0) {
            entries.push_back(&entry);
        } else {
            reply.add_refused(entry.otaid());
        }
    }
    // The store takes many records far faster in its own order; one OTAID's stay in theirs.
    std::stable_sort(entries.begin(), entries.end(), [](const Entry* one, const Entry* other) {
        return one->otaid() < other->otaid();
    });
    store.write(entries);
    reply.set_written(static_cast<std::uint32_t>(entries.size()));
    ecu::lapi::logging::write(ecu::lapi::logging::INFO, "Wrote ", entries.size(),
                              " parameters, refused ", reply.refused_size());
    return serialized(reply);
}

}  // namespace unit
