#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>

#include "lapi_mqtt/config/settings.h"

namespace {

TEST(Password, IsTheFirstLineOfItsFile) {
    const std::string path = testing::TempDir() + "password of " + std::to_string(getpid());
    for (const auto* content : {"secret", "secret\n", "secret\r\nsecond line"}) {
        std::ofstream(path) << content;
        EXPECT_EQ(lapi_mqtt::read_password(path), "secret");
    }
    std::remove(path.c_str());
}

}  // namespace
