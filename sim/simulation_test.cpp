#include "sim/simulation.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "core/event_log.h"
#include "platform/platform.h"

namespace sim {
namespace {

SceneDesc SmallScene() {
    SceneDesc d;
    d.flagColumns = 12;
    d.flagRows = 8;
    d.particleCount = 300;
    d.fluidMin[0] = -0.6f, d.fluidMin[2] = -0.6f;
    d.fluidMax[0] = 0.6f, d.fluidMax[2] = 0.6f;
    d.emitterPosition[0] = 0.0f;
    return d;
}

std::string LogText() {
    std::ifstream f(kEventLogFileName);
    std::stringstream s;
    s << f.rdbuf();
    return s.str();
}

template <typename F>
bool WaitUntil(F&& cond, int ms = 5000) {
    for (int i = 0; i < ms / 5; ++i) {
        if (cond()) return true;
        platform::SleepMs(5);
    }
    return cond();
}

TEST(Simulation, ThreadsIdleWhileInactiveCountPerStageAndStopWithinAStep) {
    Simulation s;
    ASSERT_TRUE(s.Startup(SmallScene(), false));
    EXPECT_FALSE(s.UsesGpu());
    EXPECT_TRUE(s.ClothExited());
    s.StartThreads();
    EXPECT_FALSE(s.ClothExited());
    EXPECT_FALSE(s.FluidExited());
    platform::SleepMs(150);
    EXPECT_EQ(s.Counters().clothTotal.load(), 0);  // not active yet
    s.Counters().currentStage = 2;
    s.SetActive(true);
    ASSERT_TRUE(WaitUntil([&] { return s.Counters().clothStage[2] > 20 && s.Counters().fluidStage[2] > 20; }));
    s.Counters().currentStage = 4;
    ASSERT_TRUE(WaitUntil([&] { return s.Counters().clothStage[4] > 5 && s.Counters().fluidStage[4] > 5; }));
    auto t0 = std::chrono::steady_clock::now();
    s.Shutdown();
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2));
    EXPECT_TRUE(s.ClothExited());
    EXPECT_TRUE(s.FluidExited());
    const SimCounters& c = s.Counters();
    EXPECT_EQ(c.clothStage[2] + c.clothStage[4], c.clothTotal.load());
    EXPECT_EQ(c.fluidStage[2] + c.fluidStage[4], c.fluidTotal.load());
    EXPECT_EQ(c.clothStage[0] + c.clothStage[1] + c.clothStage[3], 0);
    // The render buffers carry the last steps.
    EXPECT_EQ(s.Flag().step, c.clothTotal.load());
    EXPECT_EQ(s.Fluid().step, c.fluidTotal.load());
    EXPECT_EQ(s.Fluid().count, s.LiveParticles());
    EXPECT_GT(s.LiveParticles(), 0);
    EXPECT_EQ(s.Flag().positions.size(), size_t(3 * s.Meshes().flagVertexCount));
    std::string log = LogText();
    for (const char* line : {"Ardentium simulation engine version 1.0.0 successfully started.",
                             "NVIDIA PhysX engine - PhysX CPU codepath selected.", "NVIDIA PhysX startup ok.",
                             "PhysX simulation thread - Start ok.", "PhysX fluids simulation thread - Start ok.",
                             "PhysX simulation thread - Exit ok.", "PhysX fluids simulation thread - Exit ok.",
                             "NVIDIA PhysX shutdown ok."})
        EXPECT_NE(log.find(line), std::string::npos) << line;
}

TEST(Simulation, StepsFinishedWhileTheStageIsHeldCountInTheTotalsOnly) {
    Simulation s;
    ASSERT_TRUE(s.Startup(SmallScene(), false));
    s.StartThreads();
    SimCounters& c = s.Counters();
    c.currentStage = 2;
    c.stageHeld = true;
    s.SetActive(true);
    ASSERT_TRUE(WaitUntil([&] { return c.clothTotal > 10 && c.fluidTotal > 10; }));
    EXPECT_EQ(c.clothStage[2].load(), 0);
    EXPECT_EQ(c.fluidStage[2].load(), 0);
    c.stageHeld = false;
    ASSERT_TRUE(WaitUntil([&] { return c.clothStage[2] > 5 && c.fluidStage[2] > 5; }));
    s.Shutdown();
    EXPECT_LT(c.clothStage[2].load(), c.clothTotal.load());
    EXPECT_LT(c.fluidStage[2].load(), c.fluidTotal.load());
    c.Reset();
    EXPECT_FALSE(c.stageHeld.load());
}

