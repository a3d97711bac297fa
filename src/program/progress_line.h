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

/// One line on standard error that tells how far long work is. A thread of its own rewrites it in
/// place, from a second on, on a terminal only and from log level WARNING on. Texts of others
/// overwrite it, and a rest of it may stay behind them.
class ProgressLine {
public:
    /// `program` stands at the front of the line. The work begins now.
    explicit ProgressLine(std::string program_name);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { end(); }

    /// What is done from now on, e.g. "sending". Until then the line appears only once bytes have
    /// moved.
    void begin(const char* next_step);

    /// For who does the work: tells how many bytes of it are done, of how many, or 0 where that is
    /// not known. Costs next to nothing, so that it may be called for every piece.
    std::function<void(std::uint64_t done, std::uint64_t total)> hook();

    /// Shows how far the client's transfers are, when it is one that tells.
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
