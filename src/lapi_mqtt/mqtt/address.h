#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

namespace lapi_mqtt {

/// The addresses of a host name in the order in which they are to be tried, as literals; a literal
/// is its own address. Throws MqttError when there is none, at `deadline`, and soon after
/// `abandoned` turns true: a look-up that hangs is left behind.
std::vector<std::string> resolve(const std::string& host,
                                 std::chrono::steady_clock::time_point deadline,
                                 const std::atomic<bool>& abandoned);

}  // namespace lapi_mqtt
