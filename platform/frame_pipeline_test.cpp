#include "platform/frame_pipeline.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <algorithm>
#include <set>
#include <vector>

namespace {

// A device whose work finishes only when the test says so; fences are
// numbered in submission order.
class FakeFences : public platform::FenceOps {
public:
    void* Insert() override {
        if (!fencesWork) return nullptr;
        ++inserted;
        live.insert(inserted);
        return reinterpret_cast<void*>(inserted);
    }
    bool Done(void* fence, bool wait) override {
        const uintptr_t id = reinterpret_cast<uintptr_t>(fence);
        if (wait && id > completed) {
            ++waits;
            completed = id;  // the device catches up to this fence
        }
        return id <= completed;
    }
    void Free(void* fence) override {
        EXPECT_EQ(live.erase(reinterpret_cast<uintptr_t>(fence)), 1u) << "freed twice or never made";
    }
    void FinishAll() override {
        ++finishAlls;
        completed = inserted;
    }

    bool fencesWork = true;
    uintptr_t inserted = 0, completed = 0;
    int waits = 0, finishAlls = 0;
    std::set<uintptr_t> live;
};

TEST(FramePipeline, KeepsAtMostTwoFramesInFlightAndCountsOnlyFinishedOnes) {
    FakeFences ops;
    platform::FramePipeline p;
    p.Presented(ops);
    p.Presented(ops);
    // Two frames may be queued without anyone waiting for the device.
    EXPECT_EQ(p.inFlight(), 2);
    EXPECT_EQ(ops.waits, 0);
    EXPECT_EQ(p.Finished(ops), 0u);
    // The third present waits for the oldest frame, as a swap chain would.
    p.Presented(ops);
    EXPECT_EQ(ops.waits, 1);
    EXPECT_EQ(p.inFlight(), 2);
    EXPECT_EQ(p.Finished(ops), 1u);
    // The device finishing frames on its own shows without waiting.
    ops.completed = 3;
    EXPECT_EQ(p.Finished(ops), 3u);
    EXPECT_EQ(p.inFlight(), 0);
    for (int i = 0; i < 100; ++i) {
        p.Presented(ops);
        EXPECT_LE(p.inFlight(), 2);
    }
    EXPECT_EQ(p.presented(), 103u);
    EXPECT_EQ(p.Finished(ops), 101u);
    p.Drain(ops);
    EXPECT_EQ(p.Finished(ops), 103u);
    EXPECT_TRUE(ops.live.empty());
}

TEST(FramePipeline, WithoutFencesEachFrameIsWaitedForAndReleaseFreesWhatIsLeft) {
    FakeFences ops;
    ops.fencesWork = false;
    platform::FramePipeline p;
    p.Presented(ops);
    p.Presented(ops);
    EXPECT_EQ(ops.finishAlls, 2);
    EXPECT_EQ(p.Finished(ops), 2u);

    // A device going away with frames in flight frees their fences once.
    FakeFences live;
    platform::FramePipeline q;
    q.Presented(live);
    q.Presented(live);
    q.Release(live);
    EXPECT_TRUE(live.live.empty());
    EXPECT_EQ(q.inFlight(), 0);
}

// A device that draws each frame in gpuSeconds once it has been submitted,
// one frame after the other, on a clock the test drives. Its fence wait
// spins (like some drivers): the time spent in it is counted.
class TimedDevice : public platform::FenceOps, public platform::WaitClock {
public:
    double Now() override { return now; }
    void Sleep(double s) override {
        now += s;
        slept += s;
    }
    double MinSleep() override { return 0.0002; }

    void* Insert() override {
        const double start = std::max(lastDone, now);
        lastDone = start + gpuSeconds;
        drawn.push_back({start, lastDone});
        return reinterpret_cast<void*>(drawn.size());
    }
    bool Done(void* fence, bool wait) override {
        const double done = drawn[reinterpret_cast<uintptr_t>(fence) - 1].second;
        if (now >= done) return true;
        if (!wait) return false;
        spun += done - now;
        now = done;
        return true;
    }
    void Free(void*) override {}
    void FinishAll() override {}

    // Share of the time from frame `from` on during which the device drew.
    double Busy(size_t from) const {
        double busy = 0;
        for (size_t i = from; i < drawn.size(); ++i) busy += drawn[i].second - drawn[i].first;
        return busy / (drawn.back().second - drawn[from].first);
    }

    double now = 0, slept = 0, spun = 0, lastDone = 0, gpuSeconds = 0.010;
    std::vector<std::pair<double, double>> drawn;  // start and end of each frame
};

TEST(FramePipeline, PacedWaitsSleepMostOfTheWaitAndKeepTheDeviceBusy) {
    TimedDevice dev;
    platform::FramePipeline p(platform::kMaxFramesInFlight, &dev);
    auto frames = [&](int n) {
        for (int i = 0; i < n; ++i) {
            dev.now += 0.001;  // the thread's own work for a frame
            p.Presented(dev);
        }
    };
    // A device ten times slower than the thread: after a few frames most of
    // each wait is slept, and the device never runs dry.
    frames(10);
    const double slept0 = dev.slept, spun0 = dev.spun;
    frames(200);
    const double slept = dev.slept - slept0, spun = dev.spun - spun0;
    EXPECT_GT(slept, 10 * spun) << "slept " << slept << " s, spun " << spun << " s";
    EXPECT_GT(dev.Busy(10), 0.999);
    EXPECT_EQ(p.presented() - p.Finished(dev), 2u);

    // The device becomes five times faster: sleeps that are now too long
    // shrink within a few frames, and the device is busy again.
    dev.gpuSeconds = 0.002;
    frames(30);
    const size_t settled = dev.drawn.size();
    frames(200);
    EXPECT_GT(dev.Busy(settled), 0.99);
    EXPECT_LT(p.pacer().estimate(), 0.0015);

    // One frame that takes the device two seconds: the frames after it are
    // not held up by sleeps sized from it.
    dev.gpuSeconds = 2.0;
    frames(1);
    dev.gpuSeconds = 0.002;
    frames(5);
    const size_t afterSlowFrame = dev.drawn.size();
    frames(100);
    EXPECT_GT(dev.Busy(afterSlowFrame), 0.99);

    // A device faster than the thread: frames are finished before anyone
    // waits, so nobody sleeps.
    dev.gpuSeconds = 0.0005;
    frames(20);
    const double sleptFast = dev.slept, spunFast = dev.spun;
    frames(100);
    EXPECT_EQ(dev.slept, sleptFast);
    EXPECT_EQ(dev.spun, spunFast);
}

}  // namespace
