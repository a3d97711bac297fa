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

/// The block that shows a message received `elapsed_seconds` after the printer's creation, without
/// its last line end.
std::string compose_block(const DisplayFlags& flags, double elapsed_seconds,
                          const std::string& topic, const ecu::lapi::com::Message& msg);

/// Prints a block on standard output for each message of the topics it is subscribed to.
class TopicPrinter : public ecu::lapi::com::ISubscriptionObserver {
public:
    /// Elapsed time counts from here.
    explicit TopicPrinter(const DisplayFlags& flags);

    /// Called on the delivery thread.
    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

private:
    const DisplayFlags flags;
    const std::chrono::steady_clock::time_point start_time;
};
