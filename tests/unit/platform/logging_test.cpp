#include "ecu/lapi/logging.h"

#include <thread>

#include "over_fake_lapi.h"

namespace {

using namespace ecu::lapi::logging;

using LogStatement = OverFakeLapi;

TEST_F(LogStatement, IsGatedByLevelAndModule) {
    const std::tuple<Level, _internal::LogStream&, bool, int, Strings> cases[] = {
        {LEVEL_CRITICAL, ERROR, true, 0, {}},
        {LEVEL_ERROR, ERROR, false, 0, {"ERROR: xy"}},
        {LEVEL_WARNING, WARNING, false, 0, {"WARNING: xy"}},
        {LEVEL_WARNING, NOTICE, true, 0, {}},
        {LEVEL_NOTICE, NOTICE, true, 2, {"NOTICE: xy"}},
        {LEVEL_DEBUG, DEBUG, false, 2, {"DEBUG: "}},
    };
    for (const auto& [level, stream, module_enabled, module_tests, records] : cases) {
        lapi = {};
        lapi.log_level = level;
        lapi.module_enabled = module_enabled;
        write(stream, "x", 'y');
        EXPECT_EQ(lapi.module_tests, module_tests) << level;
        EXPECT_EQ(lapi.records, records) << level;
    }
}

TEST_F(LogStatement, IsNotTornByAnotherThread) {
    const auto log = [] {
        for (int i = 0; i < 20000; ++i) write(ERROR, "one", 2, "three");
    };
    std::thread other(log);
    log();
    other.join();
    EXPECT_EQ(lapi.records, Strings(40000, "ERROR: one2three"));
}

}  // namespace
