#pragma once

#include <chrono>
#include <string>

#include "ecu/lapi/com.h"

/// What is shown of a message besides its topic.
struct DisplayFlags {
    bool show_payload = false;
    bool show_payload_size = false;
    bool show_qos = false;
    bool show_timestamp = false;
};

/// Prints a block on standard output for each message of the topics it is subscribed to.
class TopicPrinter : public ecu::lapi::com::ISubscriptionObserver {
public:
    /// Elapsed time counts from here.
    explicit TopicPrinter(const DisplayFlags& flags) : shown(flags) {}

    /// Called on the delivery thread.
    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

private:
    const DisplayFlags shown;
    const std::chrono::steady_clock::time_point start_time = std::chrono::steady_clock::now();
};
