#include "topic_printer/topic_printer.h"

#include <gmock/gmock.h>

#include "captured.h"

namespace {

ecu::lapi::com::Message message() {
    ecu::lapi::com::Message msg({1, 2, 3});
    msg.qos = '2';
    msg.timestamp = 18446744073709551615U;
    return msg;
}

TEST(TopicPrinter, ShowsWhatItsFlagsSelect) {
    struct Case {
        DisplayFlags flags;
        std::string lines;
    };
    const std::string indent = "\n           ";
    const std::string size = indent + "size: 3";
    const std::string time = indent + "timestamp: 18446744073709551615";
    const std::string qos = indent + "QoS: 2";
    const std::string data = indent + "Data: THE DATA HERE";
    const Case cases[] = {
        {{false, false, false, false}, ""},  {{true, false, false, false}, data},
        {{false, true, false, false}, size}, {{false, false, true, false}, qos},
        {{false, false, false, true}, time}, {{true, true, true, true}, size + time + qos + data},
    };
    for (const auto& [flags, lines] : cases) {
        EXPECT_EQ(compose_block(flags, 1.5, "a/b", message()), "[001.500] a/b" + lines);
    }
}

TEST(TopicPrinter, ShowsElapsedMilliseconds) {
    const std::pair<double, std::string> cases[] = {{0.0004, "000.000"},
                                                    {12.3456, "012.346"},
                                                    {999.9996, "1000.000"},
                                                    {123456.7, "123456.700"}};
    for (const auto& [seconds, shown] : cases) {
        EXPECT_EQ(compose_block({}, seconds, "t", {}), "[" + shown + "] t");
    }
}

TEST(TopicPrinter, WritesTheQosByteAsItIs) {
    const auto block = compose_block({false, true, true, false}, 0, "t", {});
    EXPECT_EQ(block, "[000.000] t\n           size: 0\n           QoS: " + std::string(1, '\0'));
}

TEST(TopicPrinter, PrintsALineAMessage) {
    TopicPrinter printer(DisplayFlags{});
    const auto printed = captured([&] { return printer.message("a/b", message()), true; });
    EXPECT_THAT(printed.out, testing::MatchesRegex("\\[00[0-9]\\.[0-9]{3}\\] a/b\n"));
}

}  // namespace
