#include "lapi_mqtt/transport/delivery.h"

#include <exception>
#include <utility>

#include "ecu/lapi/logging.h"

namespace lapi_mqtt {
namespace {

constexpr std::size_t MOST_BYTES = 32 << 20;
constexpr std::size_t MOST_JOBS = 10'000;

}  // namespace

void Delivery::start() {
    if (!thread.joinable()) thread = std::thread([this] { run(); });
}

void Delivery::push(std::size_t bytes, Job job) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] {
        return closed || jobs.empty() || (bytes_waiting < MOST_BYTES && jobs.size() < MOST_JOBS);
    });
    if (closed) return;
    jobs.push_back({bytes, std::move(job)});
    bytes_waiting += bytes;
    changed.notify_all();
}

void Delivery::push_at_once(Job job) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (closed && !is_current_thread()) return;
    jobs.push_back({0, std::move(job)});
    changed.notify_all();
}

void Delivery::close() {
    const std::lock_guard<std::mutex> lock(mutex);
    closed = true;
    changed.notify_all();
}

void Delivery::stop() {
    close();
    if (thread.joinable()) thread.join();
}

void Delivery::run() {
    thread_id = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return closed || !jobs.empty(); });
        if (jobs.empty()) return;
        Waiting next = std::move(jobs.front());
        jobs.pop_front();
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
        changed.notify_all();
    }
}

}  // namespace lapi_mqtt
