#pragma once

#include <string>
#include <vector>

#include "lapi_mqtt/network/connect_limit.h"

namespace lapi_mqtt {

/// The addresses of a host name in the order in which they are to be tried, as literals; a literal
/// is its own address. Throws std::runtime_error when there is none, at the limit's deadline, and
/// soon after it is cancelled: a look-up that hangs is left behind.
std::vector<std::string> resolve(const std::string& host, const ConnectLimit& limit);

}  // namespace lapi_mqtt
