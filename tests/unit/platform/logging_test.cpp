#include "ecu/lapi/logging.h"

#include <gmock/gmock.h>

#include <thread>

namespace {

using namespace ecu::lapi::logging;

std::string logged(const std::function<void()>& statements) {
    testing::internal::CaptureStderr();
    statements();
    return testing::internal::GetCapturedStderr();
}

TEST(LogStatement, IsHeldBackByTheModuleOnlyBelowAWarning) {
    const auto module = _internal::LogStreambuf::get_active_module();
    configure_logging("NOTICE");
    module->enabled = false;
    EXPECT_EQ(logged([] { write(WARNING, "x", 'y'), write(NOTICE, "x"); }), "WARNING: xy\n");
    module->enabled = true;
    EXPECT_EQ(logged([] { write(NOTICE, 1, 2), write(INFO, "x"); }), "NOTICE: 12\n");
}

TEST(LogStatement, IsNotTornByAnotherThread) {
    const auto log = [] {
        for (int i = 0; i < 20'000; ++i) write(ERROR, "one", 2, "three");
    };
    std::string records;
    for (int i = 0; i < 40'000; ++i) records += "ERROR: one2three\n";
    EXPECT_TRUE(records == logged([&log] {
                    std::thread other(log);
                    log();
                    other.join();
                }));
}

}  // namespace
