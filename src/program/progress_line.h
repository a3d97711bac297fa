#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "ecu/lapi/com.h"
#include "ecu/lapi/progress.h"

namespace program {

/// One line on standard error that shows the progress of long work. It appears after one second,
/// only on a terminal and from log level WARNING on; a thread of its own redraws it in place. Other
/// output overwrites it, so that a rest of it may stay visible.
class ProgressLine {
public:
    /// `program` stands at the front of the line. The work begins now.
    explicit ProgressLine(std::string program_name);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { end(); }

    /// Names the next step, e.g. "connecting". Before the first one the line appears only once
    /// bytes have moved.
    void begin(const char* next_step);

    /// A function that sets how many bytes of the step are done, of how many; 0 where that is not
    /// known. Cheap enough to be called for every piece. Any thread may call it.
    std::function<void(std::uint64_t done, std::uint64_t total)> hook();

    /// From here on the bytes are those that the client transfers, if it counts them.
    void watch(const std::shared_ptr<ecu::lapi::com::ITransportClient>& client);

    /// Erases the line for good.
    void end();

private:
    void draw_until_the_end();
    void draw();
    std::string text(const ecu::lapi::com::Transfer& transfer) const;

    const std::string program;
    std::atomic<std::uint64_t> done{0};
    std::atomic<std::uint64_t> total{0};

    // Guarded by `mutex`.
    std::mutex mutex;
    std::condition_variable changed;
    std::string step;
    std::weak_ptr<const ecu::lapi::com::ITransferProgress> transfers;
    std::string drawn;
    bool ended = false;

    std::thread drawing;
};

}  // namespace program
