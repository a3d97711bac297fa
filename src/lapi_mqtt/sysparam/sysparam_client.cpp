#include "lapi_mqtt/sysparam/sysparam_client.h"

#include <algorithm>
#include <climits>
#include <stdexcept>

#include "lapi_mqtt/sysparam/read_reply.h"
#include "lapi_mqtt/transport_error.h"
#include "protocol/record.h"
#include "protocol/topics.h"

namespace lapi_mqtt {
namespace {

using ecu::lapi::com::Message;
using ecu::lapi::var::ParameterMap;
using Entry = ecu::lapi::pb::SystemParameterEntry;
using Kind = TransportError::Kind;

constexpr char MAYBE_WRITTEN[] = "; the parameter may or may not have been written, check with get";

[[noreturn]] void fail_malformed(const char* topic, const char* consequence) {
    throw TransportError(Kind::outcome_unknown, std::string("malformed reply on ") + topic +
                                                    " from the parameter service" + consequence);
}

std::vector<std::uint8_t> call(IRequester& transport, const char* topic,
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
        if (error.kind() != Kind::no_matching_subscribers) throw;
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

/// The change of a parameter; null when there is none. They are in ascending order.
const Entry* find(const protocol::WriteRequest& changes, std::uint32_t otaid) {
    const auto& entries = changes.entry();
    const auto found = std::lower_bound(
        entries.begin(), entries.end(), otaid,
        [](const Entry& entry, std::uint32_t wanted) { return entry.otaid() < wanted; });
    return found != entries.end() && found->otaid() == otaid ? &*found : nullptr;
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
    changes.Clear();
    ParameterMap stored;
    if (!last_read.empty()) stored = records_of(last_read);
    auto at = stored.begin();
    for (const auto& [otaid, wanted] : parameters) {
        while (at != stored.end() && at->first < otaid) ++at;
        if (at == stored.end() || at->first != otaid) {
            *changes.add_entry() = wanted;
            continue;
        }
        const auto changed =
            protocol::changed_fields(wanted, at->second, protocol::Missing::different);
        if (!changed.any()) continue;
        Entry& change = *changes.add_entry();
        change.set_otaid(wanted.otaid());
        protocol::set_fields(change, changed, wanted);
    }
}

std::pair<bool, ParameterMap> SysparamClient::write_parameters() {
    if (changes.entry().empty()) return {true, {}};
    protocol::WriteReply reply;
    std::vector<std::uint8_t> payload;
    try {
        payload = call(*transport, protocol::SYSPARAM_WRITE_TOPIC, changes);
    } catch (const TransportError& error) {
        if (error.kind() != Kind::outcome_unknown) throw;
        throw TransportError(error.kind(), std::string(error.what()) + MAYBE_WRITTEN);
    }
    ParameterMap refused;
    bool whole = reply.ParseFromArray(payload.data(), static_cast<int>(payload.size())) &&
                 reply.has_written();
    for (const auto otaid : reply.refused()) {
        const Entry* const sent = find(changes, otaid);
        whole = whole && sent != nullptr;
        if (whole) refused[otaid] = *sent;
    }
    const auto sent_count = static_cast<std::size_t>(changes.entry_size());
    if (!whole || reply.written() + refused.size() != sent_count) {
        fail_malformed(protocol::SYSPARAM_WRITE_TOPIC, MAYBE_WRITTEN);
    }
    return {refused.empty(), std::move(refused)};
}

}  // namespace lapi_mqtt

namespace ecu::lapi::var {

std::shared_ptr<ISystemParameterClient> create_sysparams_client(
    // NOLINTNEXTLINE(performance-unnecessary-value-param): as the interface has it
    std::shared_ptr<com::ITransportClient> transport) {
    auto requester = std::dynamic_pointer_cast<lapi_mqtt::IRequester>(transport);
    if (!requester) throw std::invalid_argument("the transport client is another library's");
    return std::make_shared<lapi_mqtt::SysparamClient>(std::move(requester));
}

}  // namespace ecu::lapi::var
