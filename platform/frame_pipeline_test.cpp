#include "platform/frame_pipeline.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>

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

}  // namespace
