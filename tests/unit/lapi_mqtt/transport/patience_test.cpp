#include "lapi_mqtt/transport/patience.h"

#include <gtest/gtest.h>

namespace {

using lapi_mqtt::Patience;
using std::chrono::milliseconds;

/// What moves at a time, and when the wait then ends; all in milliseconds.
struct Look {
    int at;
    std::uint64_t taken, received, foreign_end;
    int end;
};

void expect(const char* what, std::uint64_t taken_end, std::initializer_list<Look> looks) {
    const Patience::Clock::time_point begin{};
    Patience patience({milliseconds(1000), milliseconds(5000)}, begin, {{500, 700}, 0}, taken_end);
    EXPECT_EQ(patience.end(), begin + milliseconds(1000));
    for (const auto& look : looks) {
        patience.look(begin + milliseconds(look.at), {{look.taken, look.received}, look.foreign_end});
        EXPECT_EQ(patience.end() - begin, milliseconds(look.end)) << what << " at " << look.at;
    }
}

TEST(Patience, IsStretchedByWhatMayBeItsOwnAlone) {
    expect("its own request goes out", 90'000, {{400, 50'000, 700, 0, 1400}, {900, 90'000, 700, 0, 1900}});
    expect("what others send goes out", 600, {{400, 50'000, 700, 0, 1000}});
    expect("a large packet comes in", 0, {{500, 500, 9'000, 0, 1500}, {1400, 500, 20'000, 0, 2400}});
    expect("it was another's", 0, {{500, 500, 9'000, 0, 1500}, {900, 500, 20'000, 20'000, 1000}});
    expect("the next one may be its own", 0, {{900, 500, 20'000, 15'000, 1900}});
    expect("a trickle", 0, {{500, 1'000, 1'000, 0, 1000}, {900, 1'500, 1'700, 0, 1000}});
    expect("a packet without end", 0, {{4900, 500, 9'000, 0, 5000}});
}

}  // namespace
