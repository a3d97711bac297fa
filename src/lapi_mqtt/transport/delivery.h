#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace lapi_mqtt {

/// Runs what the arrival of messages sets off, in order, on a thread of its own: the thread that
/// reads the connection is never held up by an observer or a service, and so knows when each
/// message came.
class Delivery {
public:
    using Job = std::function<void()>;

    ~Delivery() { stop(); }

    void start();

    /// Waits while too much is waiting: the broker, not this process, is to keep what comes faster
    /// than it is dealt with. `bytes` is what the job keeps in memory.
    void push(std::size_t bytes, Job job);

    /// The same without waiting, for small jobs pushed under a lock that jobs need.
    void push_at_once(Job job);

    /// Takes no more but from jobs. Jobs that wait still run.
    void close();

    /// Returns when all jobs have run.
    void stop();

    bool is_current_thread() const { return std::this_thread::get_id() == thread_id; }

private:
    struct Waiting {
        std::size_t bytes;
        Job job;
    };

    void run();

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::deque<Waiting> jobs;
    std::size_t bytes_waiting = 0;
    bool closed = false;

    std::atomic<std::thread::id> thread_id{};
    std::thread thread;  // of the thread that starts and stops
};

}  // namespace lapi_mqtt
