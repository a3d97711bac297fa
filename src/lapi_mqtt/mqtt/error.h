#pragma once

#include <stdexcept>
#include <string>

namespace lapi_mqtt {

/// Reason codes of MQTT. From the first refusal on, all of them are refusals.
constexpr int REASON_NO_MATCHING_SUBSCRIBERS = 0x10;
constexpr int FIRST_REFUSAL = 0x80;

/// A failed step of the connection; the text is the cause alone.
class MqttError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The cause behind a result code of libmosquitto. `system_error` is errno as the call left it.
std::string cause_of_result(int result, int system_error);

/// The cause behind a reason code of MQTT.
std::string cause_of_reason(int reason);

/// Throws MqttError unless `result` is success.
void check_result(int result);

}  // namespace lapi_mqtt
