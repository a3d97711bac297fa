#include "lapi_mqtt/transport/dispatcher.h"

#include <exception>
#include <utility>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {

constexpr std::size_t MAX_BYTES = 32 << 20;
constexpr std::size_t MAX_JOBS = 10'000;

void Dispatcher::start() {
    if (!thread.joinable()) thread = std::thread([this] { run(); });
}

void Dispatcher::push(const std::string& lane, std::size_t bytes, Job job) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] {
        return closed || jobs_waiting == 0 ||
               (bytes_waiting < MAX_BYTES && jobs_waiting < MAX_JOBS);
    });
    if (!closed) add(lane, bytes, std::move(job));
}

void Dispatcher::push_at_once(Job job) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!closed || is_current_thread()) add("", 0, std::move(job));
}

void Dispatcher::close() {
    const std::lock_guard<std::mutex> lock(mutex);
    closed = true;
    changed.notify_all();
}

void Dispatcher::stop() {
    close();
    if (thread.joinable()) thread.join();
}

void Dispatcher::add(const std::string& lane, std::size_t bytes, Job job) {
    auto& waiting = lanes[lane];
    if (waiting.empty()) turns.push_back(lane);
    waiting.push_back({bytes, std::move(job)});
    bytes_waiting += bytes;
    ++jobs_waiting;
    changed.notify_all();
}

Dispatcher::Waiting Dispatcher::take_next() {
    const auto lane = lanes.find(turns.front());
    turns.pop_front();
    Waiting next = std::move(lane->second.front());
    lane->second.pop_front();
    if (lane->second.empty()) {
        lanes.erase(lane);
    } else {
        turns.push_back(lane->first);
    }
    return next;
}

void Dispatcher::run() {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return closed || !turns.empty(); });
        if (turns.empty()) return;
        Waiting next = take_next();
        lock.unlock();
        try {
            next.job();
        } catch (const std::exception& error) {
            ecu::lapi::logging::write(ecu::lapi::logging::ERROR,
                                      "What a message set off failed: ", error.what());
        }
        next.job = nullptr;
        lock.lock();
        bytes_waiting -= next.bytes;
        --jobs_waiting;
        changed.notify_all();
    }
}

}  // namespace lapi_mqtt
