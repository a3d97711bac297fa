#include "lapi_mqtt/sysparam/sysparam_client.h"

#include <climits>

#include "lapi_mqtt/sysparam/read_reply.h"
#include "protocol/topics.h"
#include "sysparam.pb.h"

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

/// Throws TransportError for what is not a whole reply.
ParameterMap records_of(const std::vector<std::uint8_t>& payload) {
    auto records = decode_read_reply(payload);
    if (!records) fail_malformed(protocol::SYSPARAM_READ_TOPIC, "");
    return std::move(*records);
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
    protocol::ReadRequest request;
    request.add_otaid(otaid);
    ParameterMap found = records_of(call(*transport, protocol::SYSPARAM_READ_TOPIC, request));
    if (found.empty()) return {false, Entry()};
    if (found.size() > 1 || found.count(otaid) == 0) {
        fail_malformed(protocol::SYSPARAM_READ_TOPIC, "");
    }
    return {true, std::move(found.at(otaid))};
}

ParameterMap SysparamClient::get_parameters(int /*reserved*/) {
    last_read = call(*transport, protocol::SYSPARAM_READ_TOPIC, protocol::ReadRequest());
    return records_of(last_read);
}

void SysparamClient::set_parameters(ParameterMap& parameters) {
    changes.clear();
    ParameterMap stored;
    if (!last_read.empty()) stored = records_of(last_read);
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
    protocol::WriteRequest request;
    for (const auto& [otaid, entry] : changes) *request.add_entry() = entry;
    protocol::WriteReply reply;
    std::vector<std::uint8_t> payload;
    try {
        payload = call(*transport, protocol::SYSPARAM_WRITE_TOPIC, request);
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
        fail_malformed(protocol::SYSPARAM_WRITE_TOPIC, MAYBE_WRITTEN);
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
