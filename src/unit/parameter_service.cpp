#include "unit/parameter_service.h"

#include <stdexcept>

#include "ecu/lapi/logging.h"
#include "protocol/topics.h"
#include "sysparam.pb.h"

namespace unit {
namespace {

using ecu::lapi::com::Message;

/// What MQTT can carry in one packet, less room for topic and properties.
constexpr std::size_t MOST_REPLY_BYTES = 268'435'455 - 1024;

template <typename Request>
Request parse(const Message& message) {
    Request request;
    if (!request.ParseFromArray(message.payload.data(), static_cast<int>(message.payload.size()))) {
        throw std::runtime_error("malformed request");
    }
    return request;
}

Message serialized(const google::protobuf::MessageLite& reply) {
    const std::size_t size = reply.ByteSizeLong();
    if (size > MOST_REPLY_BYTES) {
        throw std::runtime_error("the reply of " + std::to_string(size) +
                                 " bytes is more than one MQTT message can hold");
    }
    std::vector<std::uint8_t> payload(size);
    reply.SerializeWithCachedSizesToArray(payload.data());
    return Message(std::move(payload));
}

}  // namespace

void ParameterService::start(ecu::lapi::com::ITransportClient& client) {
    client.serve(protocol::SYSPARAM_READ_TOPIC,
                 [this](const Message& request) { return read(request); });
    client.serve(protocol::SYSPARAM_WRITE_TOPIC,
                 [this](const Message& request) { return write(request); });
}

Message ParameterService::read(const Message& message) {
    const auto request = parse<protocol::ReadRequest>(message);
    protocol::ReadReply reply;
    const auto add = [&reply](Entry entry) { *reply.add_entry() = std::move(entry); };
    if (request.otaid().empty()) {
        store.for_each(add);
    } else {
        const std::set<std::uint32_t> wanted(request.otaid().begin(), request.otaid().end());
        for (const auto otaid : wanted) {
            if (auto entry = store.find(otaid)) add(std::move(*entry));
        }
    }
    reply.set_count(static_cast<std::uint32_t>(reply.entry_size()));
    return serialized(reply);
}

Message ParameterService::write(const Message& message) {
    auto request = parse<protocol::WriteRequest>(message);
    protocol::WriteReply reply;
    std::vector<Entry> writable;
    for (Entry& entry : *request.mutable_entry()) {
        if (!entry.has_otaid()) throw std::runtime_error("a record without OTAID");
        if (read_only.count(entry.otaid()) != 0) {
            reply.add_refused(entry.otaid());
        } else {
            writable.push_back(std::move(entry));
        }
    }
    store.write(writable);
    reply.set_written(static_cast<std::uint32_t>(writable.size()));
    ecu::lapi::logging::write(ecu::lapi::logging::INFO, "Wrote ", writable.size(),
                              " parameters, refused ", reply.refused_size());
    return serialized(reply);
}

}  // namespace unit
