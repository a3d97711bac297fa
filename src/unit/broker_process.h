#pragma once

#include <sys/types.h>

#include <utility>

#include "program/descriptor.h"

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

    /// Hangs up when the broker has ended.
    int end_descriptor() const { return ended.get(); }

private:
    BrokerProcess(int port, std::pair<program::Descriptor, program::Descriptor> life);
    void end();
    bool is_running();

    program::Descriptor ended;
    pid_t process = -1;
};

}  // namespace unit
