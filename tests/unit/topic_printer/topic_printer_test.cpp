#include "topic_printer/topic_printer.h"

#include <gmock/gmock.h>

#include "captured.h"

namespace {

TEST(TopicPrinter, ShowsWhatItsFlagsSelect) {
    ecu::lapi::com::Message message({1, 2, 3});
    message.qos = '2';
    message.timestamp = 18446744073709551615U;
    const std::string indent = "\n           ";
    const auto size = indent + "size: 3", time = indent + "timestamp: 18446744073709551615", qos = indent + "QoS: 2",
               data = indent + "Data: THE DATA HERE";
    const std::pair<DisplayFlags, std::string> cases[] = {
        {{false, false, false, false}, ""},  {{true, false, false, false}, data},
        {{false, true, false, false}, size}, {{false, false, true, false}, qos},
        {{false, false, false, true}, time}, {{true, true, true, true}, size + time + qos + data},
    };
    for (const auto& [flags, lines] : cases) {
        EXPECT_EQ(compose_block(flags, 1.5, "a/b", message), "[001.500] a/b" + lines);
    }
    EXPECT_EQ(compose_block({false, true, true, false}, 0, "t", {}),
              "[000.000] t" + indent + "size: 0" + indent + "QoS: " + std::string(1, '\0'));
}

TEST(TopicPrinter, ShowsElapsedMilliseconds) {
    for (const auto& [seconds, shown] : {std::pair(0.0004, "[000.000] t"),
                                         {12.3456, "[012.346] t"},
                                         {999.9996, "[1000.000] t"},
                                         {123456.7, "[123456.700] t"}}) {
        EXPECT_EQ(compose_block({}, seconds, "t", {}), shown);
    }
    TopicPrinter printer(DisplayFlags{});
    const auto printed = captured([&] { return printer.message("a/b", {}), true; });
    EXPECT_THAT(printed.out, testing::MatchesRegex("\\[00[0-9]\\.[0-9]{3}\\] a/b\n"));
}

}  // namespace
