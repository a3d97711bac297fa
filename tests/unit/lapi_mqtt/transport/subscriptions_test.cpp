#include "lapi_mqtt/transport/subscriptions.h"

#include <gmock/gmock.h>

#include "lapi_mqtt/mqtt/topic_filter.h"

namespace {

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

}  // namespace
