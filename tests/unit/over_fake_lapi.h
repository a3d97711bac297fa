#pragma once

#include <getopt.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "lapi_fake.h"

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

/// Calls a main function with a command line.
template <typename Main>
auto invoke(Main main, Strings words) {
    words.insert(words.begin(), "/usr/bin/invoked");
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;  // glibc then starts anew
    return main(static_cast<int>(words.size()), argv.data());
}

/// A test over the platform library in memory, which is new for each, with a file of its own.
class OverFakeLapi : public testing::Test {
protected:
    OverFakeLapi() { lapi = {}; }
    ~OverFakeLapi() override { std::remove(path.c_str()); }

    const std::string& write_file(const std::string& content) {
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    fake::Lapi& lapi = fake::lapi();
    std::shared_ptr<ecu::lapi::com::ITransportClient> client = fake::transport();
    const std::string path = testing::TempDir() + "a file of " + std::to_string(getpid());
};
