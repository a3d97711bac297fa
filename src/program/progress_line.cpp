#include "program/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "ecu/lapi/logging.h"

namespace program {
namespace {

namespace com = ecu::lapi::com;
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

ProgressLine::ProgressLine(std::string program_name,
                           const std::shared_ptr<com::ITransportClient>& client,
                           bool shows_received)
    : name(std::move(program_name)),
      transfers(std::dynamic_pointer_cast<com::ITransferProgress>(client)),
      received_too(shows_received) {
    if (is_to_be_shown()) drawing = std::thread([this] { draw_until_the_end(); });
}

void ProgressLine::end() {
    if (!drawing.joinable()) return;
    ended.set_value();
    drawing.join();
}

void ProgressLine::draw_until_the_end() {
    const auto end = ended.get_future();
    for (auto pause = FIRST_DRAW_DELAY; end.wait_for(pause) == std::future_status::timeout;
         pause = DRAW_INTERVAL) {
        draw();
    }
    if (!drawn.empty()) write_to_terminal(ERASE);
}

void ProgressLine::draw() {
    const auto watched = transfers.lock();
    const auto [done, total] = watched ? watched->transfer() : com::Transfer{};
    const bool is_received = total == 0;
    if (done < MIN_BYTES || (is_received && !received_too) || !is_in_the_foreground()) return;
    constexpr double MEGABYTE = 1e6;
    char amount[64];
    std::snprintf(amount, sizeof amount,
                  is_received ? "receiving %.1f MB" : "sending %.1f of %.1f MB",
                  static_cast<double>(done) / MEGABYTE, static_cast<double>(total) / MEGABYTE);
    const std::string line = (name + ": " + amount).substr(0, columns());
    // What has not moved may have been followed by the program's own output.
    if (line == drawn) return;
    drawn = line;
    write_to_terminal(ERASE + line + '\r');
}

}  // namespace program
