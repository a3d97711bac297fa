#pragma once

#include <stdexcept>

namespace lapi_mqtt {

/// A peer that cannot be reached, or a file that TLS cannot use; the text is the cause alone.
class NetworkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace lapi_mqtt
