// Whatever a service replies is decoded or refused, and what is decoded is what the generated class
// reads in it.
#include "fuzz/fuzz.h"
#include "lapi_mqtt/sysparam/sysparam_client.h"
#include "lapi_mqtt/transport_error.h"
#include "sysparam.pb.h"

namespace {

struct Replying : lapi_mqtt::IRequester {
    using Message = ecu::lapi::com::Message;
    Message request(const std::string&, const Message&) override { return reply; }
    Message reply;
};

void check_all(lapi_mqtt::SysparamClient& client, const std::vector<std::uint8_t>& bytes) try {
    auto parameters = client.get_parameters(0);
    protocol::ReadReply reference;
    // The generated class is stricter only about numbers with superfluous bytes.
    if (!reference.ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) return;
    require(reference.count() == parameters.size());
    for (const auto& entry : reference.entry()) {
        require(entry.SerializeAsString() == parameters.at(entry.otaid()).SerializeAsString());
    }
    parameters[1].set_otaid(1);
    parameters[1].set_data("x");
    client.set_parameters(parameters);
    client.write_parameters();
} catch (const lapi_mqtt::TransportError&) {
    return;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto service = std::make_shared<Replying>();
    service->reply.payload.assign(data, data + size);
    lapi_mqtt::SysparamClient client(service);
    check_all(client, service->reply.payload);
    return 0;
}
