#include "lapi_mqtt/link/deadline.h"

#include <gmock/gmock.h>

#include "lapi_mqtt/link/acknowledgements.h"
#include "lapi_mqtt/link/reconnect_delay.h"

namespace {

using lapi_mqtt::Deadline;
using lapi_mqtt::ReconnectDelay;
using std::chrono::milliseconds;
using std::chrono::seconds;

const Deadline::Clock::time_point BEGIN{};

TEST(Deadline, IsMovedByItsOwnTrafficAlone) {
    /// What has moved at a time, and when the wait then ends; all in milliseconds.
    struct Update {
        int at;
        std::uint64_t acked, received, unrelated_end;
        int end;
    };
    const std::tuple<const char*, std::uint64_t, std::vector<Update>> table[] = {
        {"nothing has moved", 600, {{0, 500, 700, 0, 1000}}},
        {"its own goes out", 90'000, {{400, 50'000, 700, 0, 1400}, {900, 90'000, 700, 0, 1900}}},
        {"what others send goes out", 600, {{400, 50'000, 700, 0, 1000}}},
        {"a large packet comes in", 0, {{500, 500, 9'000, 0, 1500}, {1400, 500, 20'000, 0, 2400}}},
        {"it was unrelated", 0, {{500, 500, 9'000, 0, 1500}, {900, 500, 20'000, 20'000, 1000}}},
        {"the next one may be its own", 0, {{900, 500, 20'000, 15'000, 1900}}},
        {"a trickle", 0, {{500, 1'000, 1'000, 0, 1000}, {900, 1'500, 1'700, 0, 1000}}},
        {"a packet without end", 0, {{4900, 500, 9'000, 0, 5000}}},
    };
    for (const auto& [what, send_end, updates] : table) {
        lapi_mqtt::Movement movement;
        movement.traffic = {500, 700};
        Deadline deadline({milliseconds(1000), milliseconds(5000)}, BEGIN, movement, send_end);
        for (const auto& [at, acked, received, unrelated_end, end] : updates) {
            deadline.update(BEGIN + milliseconds(at), {{acked, received}, unrelated_end});
            EXPECT_EQ(deadline.time() - BEGIN, milliseconds(end)) << what << " at " << at;
        }
    }
}

TEST(Acknowledgements, AreOverdueOnceWhatIsBeforeThemHasHadItsTime) {
    lapi_mqtt::Acknowledgements pending;
    pending.expect(1, {"publish on", "blob"}, 1'000'000, BEGIN, {});
    pending.expect(2, {"publish on", "barrier"}, 0, BEGIN, {});
    EXPECT_FALSE(pending.overdue(BEGIN + seconds(119)));
    EXPECT_TRUE(pending.overdue(BEGIN + seconds(121)));
    EXPECT_FALSE(pending.acknowledge(1, {}));
    EXPECT_EQ(pending.acknowledge(2, {0x87, ""})->topic, "barrier");
    pending.expect(3, {"publish on", "barrier"}, 0, BEGIN, {});
    EXPECT_EQ(pending.overdue(BEGIN + seconds(21))->topic, "barrier");
}

TEST(ReconnectDelay, GrowsUntilAConnectionHasLasted) {
    std::vector<int> limits;
    ReconnectDelay delay([&limits](milliseconds max) {
        limits.push_back(static_cast<int>(max.count()));
        return max;
    });
    const auto lost_after = [&](int ms) {
        delay.connected(BEGIN);
        delay.lost(BEGIN + milliseconds(ms));
        delay.next();
    };
    for (const int ms : {10'000, 10, 4'999}) lost_after(ms);
    for (int n = 0; n < 7; ++n) delay.next();
    lost_after(5'000);
    EXPECT_THAT(limits, testing::ElementsAre(100, 200, 400, 800, 1600, 3200, 6400, 12800, 25600,
                                             30000, 100));
    ReconnectDelay random;
    std::set<milliseconds> drawn;
    for (int n = 0; n < 30; ++n) drawn.insert(random.next());
    EXPECT_GT(drawn.size(), 15U);
    EXPECT_LE(*drawn.rbegin(), seconds(30));
}

}  // namespace