TEST(Simulation, SynchronisedModeTakesExactlyOneStepPerFrame) {
    Simulation s;
    ASSERT_TRUE(s.Startup(SmallScene(), false));
    s.SetSynchronised(true, true);
    s.SetActive(true);
    s.StartThreads();
    platform::SleepMs(50);
    EXPECT_EQ(s.Counters().clothTotal.load(), 0);
    for (int frame = 1; frame <= 10; ++frame) {
        s.TriggerStep(0.016f);
        s.WaitStepDone();
        EXPECT_EQ(s.Counters().clothTotal.load(), frame);
        EXPECT_EQ(s.Counters().fluidTotal.load(), frame);
        EXPECT_EQ(s.Flag().step, frame);
    }
    platform::SleepMs(50);
    EXPECT_EQ(s.Counters().clothTotal.load(), 10);
    s.Shutdown();  // releases the threads waiting for the next frame
    EXPECT_TRUE(s.ClothExited());
    EXPECT_TRUE(s.FluidExited());
}

TEST(Simulation, FailuresAreLoggedAndDisableOnlyTheirPart) {
    {
        SceneDesc d = SmallScene();
        d.spheres.push_back({{0, 0, 0}, -1.0f});
        Simulation s;
        EXPECT_FALSE(s.Startup(d, false));
        EXPECT_NE(LogText().find("NVIDIA PhysX: could not create PhysX scene!"), std::string::npos);
    }
    SceneDesc d = SmallScene();
    d.flagSupportValue = 2;
    d.particleCount = 0;
    Simulation s;
    ASSERT_TRUE(s.Startup(d, false));
    std::string log = LogText();
    EXPECT_NE(log.find("NVIDIA PhysX - cooking mesh PhysXFlagSupportMesh failed."), std::string::npos);
    EXPECT_NE(log.find("NVIDIA PhysX: fluid creation failed."), std::string::npos);
    s.StartThreads();
    s.SetActive(true);
    platform::SleepMs(100);
    EXPECT_EQ(s.Counters().clothTotal.load(), 0);  // nothing to step, nothing counted
    EXPECT_TRUE(s.ClothExited());
    s.Shutdown();

    SceneDesc e = SmallScene();
    e.flagColumns = 1;
    e.emitterPosition[1] = 100.0f;
    Simulation t;
    ASSERT_TRUE(t.Startup(e, false));
    log = LogText();
    EXPECT_NE(log.find("NVIDIA PhysX: could not initialize cooking lib"), std::string::npos);
    EXPECT_NE(log.find("NVIDIA PhysX: fluid emitter creation failed."), std::string::npos);
    SceneDesc f = SmallScene();
    f.flagHeight = 0.0f;
    Simulation u;
    ASSERT_TRUE(u.Startup(f, false));
    EXPECT_NE(LogText().find("NVIDIA PhysX - cooking mesh PhysXFlagMesh failed."), std::string::npos);
}

TEST(TripleBuffer, ReaderAlwaysSeesWholeFrames) {
    TripleBuffer<std::vector<int>> b;
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (int n = 1; !stop.load(); ++n) {
            b.WriteSlot().assign(64, n);
            b.Publish();
        }
    });
    int last = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::vector<int>& f = b.Read();
        if (f.empty()) continue;
        for (int v : f) ASSERT_EQ(v, f[0]);
        ASSERT_GE(f[0], last);  // never older than what was seen
        last = f[0];
    }
    stop = true;
    writer.join();
}

}  // namespace
}  // namespace sim
