#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Strings = std::vector<std::string>;

/// What a call returned and wrote to the standard streams.
template <typename Result>
struct Captured {
    Result result;
    std::string out, err;
};

template <typename Call>
auto captured(Call call) -> Captured<decltype(call())> {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto result = call();
    const std::string err = testing::internal::GetCapturedStderr();
    return {result, testing::internal::GetCapturedStdout(), err};
}
