#include "program/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "ecu/lapi/logging.h"

namespace program {
namespace {

namespace logging = ecu::lapi::logging;

constexpr std::chrono::milliseconds FIRST_DRAW_DELAY{1000};
constexpr std::chrono::milliseconds DRAW_INTERVAL{200};
constexpr char ERASE[] = "\r\033[K";

/// Less than this is no transfer that anybody waits for.
constexpr std::uint64_t MIN_BYTES = 64 << 10;

void write_to_terminal(const std::string& bytes) {
    // A terminal that takes nothing is none to show anything on.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, bytes.data(), bytes.size());
}

/// Shown where somebody looks: not behind a redirection, nor to who asked for errors only.
bool is_to_be_shown() {
    return isatty(STDERR_FILENO) != 0 && logging::get_log_level() >= logging::LEVEL_WARNING;
}

/// False while the terminal belongs to another job than ours.
bool is_in_the_foreground() {
    const pid_t owner = tcgetpgrp(STDERR_FILENO);
    return owner < 0 || owner == getpgrp();
}

/// How many characters of a line can be rewritten: what wraps cannot.
std::size_t columns() {
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? size.ws_col - 1U : 79U;
}

}  // namespace

ProgressLine::ProgressLine(std::string program_name) : program(std::move(program_name)) {
    if (is_to_be_shown()) drawing = std::thread([this] { draw_until_the_end(); });
}

void ProgressLine::begin(const char* next_step) {
    const std::lock_guard<std::mutex> lock(mutex);
    step = next_step;
    done = total = 0;
}

std::function<void(std::uint64_t, std::uint64_t)> ProgressLine::hook() {
    return [this](std::uint64_t bytes_done, std::uint64_t bytes_total) {
        done.store(bytes_done, std::memory_order_relaxed);
        total.store(bytes_total, std::memory_order_relaxed);
    };
}

void ProgressLine::watch(const std::shared_ptr<ecu::lapi::com::ITransportClient>& client) {
    const std::lock_guard<std::mutex> lock(mutex);
    transfers = std::dynamic_pointer_cast<ecu::lapi::com::ITransferProgress>(client);
}

void ProgressLine::end() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ended = true;
    }
    changed.notify_all();
    if (drawing.joinable()) drawing.join();
}

void ProgressLine::draw_until_the_end() {
    std::unique_lock<std::mutex> lock(mutex);
    auto pause = FIRST_DRAW_DELAY;
    while (!changed.wait_for(lock, pause, [this] { return ended; })) {
        draw();
        pause = DRAW_INTERVAL;
    }
    if (!drawn.empty()) write_to_terminal(ERASE);
}

void ProgressLine::draw() {
    const auto watched = transfers.lock();
    const ecu::lapi::com::Transfer transfer =
        watched ? watched->transfer() : ecu::lapi::com::Transfer{done, total};
    if (!is_in_the_foreground() || (step.empty() && transfer.done < MIN_BYTES)) return;
    // What a command without steps receives it then prints, and a redrawn line would stand in it.
    if (step.empty() && transfer.total == 0 && isatty(STDOUT_FILENO) != 0) return;
    const std::string line = text(transfer).substr(0, columns());
    // What has not moved may have been followed by the work's own output.
    if (line == drawn) return;
    drawn = line;
    write_to_terminal(ERASE + line + '\r');
}

std::string ProgressLine::text(const ecu::lapi::com::Transfer& transfer) const {
    constexpr double MEGABYTE = 1e6;
    const auto so_far = static_cast<double>(transfer.done) / MEGABYTE;
    const auto all = static_cast<double>(transfer.total) / MEGABYTE;
    char amount[64] = " ...";
    if (all > 0) {
        std::snprintf(amount, sizeof amount, " %.1f of %.1f MB", so_far, all);
    } else if (so_far > 0) {
        std::snprintf(amount, sizeof amount, " %.1f MB", so_far);
    }
    return program + ": " + (step.empty() ? all > 0 ? "sending" : "receiving" : step) + amount;
}

}  // namespace program
