#include "secstore/sec_store.h"

#include <optional>

#include "over_fake_lapi.h"
#include "protocol/topics.h"

namespace {

using ecu::lapi::com::Message;

const Strings BOTH{"subscribe system/vard/secstore/get 0", "unsubscribe system/vard/secstore/get"};

Message blob(const std::string& bytes) {
    return Message({bytes.begin(), bytes.end()});
}

class SecureStore : public OverFakeLapi {
protected:
    SecureStore() { lapi.log_level = ecu::lapi::logging::LEVEL_DEBUG; }

    /// The observer that the library still holds no longer reaches the store.
    void expect_no_forwarding() {
        lapi.records.clear();
        lapi.subscribed.at(0).second->message(protocol::SECSTORE_GET_TOPIC, blob("late"));
        EXPECT_EQ(lapi.records, Strings{});
    }

    std::optional<SecStore> store{client};
};

TEST_F(SecureStore, TakesTheFirstBlobOfItsOwnTopicInsideTheSubscriptionAndOnlyOnce) {
    const std::string bytes("\0\xff z\0", 5);
    lapi.on_subscribe = [&](const std::string& topic, const auto& observer) {
        observer->message(protocol::SECSTORE_SET_TOPIC, blob("not for us"));
        observer->message("system/vard/secstore", blob("above"));
        observer->message(topic + "/more", blob("below"));
        observer->message(topic, blob(bytes));
        EXPECT_NO_THROW(observer->message(topic, blob("second")));
    };
    EXPECT_EQ(store->get_data(), bytes);
    EXPECT_EQ(lapi.calls, BOTH);
    EXPECT_EQ(lapi.subscribed, lapi.unsubscribed);
    EXPECT_EQ(lapi.records.front(), "DEBUG: Message on SET_TOPIC");
    EXPECT_EQ(lapi.records.at(1), "DEBUG: Message on GET_TOPIC, payload: 5");
    expect_no_forwarding();
    EXPECT_THROW(store->get_data(), std::future_error);
    EXPECT_EQ(lapi.calls.back(), BOTH.back());
}

TEST_F(SecureStore, LeavesNothingBehindWhenTheLibraryThrows) {
    lapi.on_subscribe = [](const std::string& topic, const auto& observer) {
        observer->message(topic, blob("first"));
    };
    lapi.errors[BOTH.back()] = "gone";
    EXPECT_EQ(store->get_data(), "first");
    expect_no_forwarding();
    lapi.on_subscribe = [](const auto&, const auto&) { throw std::bad_alloc(); };
    EXPECT_THROW(store.emplace(client).get_data(), std::bad_alloc);
    lapi.subscribed.erase(lapi.subscribed.begin());
    expect_no_forwarding();
}

TEST_F(SecureStore, LoadsEveryByteOfAFileWithoutWastingMemory) {
    const std::string bytes = std::string(1'000'000, 'x') + std::string(" \r\n\0\xff", 5);
    const std::string content = SecStore::read_file_to_str(write_file(bytes));
    EXPECT_TRUE(content == bytes);
    EXPECT_EQ(content.capacity(), bytes.size());
    EXPECT_NE(SecStore::read_file_to_str("/proc/self/status"), "") << "a file whose size is none";
}

}  // namespace
