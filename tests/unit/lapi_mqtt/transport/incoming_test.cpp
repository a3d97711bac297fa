#include <gmock/gmock.h>

#include <future>

#include "lapi_mqtt/transport/dispatcher.h"
#include "lapi_mqtt/transport/services.h"

namespace {

using lapi_mqtt::RequestCheck;
using std::chrono::milliseconds;

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
        request.properties = {response, correlation, "", {}, {}};
        if (timeout_ms > 0) request.properties.timeout = milliseconds(timeout_ms);
        EXPECT_EQ(lapi_mqtt::check(request, request.sent_after + milliseconds(age_ms)), result)
            << response << ' ' << age_ms;
    }
}

TEST(Dispatcher, BlocksWhoeverPushesTooMuchAndRunsWhatWaits) {
    lapi_mqtt::Dispatcher dispatcher;
    std::promise<void> slow, unblocked, pushed;
    std::string ran;
    const auto note = [&](const char* name) { return [&ran, name] { ran += name; }; };
    dispatcher.push("", 64 << 20, [&] { slow.get_future().wait(); });
    for (const auto* name : {"a", "b"}) dispatcher.push_at_once(note(name));
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
        dispatcher.push_at_once(note("d"));
    });
    dispatcher.push("one", 1, note("c"));
    pushed.set_value();
    dispatcher.stop();
    dispatcher.push_at_once(note("e"));
    EXPECT_EQ(ran, "abcd");
}

}  // namespace
