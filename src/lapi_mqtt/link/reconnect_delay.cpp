#include "lapi_mqtt/link/reconnect_delay.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "lapi_mqtt/mqtt/client_id.h"

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;

/// The first limit: a broker that restarts on the same machine is met at once.
constexpr milliseconds MIN_RECONNECT_DELAY{100};
constexpr milliseconds MAX_RECONNECT_DELAY{30'000};

/// A connection that ends sooner was no success: the broker may end it again and again.
constexpr milliseconds MIN_DURATION{5'000};

milliseconds random_up_to(milliseconds max) {
    std::uint32_t number = 0;
    const std::string bytes = random_bytes(sizeof number);
    std::memcpy(&number, bytes.data(), sizeof number);
    return milliseconds(number % (max.count() + 1));
}

}  // namespace

ReconnectDelay::ReconnectDelay(Random own_random)
    : random(own_random ? std::move(own_random) : random_up_to), limit(MIN_RECONNECT_DELAY) {}

void ReconnectDelay::lost(Clock::time_point now) {
    if (now - connected_at >= MIN_DURATION) limit = MIN_RECONNECT_DELAY;
}

milliseconds ReconnectDelay::next() {
    const auto delay = random(limit);
    limit = std::min(2 * limit, MAX_RECONNECT_DELAY);
    return delay;
}

}  // namespace lapi_mqtt
