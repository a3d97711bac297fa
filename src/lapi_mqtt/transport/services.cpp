#include "lapi_mqtt/transport/services.h"

#include <algorithm>

#include "protocol/request.h"

namespace lapi_mqtt {
namespace {

using std::chrono::milliseconds;

/// How exactly an age can be told: an idle connection is looked at every 50 ms.
constexpr milliseconds LEAST_AGE{100};

/// A reply goes only where a client of ours awaits it: never to a topic that means something else.
bool is_reply_topic(const std::string& topic) {
    return topic.rfind(protocol::REPLY_PREFIX, 0) == 0 &&
           topic.find_first_of("+#") == std::string::npos;
}

}  // namespace

Verdict judge(const Incoming& request, std::chrono::steady_clock::time_point now) {
    const auto& properties = request.properties;
    if (request.message.retain != 0 || properties.correlation_data.empty() ||
        !is_reply_topic(properties.response_topic)) {
        return Verdict::drop;
    }
    // The broker drops what has expired, but not what it had already sent to a process that slept.
    const auto age = now - request.sent_after;
    const bool is_late = properties.timeout && age >= std::max(*properties.timeout, LEAST_AGE);
    return is_late ? Verdict::late : Verdict::run;
}

Services::Handler Services::handler_of(const std::string& topic) const {
    const auto found = handlers.find(topic);
    return found == handlers.end() ? Handler() : found->second;
}

}  // namespace lapi_mqtt
