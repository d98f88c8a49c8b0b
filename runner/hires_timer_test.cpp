#include "runner/hires_timer.h"

#include <gtest/gtest.h>

namespace {

class ScriptedClock : public ClockSource {
public:
    int64_t Frequency() override {
        frequencyReads++;
        return frequency;
    }
    int64_t Counter() override { return counter; }
    uint32_t Ticks() override { return ticks; }
    // Both clocks move together by ms.
    void Both(unsigned ms) {
        counter += static_cast<int64_t>(ms) * frequency / 1000;
        ticks += ms;
    }
    int64_t frequency = 3579000;  // a counter rate unlike the tick rate
    int64_t counter = 123456789;
    uint32_t ticks = 0xFFFFF000u;  // close to the wrap of the 32-bit tick count
    int frequencyReads = 0;
};

TEST(HiResTimer, FollowsTheCounterWhileClocksAgree) {
    ScriptedClock c;
    HiResTimer t(c);
    t.Start();
    EXPECT_EQ(t.Milliseconds(), 0u);
    c.Both(1500);
    EXPECT_EQ(t.Milliseconds(), 1500u);
    // Up to 100 ms of disagreement is normal jitter of the coarse clock.
    c.counter += 90 * c.frequency / 1000;
    EXPECT_EQ(t.Milliseconds(), 1590u);
    c.Both(10000);  // across the tick count's wrap
    EXPECT_EQ(t.Milliseconds(), 11590u);
}

TEST(HiResTimer, ForwardJumpOfTheCounterIsTakenBack) {
    ScriptedClock c;
    HiResTimer t(c);
    t.Start();
    c.Both(1000);
    EXPECT_EQ(t.Milliseconds(), 1000u);
    c.counter += 5000 * c.frequency / 1000;  // counter leaps 5 s, ticks do not
    c.Both(16);
    unsigned ms = t.Milliseconds();
    EXPECT_GE(ms, 1000u);
    EXPECT_LE(ms, 1017u);
    // And time goes on normally from there.
    c.Both(100);
    EXPECT_NEAR(static_cast<double>(t.Milliseconds()), ms + 100.0, 1.0);
}

TEST(HiResTimer, StalledCounterCatchesUpWithTheTicks) {
    ScriptedClock c;
    HiResTimer t(c);
    t.Start();
    c.Both(1000);
    t.Milliseconds();
    c.ticks += 3000;  // the counter stood still for 3 s
    unsigned ms = t.Milliseconds();
    EXPECT_NEAR(static_cast<double>(ms), 4000.0, 1.0);
}

TEST(HiResTimer, FrequencyIsReadAgainEvery200Reads) {
    ScriptedClock c;
    HiResTimer t(c);
    t.Start();
    EXPECT_EQ(c.frequencyReads, 1);
    for (int i = 0; i < 199; ++i) t.Milliseconds();
    EXPECT_EQ(c.frequencyReads, 1);
    t.Milliseconds();
    EXPECT_EQ(c.frequencyReads, 2);
    for (int i = 0; i < 200; ++i) t.Milliseconds();
    EXPECT_EQ(c.frequencyReads, 3);
}

TEST(HiResTimer, SystemClockMovesForward) {
    HiResTimer t;
    t.Start();
    unsigned a = t.Milliseconds();
    unsigned b = t.Milliseconds();
    EXPECT_LE(a, b);
    EXPECT_LT(b, 1000u);
}

}  // namespace
