#include "ecu/lapi/logging.h"

#include <gtest/gtest.h>

#include <thread>

#include "lapi_fake.h"

namespace {

namespace logging = ecu::lapi::logging;

/// A value that counts how often it is written.
struct Counted {
    int& written;
};
std::ostream& operator<<(std::ostream& stream, const Counted& value) {
    ++value.written;
    return stream << 'x';
}

TEST(LogStatement, IsGatedByLevelAndModule) {
    struct Case {
        std::string level;
        logging::_internal::LogStream& stream;
        bool module_enabled;
        int written;
        int module_tests;
        std::string record;
    };
    const Case cases[] = {
        {"CRITICAL", logging::ERROR, true, 0, 0, ""},
        {"ERROR", logging::ERROR, false, 2, 0, "ERROR: xx"},
        {"WARNING", logging::WARNING, false, 2, 0, "WARNING: xx"},
        {"WARNING", logging::NOTICE, true, 0, 0, ""},
        {"WARNING", logging::INFO, true, 0, 0, ""},
        {"NOTICE", logging::NOTICE, true, 2, 2, "NOTICE: xx"},
        {"DEBUG", logging::INFO, true, 2, 2, "INFO: xx"},
        {"DEBUG", logging::DEBUG, true, 2, 2, "DEBUG: xx"},
        {"DEBUG", logging::DEBUG, false, 0, 2, "DEBUG: "},
    };
    for (const auto& [level, stream, module_enabled, written, module_tests, record] : cases) {
        fake::reset();
        logging::configure_logging(level);
        fake::lapi().module_enabled = module_enabled;
        int count = 0;
        logging::write(stream, Counted{count}, Counted{count});
        EXPECT_EQ(count, written) << level;
        EXPECT_EQ(fake::lapi().module_tests, module_tests) << level;
        const auto records = record.empty() ? std::vector<std::string>{} : std::vector{record};
        EXPECT_EQ(fake::lapi().records, records) << level;
    }
}

TEST(LogStatement, IsNotTornByAnotherThread) {
    fake::reset();
    const auto log = [] {
        for (int i = 0; i < 20000; ++i) logging::write(logging::ERROR, "one", 2, "three");
    };
    std::thread other(log);
    log();
    other.join();
    EXPECT_EQ(fake::lapi().records, std::vector<std::string>(40000, "ERROR: one2three"));
}

}  // namespace
