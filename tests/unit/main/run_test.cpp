#include "main/run.h"

#include "main/options.h"
#include "over_fake_lapi.h"

namespace {

struct Run : OverFakeLapi {
    Run() {
        opt_loglevel = "WARNING";
        opt_host = opt_port = "";
        opt_payload = opt_payload_size = opt_qos = opt_timestamp = false;
    }
    static Captured<int> korvid(const Strings& words) {
        return captured([&] { return invoke(korvid::run, words); });
    }
    Strings last_calls(const Strings& like) {
        const auto count = static_cast<std::ptrdiff_t>(std::min(like.size(), lapi.calls.size()));
        return {lapi.calls.end() - count, lapi.calls.end()};
    }
    const Strings closing{"disconnect", "stop", "release sysparams", "release client"};
};

TEST_F(Run, CallsThePlatformInOrder) {
    EXPECT_EQ(korvid({"get", "0x120", "-p", "1884", "-l", "DEBUG", "-H", "unit"}).result, 0);
    EXPECT_EQ(lapi.calls,
              (Strings{"set_log_mode 1", "Configuration", "[client_name]",
                       "configure_logging DEBUG", "verify", "[host]", "[port]", "create_client 0",
                       "create_sysparams_client", "connect", "start", "create_sysparams_client",
                       "get_parameter 288 0", "release sysparams", "disconnect", "stop",
                       "release sysparams", "release client"}));
    auto& set = lapi.configuration;
    EXPECT_EQ(set["client_name"] + " " + set["host"] + ":" + set["port"], "korvid unit:1884");
}

TEST_F(Run, ReportsWhatThePlatformThrows) {
    const std::tuple<std::string, Strings, bool> cases[] = {
        {"Configuration", {"set_log_mode 1", "Configuration"}, false},
        {"create_client 0", {"verify", "create_client 0"}, false},
        {"create_sysparams_client",
         {"create_sysparams_client", "disconnect", "stop", "release client"},
         false},
        {"connect", closing, false},
        {"start", closing, false},
        {"get_parameters 0", closing, true},
        {"disconnect", closing, true},
        {"stop", closing, true},
    };
    for (const auto& [thrower, calls, pauses] : cases) {
        lapi = {};
        lapi.errors[thrower] = "no luck with " + thrower;
        const auto start = std::chrono::steady_clock::now();
        const auto failed = korvid({});
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_EQ(failed.result, 1) << thrower;
        EXPECT_EQ(failed.err, "korvid: no luck with " + thrower + "\n");
        EXPECT_EQ(last_calls(calls), calls);
        EXPECT_EQ(elapsed >= std::chrono::milliseconds(100), pauses) << thrower;
    }
}

TEST_F(Run, ReportsMissingClients) {
    lapi.creates_sysparams = false;
    EXPECT_EQ(korvid({}).err, "korvid: no system-parameter client could be created\n");
    EXPECT_EQ(lapi.calls.back(), "release client");
    lapi.creates_client = false;
    EXPECT_EQ(korvid({}).err, "korvid: no transport client could be created\n");
}

}  // namespace
