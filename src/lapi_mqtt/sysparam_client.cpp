#include "lapi_mqtt/sysparam_client.h"

#include <google/protobuf/io/coded_stream.h>

#include <climits>
#include <optional>

#include "sysparam.pb.h"
#include "wire/topics.h"

namespace lapi_mqtt {
namespace {

using ecu::lapi::com::ITransportClient;
using ecu::lapi::com::Message;
using ecu::lapi::com::TransportError;
using ecu::lapi::var::ParameterMap;
using Entry = ecu::lapi::pb::SystemParameterEntry;
using Kind = TransportError::Kind;

constexpr char MAYBE_WRITTEN[] = "; the parameter may or may not have been written, check with get";

[[noreturn]] void fail_malformed(const char* topic, const char* consequence) {
    throw TransportError(Kind::unanswered, std::string("malformed reply on ") + topic +
                                               " from the parameter service" + consequence);
}

std::vector<std::uint8_t> call(ITransportClient& transport, const char* topic,
                               const google::protobuf::MessageLite& request) {
    std::vector<std::uint8_t> payload(request.ByteSizeLong());
    if (payload.size() > INT_MAX ||
        !request.SerializeToArray(payload.data(), static_cast<int>(payload.size()))) {
        throw TransportError(Kind::failed,
                             std::string("the request on ") + topic + " is too large");
    }
    try {
        return transport.request(topic, Message(std::move(payload))).payload;
    } catch (const TransportError& error) {
        if (error.kind() != Kind::no_listener) throw;
        throw TransportError(error.kind(),
                             std::string("no parameter service is listening: ") + error.what());
    }
}

constexpr std::uint32_t tag_of(int field, int wire_type) {
    return static_cast<std::uint32_t>(field) << 3U | static_cast<std::uint32_t>(wire_type);
}
constexpr std::uint32_t ENTRY_TAG = tag_of(wire::ReadReply::kEntryFieldNumber, 2);
constexpr std::uint32_t COUNT_TAG = tag_of(wire::ReadReply::kCountFieldNumber, 0);

bool decode_entry(google::protobuf::io::CodedInputStream& input, Entry& entry) {
    std::uint32_t size = 0;
    const void* bytes = nullptr;
    int available = 0;
    if (!input.ReadVarint32(&size) || size > INT_MAX) return false;
    const int wanted = static_cast<int>(size);
    if (wanted == 0) return true;
    return input.GetDirectBufferPointer(&bytes, &available) && wanted <= available &&
           entry.ParseFromArray(bytes, wanted) && input.Skip(wanted);
}

/// The records of a ReadReply, each decoded into its place: by way of a wire::ReadReply a full
/// read would build and destroy every record twice. Throws TransportError unless the reply is
/// whole and every OTAID stands in it once.
ParameterMap decode_read_reply(const std::vector<std::uint8_t>& payload) {
    google::protobuf::io::CodedInputStream input(payload.data(), static_cast<int>(payload.size()));
    ParameterMap parameters;
    std::uint32_t records = 0;
    std::optional<std::uint32_t> count;
    bool well_formed = true;
    while (well_formed) {
        const std::uint32_t tag = input.ReadTag();
        if (tag == 0) break;
        std::uint32_t announced = 0;
        if (tag == ENTRY_TAG) {
            Entry entry;
            well_formed = decode_entry(input, entry);
            const auto otaid = entry.otaid();
            parameters.emplace_hint(parameters.end(), otaid, std::move(entry));
            ++records;
        } else {
            well_formed = tag == COUNT_TAG && input.ReadVarint32(&announced);
            count = announced;
        }
    }
    const bool whole = well_formed && input.ConsumedEntireMessage() && count == records &&
                       parameters.size() == records;
    if (!whole) fail_malformed(wire::SYSPARAM_READ_TOPIC, "");
    return parameters;
}

bool same_field(bool has_one, bool has_other, bool same_value) {
    return has_one == has_other && same_value;
}

/// The fields of `wanted` that `stored` does not hold already, under its OTAID. True when there
/// are any.
bool differs(const Entry& wanted, const Entry& stored, Entry& difference) {
    difference = wanted;
    const bool same_did =
        same_field(wanted.has_did(), stored.has_did(), wanted.did() == stored.did());
    const bool same_xcpid =
        same_field(wanted.has_xcpid(), stored.has_xcpid(), wanted.xcpid() == stored.xcpid());
    const bool same_data =
        same_field(wanted.has_data(), stored.has_data(), wanted.data() == stored.data());
    if (same_did) difference.clear_did();
    if (same_xcpid) difference.clear_xcpid();
    if (same_data) difference.clear_data();
    return !(same_did && same_xcpid && same_data);
}

}  // namespace

std::pair<bool, Entry> SysparamClient::get_parameter(std::uint32_t otaid, int /*reserved*/) {
    wire::ReadRequest request;
    request.add_otaid(otaid);
    ParameterMap found = decode_read_reply(call(*transport, wire::SYSPARAM_READ_TOPIC, request));
    if (found.empty()) return {false, Entry()};
    if (found.size() > 1 || found.count(otaid) == 0) {
        fail_malformed(wire::SYSPARAM_READ_TOPIC, "");
    }
    return {true, std::move(found.at(otaid))};
}

ParameterMap SysparamClient::get_parameters(int /*reserved*/) {
    last_read = call(*transport, wire::SYSPARAM_READ_TOPIC, wire::ReadRequest());
    return decode_read_reply(last_read);
}

void SysparamClient::set_parameters(ParameterMap& parameters) {
    changes.clear();
    ParameterMap stored;
    if (!last_read.empty()) stored = decode_read_reply(last_read);
    for (const auto& [otaid, wanted] : parameters) {
        const auto found = stored.find(otaid);
        Entry difference;
        if (found == stored.end()) {
            changes[otaid] = wanted;
        } else if (differs(wanted, found->second, difference)) {
            changes[otaid] = std::move(difference);
        }
    }
}

std::pair<bool, ParameterMap> SysparamClient::write_parameters() {
    if (changes.empty()) return {true, {}};
    wire::WriteRequest request;
    for (const auto& [otaid, entry] : changes) *request.add_entry() = entry;
    wire::WriteReply reply;
    std::vector<std::uint8_t> payload;
    try {
        payload = call(*transport, wire::SYSPARAM_WRITE_TOPIC, request);
    } catch (const TransportError& error) {
        if (error.kind() != Kind::unanswered) throw;
        throw TransportError(error.kind(), std::string(error.what()) + MAYBE_WRITTEN);
    }
    ParameterMap refused;
    bool whole = reply.ParseFromArray(payload.data(), static_cast<int>(payload.size())) &&
                 reply.has_written();
    for (const auto otaid : reply.refused()) {
        const auto sent = changes.find(otaid);
        whole = whole && sent != changes.end();
        if (whole) refused.insert(*sent);
    }
    if (!whole || reply.written() + refused.size() != changes.size()) {
        fail_malformed(wire::SYSPARAM_WRITE_TOPIC, MAYBE_WRITTEN);
    }
    return {refused.empty(), std::move(refused)};
}

}  // namespace lapi_mqtt

namespace ecu::lapi::var {

std::shared_ptr<ISystemParameterClient> create_sysparams_client(
    std::shared_ptr<com::ITransportClient> transport) {
    return std::make_shared<lapi_mqtt::SysparamClient>(std::move(transport));
}

}  // namespace ecu::lapi::var
