// A lock-free triple buffer: one thread publishes whole frames, another
// takes the newest one, and neither ever sees a frame being written.
#pragma once

#include <atomic>
#include <cstdint>

namespace sim {

template <typename T>
class TripleBuffer {
public:
    // The slot the writer fills next; only the writer touches it.
    T& WriteSlot() { return slots_[write_]; }
    // Hands the filled slot over and takes the spare one back.
    void Publish() {
        write_ = middle_.exchange(write_ | kFresh, std::memory_order_acq_rel) & kIndex;
    }
    // The newest published frame (the last one read when nothing new came).
    const T& Read() {
        if (middle_.load(std::memory_order_relaxed) & kFresh)
            read_ = middle_.exchange(read_, std::memory_order_acq_rel) & kIndex;
        return slots_[read_];
    }

private:
    static constexpr uint8_t kFresh = 4, kIndex = 3;
    T slots_[3];
    uint8_t write_ = 0;
    uint8_t read_ = 1;
    std::atomic<uint8_t> middle_{2};
};

}  // namespace sim
