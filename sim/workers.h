// Helper threads that share a loop with the calling thread: the fluid's
// inner passes use every core this way.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

class WorkerPool {
public:
    // helpers: threads besides the caller (0 runs everything on the caller).
    // Throws std::system_error when a thread cannot be made.
    explicit WorkerPool(int helpers);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    int Threads() const { return static_cast<int>(threads_); }
    // Runs body(begin, end) over [0, count) in one slice per thread and
    // returns when all slices are done.
    void ParallelFor(size_t count, const std::function<void(size_t, size_t)>& body);

private:
    void HelperLoop(int index);

    size_t threads_;  // fixed before any helper starts
    std::vector<std::thread> helpers_;
    std::mutex mutex_;
    std::condition_variable wake_, done_;
    const std::function<void(size_t, size_t)>* body_ = nullptr;
    size_t count_ = 0;
    unsigned generation_ = 0;
    int pending_ = 0;
    bool quit_ = false;
};

}  // namespace sim
