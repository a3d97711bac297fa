#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "lapi_mqtt/mqtt/mosquitto_handle.h"
#include "lapi_mqtt/network/connect_limit.h"

namespace lapi_mqtt {

/// Reaches one of several addresses of a host over TCP. They are tried in order: the next one
/// starts when the one before it has failed or kept silent for 250 ms, and the first
/// that accepts wins.
class Dialer {
public:
    struct Attempt {
        std::string address;
        MosquittoHandle handle;
    };

    /// Begins to connect a handle to an address, without waiting. Throws MqttError.
    using Begin = std::function<MosquittoHandle(const std::string& address)>;

    Dialer(std::string host_name, std::vector<std::string> addresses, Begin begin_attempt);

    /// The next address that accepts; nothing when all have failed. Whatever was in flight beside
    /// it is closed, and tried again by the next call. Throws MqttError at the limit.
    std::optional<Attempt> next(const ConnectLimit& limit);

    /// Notes why an address failed; for the caller of `next`, what came after it was reached.
    void note_failure(const std::string& address, const std::string& cause);

    /// All failures so far as one text.
    const std::string& failures() const { return failure_text; }

    /// Throws MqttError at the limit, with the failures so far.
    void check(const ConnectLimit& limit) const;

private:
    bool begin_next();
    std::optional<Attempt> take_connected();

    const std::string host;
    const Begin begin;
    std::vector<std::string> untried;
    std::vector<Attempt> in_flight;
    std::string failure_text;
};

}  // namespace lapi_mqtt
