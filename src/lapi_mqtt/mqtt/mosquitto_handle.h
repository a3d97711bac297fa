#pragma once

#include <memory>
#include <optional>
#include <string>

#include "lapi_mqtt/config/settings.h"

struct mosquitto;

namespace lapi_mqtt {

class TlsContext;

/// What the broker publishes, with RETAIN set, once a connection ends without DISCONNECT.
struct Will {
    std::string topic;
    std::string payload;
};

struct MosquittoDeleter {
    void operator()(mosquitto* handle) const;
};

/// libmosquitto's handle of one connection.
using MosquittoHandle = std::unique_ptr<mosquitto, MosquittoDeleter>;

/// A handle with everything set that goes into CONNECT but the keep-alive, and with TLS unless
/// `tls` is null; its callbacks will be given `owner`. Throws MqttError, and std::runtime_error for
/// an unreadable password.
MosquittoHandle make_handle(const Settings& settings, const std::string& client_id,
                            const std::optional<Will>& will, int receive_maximum,
                            const TlsContext* tls, void* owner);

}  // namespace lapi_mqtt
