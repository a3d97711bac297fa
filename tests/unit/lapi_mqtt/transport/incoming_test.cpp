#include <gmock/gmock.h>

#include <future>

#include "lapi_mqtt/transport/dispatcher.h"
#include "lapi_mqtt/transport/services.h"

namespace {

using lapi_mqtt::RequestCheck;
using std::chrono::milliseconds;

TEST(Requests, RunWhileTheirClientsMayWaitForThem) {
    // Timeout, if there is one, and age in milliseconds; no age is known more exactly than to 100.
    const std::tuple<int, int, RequestCheck> table[] = {
        {500, 499, RequestCheck::run},     {500, 500, RequestCheck::expired},
        {20, 99, RequestCheck::run},       {20, 100, RequestCheck::expired},
        {0, 1'000'000, RequestCheck::run},
    };
    for (const auto& [timeout_ms, age_ms, result] : table) {
        lapi_mqtt::Incoming request;
        request.properties = {"clients/x/reply", "1", "", {}, {}};
        if (timeout_ms > 0) request.properties.timeout = milliseconds(timeout_ms);
        const auto now = request.sent_after + milliseconds(age_ms);
        EXPECT_EQ(lapi_mqtt::check(request, now), result) << timeout_ms << ' ' << age_ms;
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
