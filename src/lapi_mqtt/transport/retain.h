#pragma once

#include "ecu/lapi/com.h"
#include "lapi_mqtt/mqtt/connection.h"

/// What RETAIN means to a client. Every subscription asks for "retain as published", so that the
/// flag of an arriving message is the one it was published with, stored by the broker or live.
namespace lapi_mqtt::retain {

/// Who only watches is sent the retained messages. Everybody else gets current values through
/// announcements.
inline RetainHandling handling(int subscription_qos) {
    const bool only_watches = (subscription_qos & ecu::lapi::com::WATCH_ONLY) != 0;
    return only_watches ? RetainHandling::send : RetainHandling::do_not_send;
}

/// A service ignores every message with RETAIN set: a request or a new value would be carried out
/// again whenever the broker sends it.
inline bool is_ignored(const ecu::lapi::com::Message& message, bool is_service) {
    return is_service && message.retain != 0;
}

}  // namespace lapi_mqtt::retain
