#include "lapi_mqtt/transport/services.h"

#include <gtest/gtest.h>

namespace {

using lapi_mqtt::Verdict;
using std::chrono::milliseconds;

TEST(Requests, RunWhenTheyAreFreshAndCanBeAnswered) {
    // Response topic, correlation data, retained, time-out and age in milliseconds.
    const std::tuple<const char*, const char*, bool, int, int, Verdict> table[] = {
        {"clients/x/reply", "1", false, 500, 499, Verdict::run},
        {"clients/x/reply", "1", false, 500, 500, Verdict::late},
        {"clients/x/reply", "1", false, 20, 99, Verdict::run},  // no age is known more exactly
        {"clients/x/reply", "1", false, 20, 100, Verdict::late},
        {"clients/x/reply", "1", false, 0, 1'000'000, Verdict::run},  // without a time
        {"clients/x/reply", "1", true, 500, 0, Verdict::drop},
        {"clients/x/reply", "", false, 500, 0, Verdict::drop},
        {"", "1", false, 500, 0, Verdict::drop},
        {"system/vard/secstore/set", "1", false, 500, 0, Verdict::drop},
        {"clients/+/reply", "1", false, 500, 0, Verdict::drop},
        {"clients/#", "1", false, 500, 0, Verdict::drop},
    };
    for (const auto& [response, correlation, retain, timeout_ms, age_ms, verdict] : table) {
        lapi_mqtt::Incoming request;
        request.properties.response_topic = response;
        request.properties.correlation_data = correlation;
        if (timeout_ms > 0) request.properties.timeout = milliseconds(timeout_ms);
        request.message.retain = retain ? 1 : 0;
        EXPECT_EQ(lapi_mqtt::judge(request, request.sent_after + milliseconds(age_ms)), verdict)
            << response << ' ' << age_ms;
    }
}

}  // namespace
