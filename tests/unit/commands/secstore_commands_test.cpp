#include "commands/getsec_cmd.h"
#include "commands/setsec_cmd.h"
#include "over_fake_lapi.h"
#include "protocol/topics.h"

namespace {

using ecu::lapi::com::Message;

using SecstoreCommands = OverFakeLapi;

TEST_F(SecstoreCommands, GetsecPrintsTheBlobAndFailsOnAnEmptyOne) {
    for (const std::string& blob : {std::string("a\0b", 3), std::string()}) {
        lapi.on_subscribe = [blob](const std::string& topic, const auto& observer) {
            observer->message(topic, Message({blob.begin(), blob.end()}));
        };
        const auto received = execute(commands::GetSecCmd("getsec"), {"more", "words"});
        EXPECT_EQ(received.result, !blob.empty());
        EXPECT_EQ(received.out, blob.empty() ? "" : "SecStore blob size: 3\n" + blob + "\n");
    }
    EXPECT_EQ(lapi.records, Strings{"ERROR: No data could be received from SecStore!"});
}

TEST_F(SecstoreCommands, SetsecPublishesOneFileThatHasContent) {
    const commands::SetSecCmd setsec("setsec");
    EXPECT_FALSE(execute(setsec, {write_file("")}).result);
    EXPECT_FALSE(execute(setsec, {}).result);
    const std::string content("\0\xff\r\nx", 5);
    EXPECT_FALSE(execute(setsec, {write_file(content), path}).result);
    EXPECT_TRUE(execute(setsec, {path}).result);
    ASSERT_EQ(lapi.calls, Strings{std::string("publish ") + protocol::SECSTORE_SET_TOPIC});
    const Message& message = lapi.published.front().second;
    EXPECT_EQ(std::string(message.payload.begin(), message.payload.end()), content);
    EXPECT_EQ(message.qos, 0);
    EXPECT_EQ(lapi.records, (Strings{"ERROR: Unable to read in file: " + path, "ERROR: A file need to be provided!",
                                     "ERROR: A file need to be provided!"}));
}

}  // namespace
