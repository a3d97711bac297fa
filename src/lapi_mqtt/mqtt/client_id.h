#pragma once

#include <string>

namespace lapi_mqtt {

/// `count` bytes from the system's random source. Throws std::system_error.
std::string random_bytes(std::size_t count);

/// "<client_name>-<16 random hexadecimal digits>". Random and not the process id: ids of several
/// hosts and of restarted processes must not meet on one broker.
std::string make_client_id(const std::string& client_name);

}  // namespace lapi_mqtt
