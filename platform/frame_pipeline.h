// Frames between "handed to the driver" and "drawn". Drivers queue work, so
// a frame that has been presented may not exist yet; a run that counted
// presents would measure how fast frames are handed over, and a driver left
// to itself queues without bound (memory grows, the run's limits end the
// loop long before its frames are drawn). The pipeline fences every
// presented frame, keeps at most kMaxFramesInFlight of them unfinished (as a
// swap chain would), and counts a frame only once its fence has signalled.
//
// The fence itself is the API's (an OpenGL sync object, a Direct3D event
// query); FenceOps wraps it. Everything here runs on the thread that owns the
// device.
#pragma once

#include <cstdint>
#include <deque>

namespace platform {

constexpr int kMaxFramesInFlight = 2;

class FenceOps {
public:
    virtual ~FenceOps() = default;
    // Fences everything submitted so far; null when no fence could be made.
    virtual void* Insert() = 0;
    // Has the fenced work finished? With wait, blocks until it has (or the
    // device is gone, which also counts as finished).
    virtual bool Done(void* fence, bool wait) = 0;
    virtual void Free(void* fence) = 0;
    // Without fences: waits until everything submitted has been drawn.
    virtual void FinishAll() = 0;
};

class FramePipeline {
public:
    explicit FramePipeline(int maxInFlight = kMaxFramesInFlight) : maxInFlight_(maxInFlight) {}

    // Right after a present: fences the frame, then waits until no more than
    // the allowed number of frames are unfinished.
    void Presented(FenceOps& ops) {
        ++presented_;
        void* fence = ops.Insert();
        if (!fence) {
            // No fences on this device: the frame is waited for at once, so
            // the count still follows drawn frames.
            ops.FinishAll();
            Release(ops);
            finished_ = presented_;
            return;
        }
        pending_.push_back(fence);
        Poll(ops);
        while (static_cast<int>(pending_.size()) > maxInFlight_) RetireOldest(ops, true);
    }

    // Frames drawn since the pipeline started; looks at the fences without waiting.
    uint64_t Finished(FenceOps& ops) {
        Poll(ops);
        return finished_;
    }

    // Waits until every presented frame has been drawn.
    void Drain(FenceOps& ops) {
        while (!pending_.empty()) RetireOldest(ops, true);
        finished_ = presented_;
    }

    // Frees the fences of frames still unfinished (the device is going away).
    void Release(FenceOps& ops) {
        for (void* f : pending_) ops.Free(f);
        pending_.clear();
    }

    uint64_t presented() const { return presented_; }
    int inFlight() const { return static_cast<int>(pending_.size()); }

private:
    void Poll(FenceOps& ops) {
        // Fences signal in order: the first unfinished one ends the scan.
        while (!pending_.empty() && ops.Done(pending_.front(), false)) Retire(ops);
    }
    void RetireOldest(FenceOps& ops, bool wait) {
        ops.Done(pending_.front(), wait);
        Retire(ops);
    }
    void Retire(FenceOps& ops) {
        ops.Free(pending_.front());
        pending_.pop_front();
        ++finished_;
    }

    int maxInFlight_;
    uint64_t presented_ = 0;
    uint64_t finished_ = 0;
    std::deque<void*> pending_;
};

}  // namespace platform
