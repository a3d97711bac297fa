#include "secstore/sec_store.h"

#include <gtest/gtest.h>

#include <thread>

#include "lapi_fake.h"
#include "secstore/topics.h"

namespace {

using ecu::lapi::com::Message;
using Strings = std::vector<std::string>;
using std::chrono::steady_clock;

constexpr char SUBSCRIBE[] = "subscribe system/vard/secstore/get 0";
constexpr char UNSUBSCRIBE[] = "unsubscribe system/vard/secstore/get";

Message blob(const std::string& bytes) {
    return Message(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

class SecureStore : public testing::Test {
protected:
    void SetUp() override {
        fake::reset();
        ecu::lapi::logging::configure_logging("DEBUG");
        fake::lapi().calls.clear();
        store.emplace(client);
    }
    /// Delivers inside the subscription.
    static void deliver(const std::string& topic, const Message& message) {
        fake::lapi().on_subscribe = [topic, message](const std::string&, const auto& observer) {
            observer->message(topic, message);
        };
    }
    /// The observer that the library still holds no longer reaches the store.
    static void expect_no_forwarding() {
        fake::lapi().records.clear();
        fake::lapi().subscribed.at(0).second->message(secstore::GET_TOPIC, blob("late"));
        EXPECT_EQ(fake::lapi().records, Strings{});
    }

    std::shared_ptr<ecu::lapi::com::ITransportClient> client = fake::transport();
    std::optional<SecStore> store;
};

TEST_F(SecureStore, TakesABlobThatArrivesInsideTheSubscription) {
    const std::string bytes("\0\xff z\0", 5);
    deliver(secstore::GET_TOPIC, blob(bytes));
    const auto start = steady_clock::now();
    EXPECT_EQ(store->get_data(), bytes);
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(fake::lapi().calls, (Strings{SUBSCRIBE, UNSUBSCRIBE}));
    EXPECT_EQ(fake::lapi().subscribed, fake::lapi().unsubscribed);
    EXPECT_EQ(fake::lapi().records, Strings{"DEBUG: Message on GET_TOPIC, payload: 5"});
    expect_no_forwarding();
}

TEST_F(SecureStore, TakesABlobThatArrivesWhileItWaits) {
    std::thread library;
    fake::lapi().on_subscribe = [&library](const std::string& topic, const auto& observer) {
        library = std::thread([topic, observer] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            observer->message(topic, blob("late"));
        });
    };
    EXPECT_EQ(store->get_data(), "late");
    library.join();
}

TEST_F(SecureStore, GivesUpAfterTenSeconds) {
    deliver(secstore::SET_TOPIC, blob("not for us"));
    const auto start = steady_clock::now();
    EXPECT_EQ(store->get_data(), "");
    const auto waited = steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::seconds(10));
    EXPECT_LT(waited, std::chrono::seconds(13));
    EXPECT_EQ(fake::lapi().calls, (Strings{SUBSCRIBE, UNSUBSCRIBE}));
    EXPECT_EQ(fake::lapi().subscribed, fake::lapi().unsubscribed);
    EXPECT_EQ(fake::lapi().records,
              (Strings{"DEBUG: Message on SET_TOPIC",
                       "WARNING: Timeout waiting for data from SecStore data"}));
    expect_no_forwarding();
}

TEST_F(SecureStore, TakesTheFirstBlobOfItsOwnTopicOnly) {
    fake::lapi().on_subscribe = [](const std::string& topic, const auto& observer) {
        observer->message("system/vard/secstore", blob("above"));
        observer->message(topic + "/more", blob("below"));
        observer->message(topic, blob("first"));
        EXPECT_NO_THROW(observer->message(topic, blob("second")));
    };
    EXPECT_EQ(store->get_data(), "first");
}

TEST_F(SecureStore, IsNotReachedOnceItIsGone) {
    std::atomic<bool> go_on{true};
    std::thread library;
    fake::lapi().on_subscribe = [&](const std::string& topic, const auto& observer) {
        library = std::thread([&go_on, topic, observer] {
            while (go_on) observer->message(topic, blob("flood"));
        });
    };
    EXPECT_EQ(store->get_data(), "flood");
    store.reset();
    const auto forwarded = fake::lapi().records.size();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    go_on = false;
    library.join();
    EXPECT_EQ(fake::lapi().records.size(), forwarded);
}

TEST_F(SecureStore, LeavesNothingBehindWhenTheLibraryThrows) {
    fake::lapi().on_subscribe = [](const auto&, const auto&) { throw std::bad_alloc(); };
    EXPECT_THROW(store->get_data(), std::bad_alloc);
    expect_no_forwarding();
}

TEST_F(SecureStore, KeepsTheBlobWhenUnsubscribingFails) {
    deliver(secstore::GET_TOPIC, blob("kept"));
    fake::lapi().errors[UNSUBSCRIBE] = "gone";
    EXPECT_EQ(store->get_data(), "kept");
    expect_no_forwarding();
}

TEST_F(SecureStore, ReceivesOnlyOnce) {
    deliver(secstore::GET_TOPIC, blob("once"));
    store->get_data();
    EXPECT_THROW(store->get_data(), std::future_error);
    EXPECT_EQ(fake::lapi().calls.back(), UNSUBSCRIBE);
}

}  // namespace
