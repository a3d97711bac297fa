#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "ecu/lapi/com.h"
#include "lapi_mqtt/mqtt/connection.h"
#include "lapi_mqtt/service_client.h"

namespace lapi_mqtt {

/// What is to become of a request.
enum class Verdict {
    run,
    drop,  ///< nobody can be answered, or it was published to be kept
    late,  ///< nobody may await it any more
};

/// Whether a request may run at `now`. A fresh one always may; one that may have waited for longer
/// than its client does never.
Verdict judge(const Incoming& request, std::chrono::steady_clock::time_point now);

/// Who answers the requests on which topic. Not thread-safe.
class Services {
public:
    using Handler = RequestHandler;

    void add(const std::string& topic, Handler handler) { handlers[topic] = std::move(handler); }

    /// Null when nobody does.
    Handler handler_of(const std::string& topic) const;

    const std::map<std::string, Handler>& all() const { return handlers; }

private:
    std::map<std::string, Handler> handlers;  ///< by topic
};

}  // namespace lapi_mqtt
