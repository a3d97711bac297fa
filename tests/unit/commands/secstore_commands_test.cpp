#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "captured.h"
#include "commands/getsec_cmd.h"
#include "commands/setsec_cmd.h"
#include "lapi_fake.h"
#include "secstore/topics.h"

namespace {

using Strings = std::vector<std::string>;

class SecstoreCommands : public testing::Test {
protected:
    void SetUp() override { fake::reset(); }

    static void deliver(const std::vector<std::uint8_t>& blob) {
        fake::lapi().on_subscribe = [blob](const std::string& topic, const auto& observer) {
            observer->message(topic, ecu::lapi::com::Message(blob));
        };
    }
    Captured<bool> execute(const commands::Cmd& command, const Strings& args) {
        return captured([&] { return command.execute(client, args); });
    }
    std::string file(const std::string& content) {
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    void TearDown() override { std::remove(path.c_str()); }

    const std::string path = testing::TempDir() + "a secret of " + std::to_string(getpid());
    const commands::GetSecCmd getsec{"getsec"};
    const commands::SetSecCmd setsec{"setsec"};
    std::shared_ptr<ecu::lapi::com::ITransportClient> client = fake::transport();
};

TEST_F(SecstoreCommands, GetsecPrintsTheBlobAndIgnoresArguments) {
    deliver({'a', 0, 'b'});
    for (const Strings& args : {Strings{}, Strings{"more", "words"}}) {
        const auto received = execute(getsec, args);
        EXPECT_TRUE(received.result);
        EXPECT_EQ(received.out, std::string("SecStore blob size: 3\na\0b\n", 26));
    }
}

TEST_F(SecstoreCommands, GetsecFailsOnAnEmptyBlob) {
    deliver({});
    const auto received = execute(getsec, {});
    EXPECT_FALSE(received.result);
    EXPECT_EQ(received.out, "");
    EXPECT_EQ(fake::lapi().records, Strings{"ERROR: No data could be received from SecStore!"});
}

TEST_F(SecstoreCommands, SetsecPublishesTheFile) {
    const std::string content("\0\xff\r\nx", 5);
    ecu::lapi::logging::configure_logging("NOTICE");
    const auto sent = execute(setsec, {file(content)});
    EXPECT_TRUE(sent.result);
    EXPECT_EQ(sent.out + sent.err, "");
    ASSERT_EQ(fake::lapi().published.size(), 1U);
    const auto& [topic, message] = fake::lapi().published.front();
    EXPECT_EQ(topic, secstore::SET_TOPIC);
    EXPECT_EQ(std::string(message.payload.begin(), message.payload.end()), content);
    EXPECT_EQ(message.qos, 0);
    EXPECT_EQ(fake::lapi().records, Strings{"NOTICE: Blob(5) has been published!"});
}

TEST_F(SecstoreCommands, SetsecPublishesNothingWithoutContent) {
    const std::string missing = testing::TempDir() + "korvid/there is none";
    const std::pair<Strings, std::string> cases[] = {
        {{}, "ERROR: A file need to be provided!"},
        {{file(""), path}, "ERROR: A file need to be provided!"},
        {{path}, "ERROR: Unable to read in file: " + path},
        {{missing}, "ERROR: Unable to read in file: " + missing},
    };
    for (const auto& [args, record] : cases) {
        fake::lapi().records.clear();
        EXPECT_FALSE(execute(setsec, args).result);
        EXPECT_EQ(fake::lapi().records, Strings{record});
        EXPECT_TRUE(fake::lapi().published.empty());
    }
}

}  // namespace
