// Whatever a service replies is decoded or refused, and what is decoded is what the generated class
// reads in it.
#include <cstdlib>

#include "fakes/requests_only.h"
#include "lapi_mqtt/sysparam/sysparam_client.h"
#include "sysparam.pb.h"

namespace {

using ecu::lapi::com::Message;

struct Replying : fake::RequestsOnly {
    explicit Replying(Message any_reply) : reply(std::move(any_reply)) {}
    Message request(const std::string&, const Message&) override { return reply; }
    const Message reply;
};

template <typename Operation>
void accept_refusal(Operation operation) {
    try {
        operation();
    } catch (const ecu::lapi::com::TransportError&) {
        return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Message reply(std::vector<std::uint8_t>(data, data + size));
    lapi_mqtt::SysparamClient client(std::make_shared<Replying>(reply));
    accept_refusal([&] {
        auto parameters = client.get_parameters(0);
        protocol::ReadReply reference;
        // The generated class is stricter only about numbers with superfluous bytes.
        if (!reference.ParseFromArray(data, static_cast<int>(size))) return;
        if (reference.count() != parameters.size()) std::abort();
        for (auto& entry : *reference.mutable_entry()) {
            const auto& decoded = parameters.at(entry.otaid());
            if (entry.did() != decoded.did() || entry.has_did() != decoded.has_did() ||
                entry.xcpid() != decoded.xcpid() || entry.has_xcpid() != decoded.has_xcpid() ||
                entry.data() != decoded.data() || entry.has_data() != decoded.has_data()) {
                std::abort();
            }
        }
        parameters[1].set_otaid(1);
        parameters[1].set_data("x");
        client.set_parameters(parameters);
        client.write_parameters();
    });
    accept_refusal([&] {
        const auto [found, entry] = client.get_parameter(288, 0);
        if (found && entry.otaid() != 288) std::abort();
    });
    return 0;
}
