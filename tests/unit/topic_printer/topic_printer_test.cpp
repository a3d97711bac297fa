#include "topic_printer/topic_printer.h"

#include <gtest/gtest.h>

namespace {

TEST(TopicPrinter, ShowsElapsedMilliseconds) {
    for (const auto& [seconds, shown] : {std::pair(0.0004, "[000.000] t"),
                                         {12.3456, "[012.346] t"},
                                         {999.9996, "[1000.000] t"},
                                         {123456.7, "[123456.700] t"}}) {
        EXPECT_EQ(compose_block({}, seconds, "t", {}), shown);
    }
}

}  // namespace
