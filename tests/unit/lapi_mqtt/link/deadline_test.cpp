#include "lapi_mqtt/link/deadline.h"

#include <gmock/gmock.h>

#include "lapi_mqtt/link/acknowledgements.h"
#include "lapi_mqtt/link/reconnect_delay.h"

namespace {

using lapi_mqtt::Deadline;
using lapi_mqtt::ReconnectDelay;
using std::chrono::milliseconds;

/// What has moved at a time, and when the wait then ends; all in milliseconds.
struct Update {
    int at;
    std::uint64_t acked, received, unrelated_end;
    int end;
};

void expect(const char* what, std::uint64_t send_end, std::initializer_list<Update> updates) {
    const Deadline::Clock::time_point begin{};
    Deadline::Timeouts timeouts{};
    timeouts.idle = milliseconds(1000);
    timeouts.total = milliseconds(5000);
    lapi_mqtt::Movement movement;
    movement.traffic.bytes_acked = 500;
    movement.traffic.bytes_received = 700;
    Deadline deadline(timeouts, begin, movement, send_end);
    EXPECT_EQ(deadline.time(), begin + milliseconds(1000));
    for (const auto& update : updates) {
        movement.traffic.bytes_acked = update.acked;
        movement.traffic.bytes_received = update.received;
        movement.unrelated_end = update.unrelated_end;
        deadline.update(begin + milliseconds(update.at), movement);
        EXPECT_EQ(deadline.time() - begin, milliseconds(update.end)) << what << " at " << update.at;
    }
}

TEST(Deadline, IsMovedByItsOwnTrafficAlone) {
    expect("its own request goes out", 90'000,
           {{400, 50'000, 700, 0, 1400}, {900, 90'000, 700, 0, 1900}});
    expect("what others send goes out", 600, {{400, 50'000, 700, 0, 1000}});
    expect("a large packet comes in", 0,
           {{500, 500, 9'000, 0, 1500}, {1400, 500, 20'000, 0, 2400}});
    expect("it was unrelated", 0, {{500, 500, 9'000, 0, 1500}, {900, 500, 20'000, 20'000, 1000}});
    expect("the next one may be its own", 0, {{900, 500, 20'000, 15'000, 1900}});
    expect("a trickle", 0, {{500, 1'000, 1'000, 0, 1000}, {900, 1'500, 1'700, 0, 1000}});
    expect("a packet without end", 0, {{4900, 500, 9'000, 0, 5000}});
}

TEST(Acknowledgements, AreOverdueOnceWhatIsBeforeThemHasHadItsTime) {
    using std::chrono::seconds;
    lapi_mqtt::Acknowledgements pending;
    const Deadline::Clock::time_point begin{};
    pending.expect(1, {"publish on", "blob"}, 1'000'000, begin, {});
    pending.expect(2, {"publish on", "barrier"}, 0, begin, {});
    EXPECT_FALSE(pending.overdue(begin + seconds(119)));
    EXPECT_TRUE(pending.overdue(begin + seconds(121)));
    EXPECT_FALSE(pending.acknowledge(1, {}));
    EXPECT_EQ(pending.acknowledge(2, {0x87, ""})->topic, "barrier");
    pending.expect(3, {"publish on", "barrier"}, 0, begin, {});
    EXPECT_EQ(pending.overdue(begin + seconds(21))->topic, "barrier");
}

TEST(ReconnectDelay, GrowsUntilAConnectionHasLasted) {
    std::vector<int> limits;
    ReconnectDelay delay([&limits](milliseconds max) {
        limits.push_back(static_cast<int>(max.count()));
        return max;
    });
    const ReconnectDelay::Clock::time_point begin{};
    const auto lost_after = [&](int ms) {
        delay.connected(begin);
        delay.lost(begin + milliseconds(ms));
        delay.next();
    };
    for (const int ms : {10'000, 10, 4'999}) lost_after(ms);
    for (int n = 0; n < 7; ++n) delay.next();
    lost_after(5'000);
    EXPECT_THAT(limits, testing::ElementsAre(100, 200, 400, 800, 1600, 3200, 6400, 12800, 25600,
                                             30000, 100));
    ReconnectDelay random;
    std::set<std::chrono::milliseconds::rep> drawn;
    for (int n = 0; n < 30; ++n) drawn.insert(random.next().count());
    EXPECT_GT(drawn.size(), 15U);
    EXPECT_LE(*drawn.rbegin(), 30'000);
}

}  // namespace
