#pragma once

#include <stdexcept>
#include <string>

struct mqtt5__property;

namespace lapi_mqtt {

/// What a broker says of a packet: a reason code of MQTT and its text.
struct Reason {
    int code = 0;
    std::string text;

    bool is_refusal() const { return code >= 0x80; }
    bool no_matching_subscribers() const { return code == 0x10; }
};

/// A failed step of the connection; the text is the cause alone.
class MqttError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The cause behind a result code of libmosquitto. `system_error` is errno as the call left it.
std::string cause_of_result(int result, int system_error);

/// The reason behind a code: MQTT's text for it and, where the packet's properties have them, the
/// broker's own: its reason string and the server that it refers to.
Reason reason_of(int code, const mqtt5__property* properties);

/// Throws MqttError unless `result` is success.
void check_result(int result);

}  // namespace lapi_mqtt
