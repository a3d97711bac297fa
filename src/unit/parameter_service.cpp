#include "unit/parameter_service.h"

#include <algorithm>
#include <stdexcept>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"
#include "sysparam.pb.h"
#include "unit/requests.h"

namespace unit {
namespace {

using ecu::lapi::com::Message;

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
    auto entries = parse_write_request(message);
    const auto is_writable = [this](const Entry& entry) {
        return read_only.count(entry.otaid()) == 0;
    };
    const auto refused = std::stable_partition(entries.begin(), entries.end(), is_writable);
    protocol::WriteReply reply;
    std::for_each(refused, entries.end(),
                  [&reply](const Entry& entry) { reply.add_refused(entry.otaid()); });
    entries.erase(refused, entries.end());
    // The store takes many records far faster in its own order; one OTAID's stay in theirs.
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& one, const Entry& other) {
        return one.otaid() < other.otaid();
    });
    store.write(entries);
    reply.set_written(static_cast<std::uint32_t>(entries.size()));
    ecu::lapi::logging::write(ecu::lapi::logging::INFO, "Wrote ", entries.size(),
                              " parameters, refused ", reply.refused_size());
    return serialized(reply);
}

}  // namespace unit
