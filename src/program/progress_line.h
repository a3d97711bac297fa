#pragma once

#include <atomic>
#include <chrono>
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

/// One line on standard error that tells how far long work is, rewritten in place. It appears once
/// the work has taken a second, and only on a terminal and from log level WARNING on.
///
/// What goes through std::cout, std::cerr or a log stream erases it first, so that nothing is glued
/// to it; a signal that ends the process erases it too. Create it when the log level is set and
/// before any thread that logs, and let it outlive them. All members may be called by any thread.
class ProgressLine {
public:
    /// `program` stands at the front of the line. The work begins now.
    explicit ProgressLine(std::string program_name);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine();

    /// What is done from now on, e.g. "sending". Until then the line appears only once bytes have
    /// moved.
    void begin(const char* next_step);

    /// How many bytes of the step are done, of how many; 0 where that is not known. Costs next to
    /// nothing, so that it may be called for every piece.
    void advance(std::uint64_t bytes_done, std::uint64_t bytes_total);

    /// `advance` for whoever moves the bytes. This must outlive it.
    std::function<void(std::uint64_t done, std::uint64_t total)> hook();

    /// The progress is that of the client's transfers from here on, when it tells any.
    void watch(const std::shared_ptr<ecu::lapi::com::ITransportClient>& client);

    /// Erases the line until it is rewritten next.
    void erase();

    /// Erases the line for good.
    void end();

private:
    using Clock = std::chrono::steady_clock;
    class Guard;

    void draw_until_the_end();
    void draw();
    void erase_drawn();
    std::string text() const;

    const std::string program;
    std::atomic<std::uint64_t> done{0};
    std::atomic<std::uint64_t> total{0};

    // Guarded by `mutex`.
    std::mutex mutex;
    std::condition_variable changed;
    std::string step;
    std::weak_ptr<const ecu::lapi::com::ITransferProgress> transfers;
    Clock::time_point next_drawing;
    bool drawn = false;
    bool ended = false;

    std::unique_ptr<Guard> guard;  ///< null where no line is shown
    std::thread drawing;
};

}  // namespace program
