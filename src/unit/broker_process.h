#pragma once

#include <sys/types.h>

namespace unit {

/// A mosquitto of our own on the loopback interface, for as long as this lives; it also ends when
/// this process is killed. Throws std::runtime_error that names the port and the cause.
class BrokerProcess {
public:
    /// Returns when the broker accepts connections.
    explicit BrokerProcess(int port);
    ~BrokerProcess();
    BrokerProcess(const BrokerProcess&) = delete;
    BrokerProcess& operator=(const BrokerProcess&) = delete;

    /// False once the broker has ended by itself.
    bool is_running();

private:
    void end();

    pid_t process = -1;
};

}  // namespace unit
