#include "lapi_mqtt/sysparam/sysparam_client.h"

#include <gmock/gmock.h>

#include "lapi_mqtt/transport_error.h"

namespace {

using ecu::lapi::com::Message;
using lapi_mqtt::TransportError;

std::vector<std::uint8_t> bytes(const std::string& hex) {
    std::vector<std::uint8_t> out;
    for (std::size_t at = 0; at < hex.size(); at += 3) {
        out.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(at, 2), nullptr, 16)));
    }
    return out;
}

/// Takes requests and gives the replies of a script.
struct ScriptedService : lapi_mqtt::IRequester {
    Message request(const std::string& topic, const Message& message) override {
        requests.emplace_back(topic, message.payload);
        if (replies.empty()) throw TransportError(failure, "cause");
        const Message answer(bytes(replies.front()));
        replies.erase(replies.begin());
        return answer;
    }
    std::vector<std::string> replies;
    TransportError::Kind failure = TransportError::Kind::outcome_unknown;
    std::vector<std::pair<std::string, std::vector<std::uint8_t>>> requests;
};

auto fails(const std::string& pattern) {
    return testing::ThrowsMessage<TransportError>(testing::MatchesRegex(pattern));
}

// Encoded by hand: the record 288 with DID 255, XCPID 10 and the data "Hi"; the record
// 4294967295 with nothing but its OTAID.
const std::string HI = "0a 0c 08 a0 02 10 ff 01 18 0a 22 02 48 69";
const std::string LAST = "0a 06 08 ff ff ff ff 0f";

struct ParameterClient : testing::Test {
    std::shared_ptr<ScriptedService> service = std::make_shared<ScriptedService>();
    lapi_mqtt::SysparamClient client{service};
};

TEST_F(ParameterClient, TakesNoReplyThatIsNotWholeForOne) {
    const std::string malformed[] = {
        "",                          // nothing
        HI,                          // cut before the count
        HI + " 10 02",               // a record is missing
        HI + " " + HI + " 10 02",    // a record twice
        "0a 0c 08 a0 02 10 ff 01",   // cut inside a record
        "0a ff ff ff ff 0f 08",      // a length beyond the end
        "0a 02 22 05 10 01",         // a length beyond its record
        "10 00 00",                  // a field number of 0
        "0a 02 10 ff 10 01",         // a record without an OTAID
        LAST + " 10 01",             // whole, but another parameter
        HI + " " + LAST + " 10 02",  // and a further one
    };
    for (const auto& reply : malformed) {
        service->replies = {reply, reply};
        EXPECT_THAT([&] { client.get_parameter(288, 0); }, fails(".*malformed.*")) << reply;
        if (reply.find(LAST) != std::string::npos) continue;
        EXPECT_THAT([&] { client.get_parameters(0); }, fails(".*malformed.*")) << reply;
    }
}

TEST_F(ParameterClient, SendsOnlyTheFieldsThatDiffer) {
    service->replies = {HI + " " + LAST + " 10 02", "10 02", HI + " 10 01"};
    auto parameters = client.get_parameters(0);
    parameters[288].set_data("x");
    parameters[5].set_otaid(5);
    client.set_parameters(parameters);
    EXPECT_TRUE(client.write_parameters().first);
    EXPECT_THAT(
        service->requests.back(),
        testing::Pair("system/vard/sysparam/write", bytes("0a 02 08 05 0a 06 08 a0 02 22 01 78")));
    parameters = client.get_parameters(0);
    client.set_parameters(parameters);
    EXPECT_TRUE(client.write_parameters().first);
    EXPECT_EQ(service->requests.size(), 3U) << "a write of nothing was sent";
}

TEST_F(ParameterClient, TellsRefusedUnknownAndFailedWritesApart) {
    ecu::lapi::var::ParameterMap parameters;
    parameters[7].set_otaid(7);
    client.set_parameters(parameters);
    service->replies = {"0a 01 07 10 00"};
    const auto [written, refused] = client.write_parameters();
    EXPECT_FALSE(written);
    EXPECT_EQ(refused.count(7), 1U);
    const auto write = [this] { client.write_parameters(); };
    for (const auto* reply : {"", "10 02", "0a 02 07 08 10 00", "0a 01 07 10 01", "ff"}) {
        service->replies = {reply};
        EXPECT_THAT(write, fails("malformed.*may or may not.*"));
    }
    EXPECT_THAT(write,
                fails("cause; the parameter may or may not have been written, check with get"));
    service->failure = TransportError::Kind::failed;
    EXPECT_THAT(write, fails("cause"));
    service->failure = TransportError::Kind::no_matching_subscribers;
    EXPECT_THAT(write, fails("no parameter service is listening: cause"));
}

}  // namespace
