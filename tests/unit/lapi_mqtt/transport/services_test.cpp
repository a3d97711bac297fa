#include "lapi_mqtt/transport/services.h"

#include <gtest/gtest.h>

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
        request.properties.response_topic = response;
        request.properties.correlation_data = correlation;
        if (timeout_ms > 0) request.properties.timeout = milliseconds(timeout_ms);
        EXPECT_EQ(lapi_mqtt::check(request, request.sent_after + milliseconds(age_ms)), result)
            << response << ' ' << age_ms;
    }
}

}  // namespace
