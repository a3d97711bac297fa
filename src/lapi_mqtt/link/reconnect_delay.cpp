#include "lapi_mqtt/link/reconnect_delay.h"

#include <algorithm>
#include <memory>
#include <random>
#include <utility>

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;

/// The first limit: a broker that restarts on the same machine is met at once.
constexpr milliseconds MIN_RECONNECT_DELAY{100};
constexpr milliseconds MAX_RECONNECT_DELAY{30'000};

/// A connection that ends sooner was no success: the broker may end it again and again.
constexpr milliseconds MIN_DURATION{5'000};

ReconnectDelay::Random system_random() {
    const auto engine = std::make_shared<std::minstd_rand>(std::random_device()());
    return [engine](milliseconds max) {
        return milliseconds(
            std::uniform_int_distribution<milliseconds::rep>(0, max.count())(*engine));
    };
}

}  // namespace

ReconnectDelay::ReconnectDelay(Random random_up_to)
    : random(random_up_to ? std::move(random_up_to) : system_random()),
      limit(MIN_RECONNECT_DELAY) {}

void ReconnectDelay::lost(Clock::time_point now) {
    if (now - connected_at >= MIN_DURATION) limit = MIN_RECONNECT_DELAY;
}

milliseconds ReconnectDelay::next() {
    const auto delay = random(limit);
    limit = std::min(2 * limit, MAX_RECONNECT_DELAY);
    return delay;
}

}  // namespace lapi_mqtt
