// Whatever a service replies is decoded or refused; a decoded full read keys every record rightly.
#include <cstdlib>

#include "fakes/requests_only.h"
#include "lapi_mqtt/sysparam_client.h"

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
        for (const auto& [otaid, entry] : parameters) {
            if (otaid != entry.otaid()) std::abort();
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
