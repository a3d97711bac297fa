#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "monitor/options.h"
#include "topic_printer/topic_printer.h"

namespace monitor {

/// Prints messages, as blocks or as JSON, until as many have come as are to be shown or standard
/// output takes no more; either ends the program's wait.
class Output : public ecu::lapi::com::ISubscriptionObserver {
public:
    explicit Output(const Options& options);

    /// Called on the dispatch thread.
    void message(const std::string& topic, const ecu::lapi::com::Message& msg) override;

    /// Prints nothing from here on. Throws std::exception when a message could not be printed
    /// although somebody reads them, or when the time is over before all have come.
    void finish(bool time_is_over);

private:
    const Options& options;
    TopicPrinter printer;
    std::atomic<std::uint32_t> printed{0};
    std::atomic<bool> finished{false};
    std::atomic<int> error{0};  ///< of the write that failed
};

}  // namespace monitor
