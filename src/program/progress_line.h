#pragma once

#include <future>
#include <memory>
#include <string>
#include <thread>

#include "ecu/lapi/com.h"
#include "ecu/lapi/progress.h"

namespace program {

/// One line on standard error that shows how much of a long transfer is done. It appears after one
/// second, only on a terminal and from log level WARNING on, when the client counts its transfers;
/// a thread of its own redraws it in place. Other output overwrites it, so that a rest of it may
/// stay visible.
class ProgressLine {
public:
    /// `program_name` stands at the front of the line. What is received is shown unless it is
    /// printed to the terminal as well.
    ProgressLine(std::string program_name,
                 const std::shared_ptr<ecu::lapi::com::ITransportClient>& client,
                 bool shows_received = true);
    ~ProgressLine() { end(); }

    /// Erases the line for good.
    void end();

private:
    void draw_until_the_end();
    void draw();

    const std::string name;
    const std::weak_ptr<const ecu::lapi::com::ITransferProgress> transfers;
    const bool received_too;
    std::string drawn;  ///< used by the thread alone
    std::promise<void> ended;
    std::thread drawing;
};

}  // namespace program
