#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace lapi_mqtt {

/// Runs what the arrival of messages sets off, on a thread of its own: the thread that reads the
/// connection is never held up by an observer or a service, and so knows when each message came.
/// Jobs of one lane run in order, the lanes take turns: one client's requests do not stand before
/// everybody's.
class Dispatcher {
public:
    using Job = std::function<void()>;

    ~Dispatcher() { stop(); }

    void start();

    /// Blocks while the queue is full, so that the broker buffers the rest. `bytes` is what the job
    /// keeps in memory. Without effect once the dispatcher is closed.
    void push(const std::string& lane, std::size_t bytes, Job job);

    /// The same without blocking, for small jobs of the lane "" that are pushed under a lock that
    /// jobs need. A job may still do so when the dispatcher is closed.
    void push_at_once(Job job);

    /// Takes no more from outside. Jobs that wait still run.
    void close();

    /// Returns when all jobs have run.
    void stop();

    bool is_current_thread() const { return std::this_thread::get_id() == thread.get_id(); }

private:
    struct Waiting {
        std::size_t bytes;
        Job job;
    };

    void add(const std::string& lane, std::size_t bytes, Job job);
    Waiting take_next();
    void run();

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::map<std::string, std::deque<Waiting>> lanes;  ///< those with jobs
    std::deque<std::string> turns;                     ///< each lane once, the next one first
    std::size_t bytes_waiting = 0;
    std::size_t jobs_waiting = 0;
    bool closed = false;

    std::thread thread;  // of the thread that starts and stops
};

}  // namespace lapi_mqtt
