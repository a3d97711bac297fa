#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "captured.h"
#include "lapi_fake.h"

/// A test over the platform library in memory, which is new for each, with a file of its own.
class OverFakeLapi : public testing::Test {
protected:
    OverFakeLapi() { lapi = {}; }
    ~OverFakeLapi() override { std::remove(path.c_str()); }

    const std::string& write_file(const std::string& content) {
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    template <typename Command>
    Captured<bool> execute(const Command& command, const Strings& args) {
        return captured([&] { return command.execute(client, args); });
    }

    fake::Lapi& lapi = fake::lapi();
    std::shared_ptr<ecu::lapi::com::ITransportClient> client = fake::transport();
    const std::string path = testing::TempDir() + "a file of " + std::to_string(getpid());
};
