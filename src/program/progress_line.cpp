#include "program/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <streambuf>

#include "ecu/lapi/logging.h"

namespace program {
namespace {

namespace logging = ecu::lapi::logging;

constexpr std::chrono::milliseconds BEFORE_THE_FIRST{1000};
constexpr std::chrono::milliseconds BETWEEN_TWO{200};
constexpr char ERASE[] = "\r\033[K";

const std::array<std::ostream*, 7> STREAMS{&std::cout,        &std::cerr,       &logging::ERROR,
                                           &logging::WARNING, &logging::NOTICE, &logging::INFO,
                                           &logging::DEBUG};

/// Less than this is no transfer that anybody waits for.
constexpr std::uint64_t LEAST_BYTES = 64 << 10;
constexpr std::array<int, 3> ENDING_SIGNALS{SIGINT, SIGTERM, SIGHUP};

void write_to_terminal(const char* bytes, std::size_t size) {
    // A terminal that takes nothing is none to show anything on.
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, bytes, size);
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

/// Its action is reset before it is called, so that raising the signal again ends the process.
extern "C" void erase_and_end(int number) {
    write_to_terminal(ERASE, sizeof ERASE - 1);
    std::raise(number);
}

}  // namespace

/// While it lives, what is written through a stream to standard error erases the line first: a
/// stream flushes the one that it is tied to. So do signals that end the process, unless they are
/// handled or ignored already.
class ProgressLine::Guard : private std::streambuf {
public:
    explicit Guard(ProgressLine& guarded_line) : line(guarded_line), flushed(this) {
        std::transform(STREAMS.begin(), STREAMS.end(), ties.begin(),
                       [this](std::ostream* stream) { return stream->tie(&flushed); });
        struct sigaction action {};
        action.sa_handler = erase_and_end;
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        for (std::size_t i = 0; i < ENDING_SIGNALS.size(); ++i) {
            sigaction(ENDING_SIGNALS[i], nullptr, &actions[i]);
            if (actions[i].sa_handler == SIG_DFL) sigaction(ENDING_SIGNALS[i], &action, nullptr);
        }
    }
    ~Guard() override {
        for (std::size_t i = 0; i < ENDING_SIGNALS.size(); ++i) {
            sigaction(ENDING_SIGNALS[i], &actions[i], nullptr);
        }
        for (std::size_t i = 0; i < STREAMS.size(); ++i) STREAMS[i]->tie(ties[i]);
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    int sync() override {
        line.erase();
        return 0;
    }

    ProgressLine& line;
    std::ostream flushed;
    std::array<std::ostream*, STREAMS.size()> ties{};
    std::array<struct sigaction, ENDING_SIGNALS.size()> actions{};
};

ProgressLine::ProgressLine(std::string program_name)
    : program(std::move(program_name)), next_drawing(Clock::now() + BEFORE_THE_FIRST) {
    if (!is_to_be_shown()) return;
    guard = std::make_unique<Guard>(*this);
    drawing = std::thread([this] { draw_until_the_end(); });
}

ProgressLine::~ProgressLine() {
    end();
    if (drawing.joinable()) drawing.join();
}

void ProgressLine::begin(const char* next_step) {
    const std::lock_guard<std::mutex> lock(mutex);
    step = next_step;
    advance(0, 0);
}

void ProgressLine::advance(std::uint64_t bytes_done, std::uint64_t bytes_total) {
    done.store(bytes_done, std::memory_order_relaxed);
    total.store(bytes_total, std::memory_order_relaxed);
}

std::function<void(std::uint64_t, std::uint64_t)> ProgressLine::hook() {
    return [this](std::uint64_t bytes_done, std::uint64_t bytes_total) {
        advance(bytes_done, bytes_total);
    };
}

void ProgressLine::watch(const std::shared_ptr<ecu::lapi::com::ITransportClient>& client) {
    const std::lock_guard<std::mutex> lock(mutex);
    transfers = std::dynamic_pointer_cast<ecu::lapi::com::ITransferProgress>(client);
}

void ProgressLine::erase() {
    const std::lock_guard<std::mutex> lock(mutex);
    erase_drawn();
    // Whoever erased it is about to write, and has done so by then.
    next_drawing = std::max(next_drawing, Clock::now() + BETWEEN_TWO);
}

void ProgressLine::end() {
    const std::lock_guard<std::mutex> lock(mutex);
    erase_drawn();
    ended = true;
    changed.notify_all();
}

void ProgressLine::draw_until_the_end() {
    std::unique_lock<std::mutex> lock(mutex);
    while (!ended) {
        const auto time = next_drawing;
        changed.wait_until(lock, time);
        if (ended || Clock::now() < next_drawing) continue;
        draw();
        next_drawing = Clock::now() + BETWEEN_TWO;
    }
}

void ProgressLine::draw() {
    if (const auto watched = transfers.lock()) {
        const auto transfer = watched->transfer();
        advance(transfer.done, transfer.total);
    }
    if (!is_in_the_foreground() || (step.empty() && done < LEAST_BYTES)) return;
    const std::string line = ERASE + text().substr(0, columns());
    write_to_terminal(line.data(), line.size());
    drawn = true;
}

void ProgressLine::erase_drawn() {
    if (drawn) write_to_terminal(ERASE, sizeof ERASE - 1);
    drawn = false;
}

std::string ProgressLine::text() const {
    constexpr double MEGABYTE = 1e6;
    const auto so_far = static_cast<double>(done.load(std::memory_order_relaxed)) / MEGABYTE;
    const auto all = static_cast<double>(total.load(std::memory_order_relaxed)) / MEGABYTE;
    char amount[64] = " ...";
    if (all > 0) {
        std::snprintf(amount, sizeof amount, " %.1f of %.1f MB", so_far, all);
    } else if (so_far > 0) {
        std::snprintf(amount, sizeof amount, " %.1f MB", so_far);
    }
    return program + ": " + (step.empty() ? all > 0 ? "sending" : "receiving" : step) + amount;
}

}  // namespace program
