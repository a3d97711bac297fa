#include "lapi_mqtt/sysparam/sysparam_client.h"

#include <gmock/gmock.h>

#include <sstream>

#include "lapi_mqtt/transport_error.h"

namespace {

using ecu::lapi::com::Message;
using Kind = lapi_mqtt::TransportError::Kind;

std::vector<std::uint8_t> bytes(const std::string& hex) {
    std::istringstream words(hex);
    std::vector<std::uint8_t> made;
    for (unsigned byte = 0; words >> std::hex >> byte;) {
        made.push_back(static_cast<std::uint8_t>(byte));
    }
    return made;
}

/// A client, and the service that it asks.
struct ParameterClient : testing::Test, lapi_mqtt::IRequester {
    Message request(const std::string& topic, const Message& message) override {
        requests.emplace_back(topic, message.payload);
        if (failure) throw lapi_mqtt::TransportError(*failure, "cause");
        return Message(bytes(reply));
    }
    std::string reply;
    std::optional<Kind> failure;
    std::vector<std::pair<std::string, std::vector<std::uint8_t>>> requests;
    lapi_mqtt::SysparamClient client{{std::shared_ptr<void>(), this}};
};

auto fails(const std::string& pattern) {
    return testing::ThrowsMessage<lapi_mqtt::TransportError>(testing::MatchesRegex(pattern));
}

// Encoded by hand: the record 288 with DID 255, XCPID 10 and the data "Hi"; the record
// 4294967295 with nothing but its OTAID.
const std::string HI = "0a 0c 08 a0 02 10 ff 01 18 0a 22 02 48 69 ";
const std::string LAST = "0a 06 08 ff ff ff ff 0f ";

TEST_F(ParameterClient, TakesNoReplyThatIsNotWholeForOne) {
    const std::string malformed[] = {
        "",                         // nothing
        HI,                         // cut before the count
        HI + "10 02",               // a record is missing
        HI + HI + "10 01",          // a record twice
        "0a 0c 08 a0 02 10 ff 01",  // cut inside a record
        "0a ff ff ff ff 0f 08",     // a length beyond the end
        "0a 02 22 05 10 01",        // a length beyond its record
        "10 00 00",                 // a field number of 0
        "0a 02 10 0f 10 01",        // a record without an OTAID
    };
    const auto get = [this] { client.get_parameter(288, 0); };
    for (const auto& each : malformed) {
        reply = each;
        EXPECT_THAT(get, fails(".*malformed.*")) << reply;
        EXPECT_THAT([this] { client.get_parameters(0); }, fails(".*malformed.*")) << reply;
    }
    for (const auto& whole : {LAST + "10 01", HI + LAST + "10 02"}) {
        reply = whole;
        EXPECT_THAT(get, fails(".*malformed.*")) << "another parameter";
    }
}

TEST_F(ParameterClient, SendsOnlyTheFieldsThatDiffer) {
    reply = HI + LAST + "10 02";
    auto parameters = client.get_parameters(0);
    parameters[288].set_data("x");
    parameters[5].set_otaid(5);
    client.set_parameters(parameters);
    reply = "10 02";
    EXPECT_TRUE(client.write_parameters().first);
    EXPECT_THAT(requests.back(), testing::Pair("system/vard/sysparam/write",
                                               bytes("0a 02 08 05 0a 06 08 a0 02 22 01 78")));
    reply = HI + "10 01";
    parameters = client.get_parameters(0);
    client.set_parameters(parameters);
    EXPECT_TRUE(client.write_parameters().first);
    EXPECT_EQ(requests.size(), 3U) << "a write of nothing was sent";
}

TEST_F(ParameterClient, TellsRefusedUnknownAndFailedWritesApart) {
    ecu::lapi::var::ParameterMap parameters;
    parameters[7].set_otaid(7);
    client.set_parameters(parameters);
    reply = "0a 01 07 10 00";
    const auto [written, refused] = client.write_parameters();
    EXPECT_FALSE(written);
    EXPECT_EQ(refused.count(7), 1U);
    const auto write = [this] { client.write_parameters(); };
    for (const auto* malformed : {"", "10 02", "0a 02 07 08 10 00", "0a 01 07 10 01", "ff"}) {
        reply = malformed;
        EXPECT_THAT(write, fails("malformed.*may or may not.*"));
    }
    failure = Kind::outcome_unknown;
    EXPECT_THAT(write, fails("cause; the parameter may or may not have been written, check .*"));
    failure = Kind::failed;
    EXPECT_THAT(write, fails("cause"));
    failure = Kind::no_matching_subscribers;
    EXPECT_THAT(write, fails("no parameter service is listening: cause"));
}

}  // namespace
