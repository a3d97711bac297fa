#pragma once

#include <sys/types.h>

#include <chrono>

#include "program/descriptor.h"

namespace unit {

/// A mosquitto of our own on the loopback interface, for as long as this lives; it also ends when
/// this process is killed. Throws std::runtime_error that names the port and the cause.
class BrokerProcess {
public:
    /// Returns when the broker accepts connections.
    explicit BrokerProcess(int port);
    ~BrokerProcess();

    /// Readable once the broker has ended.
    int end_descriptor() const { return end.get(); }

private:
    void stop();
    bool has_ended(std::chrono::milliseconds timeout) const;

    const pid_t process;
    const program::Descriptor end;
};

}  // namespace unit
