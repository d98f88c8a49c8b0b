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

// Time for the pipeline's waits: a monotonic clock and a sleep.
class WaitClock {
public:
    virtual ~WaitClock() = default;
    virtual double Now() = 0;  // seconds
    virtual void Sleep(double seconds) = 0;
    // The shortest sleep worth taking: sleeps overshoot by about the system's
    // timer resolution. Very large when paced waits are turned off.
    virtual double MinSleep() = 0;
};
// The system's clock and sleep (ARDENTIUM_PACED_WAIT=0 in the environment
// turns the paced waits off, to compare with the driver's own wait).
WaitClock& SystemWaitClock();

// Waiting for a frame inside the driver often costs a whole processor: some
// drivers spin in their fence wait, and Direct3D's event queries can only be
// polled. The pacer learns how long the blocking waits last and has the
// thread sleep most of that time first, so the driver's wait covers only the
// rest. Sleeping a little too long costs no frames: the device still has the
// next frame queued while the thread sleeps.
class WaitPacer {
public:
    // How long to sleep, `elapsed` s into a wait, before looking at the
    // fence again (0: leave the rest to the driver's wait). Each sleep takes
    // a share of the wait the estimate still expects, so the sleeps get
    // shorter towards its end; none is longer than kMaxSleep, so one slow
    // frame in the estimate cannot hold up the frames after it.
    double NextSleep(double elapsed, double minSleep) const {
        const double s = (estimate_ - elapsed) * kShare;
        return s >= minSleep ? (s < kMaxSleep ? s : kMaxSleep) : 0.0;
    }
    // The frame had finished by the end of the first sleep, `elapsed` s
    // into the wait: the true wait was shorter, by an unknown amount.
    void FinishedDuringFirstSleep(double elapsed) {
        estimate_ *= kShrink;
        if (estimate_ > elapsed) estimate_ = elapsed;
    }
    // The whole wait (sleeps and the driver's wait) took about `total` s.
    // The estimate at most doubles per wait (from 1 ms up): one slow frame (a
    // stall, shaders compiled on first use) must not size the sleeps of the
    // frames after it.
    void Waited(double total) {
        const double next = estimate_ + kWeight * (total - estimate_);
        const double most = estimate_ > kGrowthFloor / 2 ? 2 * estimate_ : kGrowthFloor;
        estimate_ = next < most ? next : most;
    }
    double estimate() const { return estimate_; }

private:
    static constexpr double kShare = 0.75, kShrink = 0.8, kWeight = 0.3, kMaxSleep = 0.05,
                            kGrowthFloor = 0.001;
    double estimate_ = 0.0;
};

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
    explicit FramePipeline(int maxInFlight = kMaxFramesInFlight, WaitClock* clock = nullptr)
        : maxInFlight_(maxInFlight), clock_(clock ? clock : &SystemWaitClock()) {}

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
        while (static_cast<int>(pending_.size()) > maxInFlight_) WaitForOldest(ops);
    }

    // Frames drawn since the pipeline started; looks at the fences without waiting.
    uint64_t Finished(FenceOps& ops) {
        Poll(ops);
        return finished_;
    }

    // Waits until every presented frame has been drawn.
    void Drain(FenceOps& ops) {
        while (!pending_.empty()) RetireOldest(ops);
        finished_ = presented_;
    }

    // Frees the fences of frames still unfinished (the device is going away).
    void Release(FenceOps& ops) {
        for (void* f : pending_) ops.Free(f);
        pending_.clear();
    }

    uint64_t presented() const { return presented_; }
    int inFlight() const { return static_cast<int>(pending_.size()); }
    const WaitPacer& pacer() const { return pacer_; }

private:
    void Poll(FenceOps& ops) {
        // Fences signal in order: the first unfinished one ends the scan.
        while (!pending_.empty() && ops.Done(pending_.front(), false)) Retire(ops);
    }
    void RetireOldest(FenceOps& ops) {
        ops.Done(pending_.front(), true);
        Retire(ops);
    }
    // The wait that keeps the frames in flight bounded, paced.
    void WaitForOldest(FenceOps& ops) {
        WaitClock& clock = *clock_;
        const double start = clock.Now(), minSleep = clock.MinSleep();
        double elapsed = 0;
        for (int sleeps = 1;; ++sleeps) {
            const double sleep = pacer_.NextSleep(elapsed, minSleep);
            if (sleep <= 0) break;
            clock.Sleep(sleep);
            const double before = elapsed;
            elapsed = clock.Now() - start;
            if (ops.Done(pending_.front(), false)) {
                // It finished during this sleep: when exactly is not known.
                if (sleeps == 1) pacer_.FinishedDuringFirstSleep(elapsed);
                else pacer_.Waited((before + elapsed) / 2);
                Retire(ops);
                return;
            }
        }
        RetireOldest(ops);
        pacer_.Waited(clock.Now() - start);
    }
    void Retire(FenceOps& ops) {
        ops.Free(pending_.front());
        pending_.pop_front();
        ++finished_;
    }

    int maxInFlight_;
    WaitClock* clock_;
    WaitPacer pacer_;
    uint64_t presented_ = 0;
    uint64_t finished_ = 0;
    std::deque<void*> pending_;
};

}  // namespace platform
