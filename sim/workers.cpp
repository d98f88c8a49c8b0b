#include "sim/workers.h"
#include "platform/platform.h"

namespace sim {

WorkerPool::WorkerPool(int helpers) : threads_(helpers > 0 ? static_cast<size_t>(helpers) + 1 : 1) {
    try {
        for (int i = 0; i < helpers; ++i)
            helpers_.emplace_back([this, i] {
                platform::NameThisThread("sim-helper");
                HelperLoop(i + 1);
            });
    } catch (...) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            quit_ = true;
        }
        wake_.notify_all();
        for (auto& t : helpers_) t.join();
        throw;
    }
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
    for (auto& t : helpers_) t.join();
}

void WorkerPool::ParallelFor(size_t count, const std::function<void(size_t, size_t)>& body) {
    const size_t threads = static_cast<size_t>(Threads());
    if (threads == 1 || count < 64) {
        body(0, count);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        body_ = &body;
        count_ = count;
        pending_ = static_cast<int>(threads_ - 1);
        ++generation_;
    }
    wake_.notify_all();
    body(0, count / threads);  // the caller's own slice
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return pending_ == 0; });
    body_ = nullptr;
}

void WorkerPool::HelperLoop(int index) {
    unsigned seen = 0;
    for (;;) {
        const std::function<void(size_t, size_t)>* body;
        size_t count;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [&] { return quit_ || generation_ != seen; });
            if (quit_) return;
            seen = generation_;
            body = body_;
            count = count_;
        }
        const size_t threads = threads_;
        (*body)(count * index / threads, count * (index + 1) / threads);
        std::lock_guard<std::mutex> lock(mutex_);
        if (--pending_ == 0) done_.notify_one();
    }
}

}  // namespace sim
