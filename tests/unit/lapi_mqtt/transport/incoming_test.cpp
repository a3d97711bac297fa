#include <gmock/gmock.h>

#include <future>

#include "lapi_mqtt/mqtt/topic_filter.h"
#include "lapi_mqtt/transport/dispatcher.h"
#include "lapi_mqtt/transport/services.h"
#include "lapi_mqtt/transport/subscriptions.h"

namespace {

using lapi_mqtt::RequestCheck;
using std::chrono::milliseconds;
using testing::ElementsAre;

struct Silent : ecu::lapi::com::ISubscriptionObserver {
    void message(const std::string&, const ecu::lapi::com::Message&) override {}
};

TEST(TopicFilters, MatchAsMqttMatchesThem) {
    const std::tuple<const char*, const char*, bool> table[] = {
        {"a/b", "a/b", true},  {"a/+", "a/b", true},          {"a/+", "a/b/c", false},
        {"a/#", "a", true},    {"a/#", "a/b/c", true},        {"#", "$SYS/uptime", false},
        {"a/b", "a/B", false}, {"$share/g/a/+", "a/b", true}, {"$share/g", "g", false},
    };
    for (const auto& [filter, topic, matches] : table) {
        EXPECT_EQ(lapi_mqtt::topic_matches(filter, topic), matches) << filter << ' ' << topic;
    }
}

TEST(Subscriptions, GiveAMessageOnceToAnObserver) {
    const auto one = std::make_shared<Silent>(), other = std::make_shared<Silent>();
    lapi_mqtt::Subscriptions subscriptions;
    for (const auto& [filter, observer] : {std::pair("a/#", one), {"a/b", one}, {"a/b", other}}) {
        lapi_mqtt::Subscriptions::Entry entry{};
        entry.filter = filter;
        entry.observer = observer;
        subscriptions.add(entry);
    }
    EXPECT_THAT(subscriptions.receivers("a/b"), ElementsAre(one, other));
    EXPECT_THAT(subscriptions.receivers("a/c"), ElementsAre(one));
    EXPECT_THAT(subscriptions.receivers("b"), ElementsAre());
    EXPECT_FALSE(subscriptions.remove("a/b", one));  // the broker is still to send it
    EXPECT_TRUE(subscriptions.remove("a/b", other));
    EXPECT_FALSE(subscriptions.remove("a/b", other));
}

TEST(Requests, RunWhenTheyAreFreshAndCanBeAnswered) {
    // Response topic, correlation data, timeout and age in milliseconds.
    const std::tuple<const char*, const char*, int, int, RequestCheck> table[] = {
        {"clients/x/reply", "1", 500, 499, RequestCheck::run},
        {"clients/x/reply", "1", 500, 500, RequestCheck::expired},
        {"clients/x/reply", "1", 20, 99, RequestCheck::run},  // no age is known more exactly
        {"clients/x/reply", "1", 20, 100, RequestCheck::expired},
        {"clients/x/reply", "1", 0, 1'000'000, RequestCheck::run},  // without a time
        {"clients/x/reply", "", 500, 0, RequestCheck::unanswerable},
        {"", "1", 500, 0, RequestCheck::unanswerable},
        {"system/vard/secstore/set", "1", 500, 0, RequestCheck::unanswerable},
        {"clients/+/reply", "1", 500, 0, RequestCheck::unanswerable},
        {"clients/#", "1", 500, 0, RequestCheck::unanswerable},
    };
    for (const auto& [response, correlation, timeout_ms, age_ms, result] : table) {
        lapi_mqtt::Incoming request;
        request.properties.response_topic = response;
        request.properties.correlation_data = correlation;
        if (timeout_ms > 0) request.properties.timeout = std::chrono::milliseconds(timeout_ms);
        EXPECT_EQ(lapi_mqtt::check(request, request.sent_after + std::chrono::milliseconds(age_ms)),
                  result)
            << response << ' ' << age_ms;
    }
}

TEST(Dispatcher, TakesTurnsBlocksWhoeverPushesTooMuchAndRunsWhatWaits) {
    lapi_mqtt::Dispatcher dispatcher;
    std::promise<void> slow, unblocked, pushed;
    std::string ran;
    const auto note = [&](const char* name) { return [&ran, name] { ran += name; }; };
    dispatcher.push("", 64 << 20, [&] { slow.get_future().wait(); });
    for (const auto* name : {"a", "b", "c"}) dispatcher.push_at_once(note(name));
    auto further = std::async(std::launch::async,
                              [&] { dispatcher.push("", 0, [&] { unblocked.set_value(); }); });
    dispatcher.start();
    EXPECT_EQ(further.wait_for(milliseconds(50)), std::future_status::timeout);
    slow.set_value();
    further.get();
    unblocked.get_future().wait();
    dispatcher.push_at_once([&] {
        pushed.get_future().wait();
        std::this_thread::sleep_for(milliseconds(20));  // until it is closed
        dispatcher.push_at_once(note("f"));
    });
    for (const auto* name : {"1", "2"}) dispatcher.push("one", 1, note(name));
    dispatcher.push("other", 1, note("e"));
    pushed.set_value();
    dispatcher.stop();
    dispatcher.push_at_once(note("g"));
    EXPECT_EQ(ran, "abc1ef2");
}

}  // namespace
