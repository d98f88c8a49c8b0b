#include "runner/render_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "core/run_outcome.h"
#include "core/settings.h"
#include "runner/demo_access.h"
#include "runner/run_results.h"
#include "runner/run_stats.h"

namespace {

// A clock that only moves when the test says so. Counter in microseconds.
class FakeClock : public ClockSource {
public:
    int64_t Frequency() override { return 1000000; }
    int64_t Counter() override { return counterUs; }
    uint32_t Ticks() override { return ticksMs; }
    void Advance(unsigned ms) {
        counterUs += static_cast<int64_t>(ms) * 1000;
        ticksMs += ms;
    }
    int64_t counterUs = 5000000;
    uint32_t ticksMs = 777;
};

struct Calls {
    int init = 0, frames = 0, terminate = 0, destroyed = 0;
    std::vector<std::string> order;
};

class FakeDemo : public cLm4DDemo {
public:
    FakeDemo(Calls& c, FakeClock& clock, std::function<unsigned(int)> frameMs, bool initOk)
        : c_(c), clock_(clock), frameMs_(std::move(frameMs)), initOk_(initOk) {}
    ~FakeDemo() override {
        c_.destroyed++;
        c_.order.push_back("delete");
    }
    bool Init(const RenderTarget&, int, int) override {
        c_.init++;
        c_.order.push_back("Init");
        return initOk_;
    }
    void Terminate() override {
        c_.terminate++;
        c_.order.push_back("Terminate");
    }
    void Frame(float) override {
        if (c_.frames == 0) c_.order.push_back("Frame");
        seconds.push_back(frame_seconds);
        clock_.Advance(frameMs_(c_.frames));
        c_.frames++;
        if (onFrame) onFrame(c_.frames);
    }
    void ClearScreen() override {}
    void BeginOverlay() override {}
    void EndOverlay() override {}
    void DrawText(int, int, const Color4&, const char*) override {}
    void DrawQuad(int, int, int, int, const Color4&, unsigned short) override {}
    void Present() override {}
    bool AmarkFinished() const override { return amarkFinishedAt > 0 && c_.frames >= amarkFinishedAt; }
    bool DeviceLost() const override { return lostAt > 0 && c_.frames >= lostAt; }
    double FinalScore() const override { return 4321.9; }
    void LogStageResults() override { c_.order.push_back("LogStageResults"); }
    // A device that finishes each frame `lag` frames after it was handed over.
    uint64_t FramesFinished() override {
        if (lag < 0) return kFramesNotTracked;
        const int64_t done = std::max<int64_t>(drainedTo, c_.frames - lag);
        return static_cast<uint64_t>(std::max<int64_t>(done, 0));
    }
    void FinishFrames() override {
        drainedTo = c_.frames;
        drains++;
    }

    // A picture check: the frame the fake device draws when asked (none
    // when unset).
    bool DrawCheckFrame(CheckFrame* out) override {
        if (!checkFrame) return false;
        checkFrames++;
        clock_.Advance(checkMs);
        return checkFrame(c_.frames, out);
    }
    int RunComputeCheck() override { return computeCheck ? computeCheck(c_.frames) : -1; }
    std::function<bool(int, CheckFrame*)> checkFrame;
    std::function<int(int)> computeCheck;
    int checkFrames = 0;
    unsigned checkMs = 0;  // how long each check frame takes on the run's clock

    std::vector<float> seconds;
    int lag = -1;
    int64_t drainedTo = 0;
    int drains = 0;
    std::function<void(int)> onFrame;
    int amarkFinishedAt = 0;
    int lostAt = 0;

private:
    Calls& c_;
    FakeClock& clock_;
    std::function<unsigned(int)> frameMs_;
    bool initOk_;
};

class FakeHost : public RunHost {
public:
    void SetTitle(const char* t) override { titles.push_back(t); }
    void PostClose() override { closes++; }
    void AttachInput(bool a) override { attach.push_back(a); }
    void PinThread() override { pinned++; }
    void UpdateWindow() override {}
    void Sleep(unsigned ms) override {
        sleeps.push_back(ms);
        clock.Advance(ms);
    }
    bool FirstGpuTemperature(double* c) override {
        if (temperature < 0) return false;
        *c = temperature;
        return true;
    }
    bool GpuPhysxAvailable() override { return false; }
    std::unique_ptr<cLm4DDemo> CreateDemo(DemoClass c) override {
        created = c;
        auto d = std::make_unique<FakeDemo>(calls, clock, frameMs, initOk);
        demo = d.get();
        if (setup) setup(*d);
        return d;
    }
    ClockSource& Clock() override { return clock; }
    void Progress(const RunStatsRecord&, unsigned limitMs) override { progressLimits.push_back(limitMs); }
    void RunEnded(const RunResults& r) override {
        ended.push_back(r);
        endedBeforeDone = !RunControl.render_thread_done.load();
    }

    FakeClock clock;
    std::vector<unsigned> progressLimits;
    std::vector<RunResults> ended;
    bool endedBeforeDone = false;
    Calls calls;
    std::function<unsigned(int)> frameMs = [](int) { return 10u; };
    std::function<void(FakeDemo&)> setup;
    bool initOk = true;
    double temperature = -1;
    FakeDemo* demo = nullptr;
    DemoClass created = DemoClass::D3D11;
    std::vector<std::string> titles;
    std::vector<bool> attach;
    std::vector<unsigned> sleeps;
    int closes = 0;
    int pinned = 0;
};

class RenderThread : public ::testing::Test {
protected:
    void SetUp() override {
        InitStartupOptions(StartupOptions, 2);
        StartupOptions.test3d = 2003;
        StartupOptions.api3d = 2;
        RunParameters = RunParametersBlock();
        RunParameters.run_mode = 1;
        RunParameters.time_based = 1;
        RunParameters.max_time = 10000;
        RunParameters.max_frames = 0;
        RunControl.stop_requested = false;
        RunStats.score = 0;
    }
    int Run(bool windowed = true) {
        RunSetup setup;
        setup.windowed = windowed;
        setup.target.width = 320;
        setup.target.height = 200;
        return RenderThreadProc(host, setup);
    }
    FakeHost host;
};

TEST_F(RenderThread, TimedBenchmarkWarmsUpThenMeasures) {
    host.frameMs = [](int) { return 10u; };
    EXPECT_EQ(Run(), 0);
    // 4000 ms of warm-up (ended by the first frame past it), 10000 ms measured.
    EXPECT_EQ(RunStats.score.load(), 1000);
    EXPECT_EQ(RunStats.benchmark_frames.load(), 1000u);
    // The first interval of a phase also holds the frame that opened it.
    EXPECT_EQ(RunStats.final_avg_fps.load(), 100);
    EXPECT_EQ(RunStats.final_min_fps.load(), 100);
    EXPECT_EQ(RunStats.final_max_fps.load(), 101);
    EXPECT_EQ(host.closes, 1);
    EXPECT_TRUE(RunControl.benchmark_done.load());
    EXPECT_TRUE(RunControl.render_thread_done.load());
    EXPECT_FALSE(RunControl.test_running.load());
    EXPECT_EQ(host.calls.order, (std::vector<std::string>{"Init", "Frame", "Terminate", "delete"}));
    EXPECT_EQ(host.calls.frames, 402 + 1000);
    // Benchmarks never sleep while the object is shown.
    EXPECT_TRUE(host.sleeps.empty());
    EXPECT_EQ(host.attach, (std::vector<bool>{true, false}));
    EXPECT_EQ(host.pinned, 1);
    EXPECT_EQ(std::string(current_test_name), "Furry VXA GL2");
    EXPECT_EQ(StartupOptions.furry_object, 1);
}

TEST_F(RenderThread, FrameCountedBenchmarkDrawsExactlyMaxFrames) {
    RunParameters.time_based = 0;
    RunParameters.max_frames = 1000;
    host.frameMs = [](int) { return 7u; };
    Run();
    EXPECT_EQ(RunStats.score.load(), 1000);
    // The warm-up ends at the first frame whose start lies past 4000 ms.
    int i = 2;
    while (7 * (i - 2) <= 4000) ++i;
    int warmupFrames = i - 1;
    EXPECT_EQ(host.calls.frames, warmupFrames + 1000);
    EXPECT_EQ(host.closes, 1);
}

TEST_F(RenderThread, ALostDeviceEndsTheRunWithoutAScore) {
    host.setup = [](FakeDemo& d) { d.lostAt = 500; };
    Run();
    // The frame that found the device gone is the last one, and the window
    // is closed as at the end of a benchmark, but nothing is scored.
    EXPECT_EQ(host.calls.frames, 500);
    EXPECT_EQ(host.closes, 1);
    EXPECT_FALSE(RunControl.benchmark_done.load());
    EXPECT_EQ(RunStats.score.load(), 0);
    EXPECT_EQ(host.calls.order, (std::vector<std::string>{"Init", "Frame", "Terminate", "delete"}));
    EXPECT_TRUE(RunControl.render_thread_done.load());
}

TEST_F(RenderThread, FrameCountedBenchmarkWithZeroFramesRunsUntilStopped) {
    RunParameters.time_based = 0;
    RunParameters.max_frames = 0;
    host.setup = [](FakeDemo& d) {
        d.onFrame = [](int n) {
            if (n == 3000) RunControl.stop_requested = true;
        };
    };
    Run();
    EXPECT_EQ(host.calls.frames, 3000);
    EXPECT_EQ(host.closes, 0);
    EXPECT_FALSE(RunControl.benchmark_done.load());
    EXPECT_EQ(host.calls.terminate, 1);
}

TEST_F(RenderThread, StallsAreClampedAndSamplesCountWholeIntervals) {
    RunParameters.run_mode = 2;  // stability test: measured from the start
    // 400 ms frames: an interval closes at 1200 ms with 3 frames.
    host.setup = [](FakeDemo& d) {
        d.onFrame = [](int n) {
            if (n == 7) RunControl.stop_requested = true;
        };
    };
    host.frameMs = [](int n) { return n == 3 ? 10000u : 400u; };
    Run(false);
    EXPECT_EQ(RunStats.current_fps.load(), 1);
    // Frame 4 followed a 10 s stall and counted for 2 s only.
    EXPECT_EQ(RunStats.elapsed_ms.load(), 400u * 5 + 2000u);
    EXPECT_EQ(RunStats.benchmark_frames.load(), 7u);
    EXPECT_EQ(host.closes, 0);
    // Fullscreen (not windowed): the title is never touched.
    EXPECT_TRUE(host.titles.empty());
}

TEST_F(RenderThread, FpsSamplingAndTitles) {
    RunParameters.run_mode = 2;
    host.temperature = 67.9;
    host.frameMs = [](int n) { return n < 90 ? 1000u / 30u + (n % 3 == 0 ? 1u : 0u) : 400u; };
    host.setup = [](FakeDemo& d) {
        d.onFrame = [](int n) {
            if (n == 100) RunControl.stop_requested = true;
        };
    };
    Run();
    ASSERT_GE(host.titles.size(), 4u);
    EXPECT_EQ(host.titles[0], "Ardentium - Init in progress...");
    EXPECT_EQ(host.titles[1], "Ardentium - Running...");
    EXPECT_EQ(host.titles[2], "Ardentium - Furry VXA GL2 - FPS=31, GPU1 temp: 67");
    EXPECT_EQ(host.titles[3], "Ardentium - Furry VXA GL2 - FPS=30, GPU1 temp: 67");
    EXPECT_EQ(RunStats.max_fps.load(), 31);
    // 400 ms frames: the interval closes at 1200 ms with 3 frames.
    EXPECT_EQ(RunStats.min_fps.load(), 3);
    // The stability test sleeps the rendering delay after every frame.
    EXPECT_EQ(host.sleeps.size(), 100u);
    EXPECT_EQ(host.sleeps.front(), 0u);
}

TEST_F(RenderThread, HiddenObjectIdlesAndDelayIsLive) {
    RunParameters.run_mode = 2;
    host.setup = [](FakeDemo& d) {
        d.onFrame = [&d](int n) {
            if (n == 5) StartupOptions.tone_down_delay_ms = 25;
            if (n == 10) d.render_furry_object = false;
            if (n == 15) RunControl.stop_requested = true;
        };
    };
    Run();
    ASSERT_EQ(host.sleeps.size(), 15u);
    EXPECT_EQ(host.sleeps[0], 0u);
    EXPECT_EQ(host.sleeps[5], 25u);
    EXPECT_EQ(host.sleeps[12], 10u);
}

TEST_F(RenderThread, FailedInitAndUnknownTestTearDown) {
    host.initOk = false;
    Run();
    EXPECT_EQ(host.calls.init, 1);
    EXPECT_EQ(host.calls.terminate, 1);
    EXPECT_EQ(host.calls.destroyed, 1);
    EXPECT_EQ(host.calls.frames, 0);
    EXPECT_EQ(host.closes, 1);
    EXPECT_TRUE(RunControl.render_thread_done.load());
    EXPECT_EQ(host.titles, (std::vector<std::string>{"Ardentium - Init in progress..."}));

    FakeHost other;
    StartupOptions.test3d = 1234;
    RunSetup setup;
    RenderThreadProc(other, setup);
    EXPECT_EQ(other.calls.init, 0);
    EXPECT_EQ(other.closes, 1);
}

TEST_F(RenderThread, StopBeforeTheLoopIsADemoEnd) {
    RunControl.stop_requested = true;
    Run();
    EXPECT_EQ(host.calls.frames, 0);
    EXPECT_EQ(host.calls.terminate, 1);
    EXPECT_EQ(host.closes, 0);
}

TEST_F(RenderThread, BenchmarkObjectEndsItselfAndScores) {
    StartupOptions.test3d = 2206;
    host.setup = [](FakeDemo& d) { d.amarkFinishedAt = 500; };
    StartupOptions.enable_gpu_physx = true;
    CopyText(StartupOptions.aa_mode, sizeof StartupOptions.aa_mode, "4X MSAA");
    Run();
    EXPECT_EQ(host.created, DemoClass::OpenGL4);
    EXPECT_EQ(StartupOptions.api3d, 4);
    EXPECT_FALSE(StartupOptions.enable_gpu_physx);
    EXPECT_STREQ(StartupOptions.aa_mode, "Off");
    EXPECT_EQ(RunStats.score.load(), 4321);
    EXPECT_EQ(host.calls.order[2], "LogStageResults");
    EXPECT_EQ(host.closes, 1);
}

// An OpenGL 4 test application is not the benchmark: its run ends by the
// clock and scores its frames, whatever the object would say.
TEST_F(RenderThread, OpenGL4TestApplicationEndsByItsTimeLimit) {
    StartupOptions.test3d = 2201;
    host.frameMs = [](int) { return 10u; };
    host.setup = [](FakeDemo& d) { d.amarkFinishedAt = 5; };
    Run();
    EXPECT_EQ(host.created, DemoClass::TestAppGL4);
    EXPECT_EQ(std::string(current_test_name), "GF OC Test (GL4)");
    EXPECT_EQ(RunStats.benchmark_frames.load(), 1000u);
    EXPECT_EQ(RunStats.score.load(), 1000);
    EXPECT_EQ(std::find(host.calls.order.begin(), host.calls.order.end(), "LogStageResults"), host.calls.order.end());
}

TEST_F(RenderThread, DemoAccessSeesTheObjectOnlyWhileItRuns) {
    RunParameters.run_mode = 2;
    bool seenDuring = false;
    host.setup = [&seenDuring](FakeDemo& d) {
        d.onFrame = [&seenDuring](int n) {
            seenDuring = DemoAccess::With([](cLm4DDemo& x) { x.show_help = true; });
            if (n == 2) RunControl.stop_requested = true;
        };
    };
    Run();
    EXPECT_TRUE(seenDuring);
    EXPECT_FALSE(DemoAccess::With([](cLm4DDemo&) {}));
}

}  // namespace

namespace {

TEST_F(RenderThread, OnlyDrawnFramesCountAndTheRunReportsItsResult) {
    // Timed: the frames still in flight when the time is up are not counted,
    // and neither are the warm-up's, which are waited for when it ends.
    host.setup = [](FakeDemo& d) { d.lag = 2; };
    Run();
    EXPECT_EQ(host.calls.frames, 402 + 1000);
    EXPECT_EQ(RunStats.score.load(), 998);
    ASSERT_EQ(host.ended.size(), 1u);
    const RunResults& r = host.ended[0];
    EXPECT_TRUE(r.started);
    EXPECT_TRUE(r.finished);
    EXPECT_TRUE(host.endedBeforeDone);  // the report is the thread's last act before it says it is done
    EXPECT_EQ(r.frames, 998u);
    EXPECT_EQ(r.score, 998);
    EXPECT_EQ(r.testName, "Furry VXA GL2");
    EXPECT_EQ(r.apiName, "OpenGL 2");
    // The end test comes before the sample of the last second.
    EXPECT_EQ(r.fpsSeries.size(), 9u);
    EXPECT_NEAR(r.frameTimes.Percentile(0.5), 10.0, 0.2);
    // One progress report per measured second, with the limit to show.
    EXPECT_EQ(std::count(host.progressLimits.begin(), host.progressLimits.end(), 10000u), 9);

    // Frame-counted: exactly max_frames are handed over and all of them are
    // waited for, so exactly that many are drawn and counted.
    host = FakeHost();
    host.setup = [](FakeDemo& d) { d.lag = 2; };
    RunParameters.time_based = 0;
    RunParameters.max_frames = 300;
    Run();
    EXPECT_EQ(RunStats.score.load(), 300);
    ASSERT_EQ(host.ended.size(), 1u);
    EXPECT_EQ(host.ended[0].frames, 300u);
}

TEST_F(RenderThread, EveryEndingIsReported) {
    host.initOk = false;
    Run();
    ASSERT_EQ(host.ended.size(), 1u);
    EXPECT_FALSE(host.ended[0].started);
    EXPECT_EQ(SummaryLine(host.ended[0]), "Result: Furry VXA GL2, OpenGL 2, 320x200: could not start (see the event log)");

    // Stopped from outside before the end: no score.
    host = FakeHost();
    host.setup = [](FakeDemo& d) { d.onFrame = [](int n) { if (n == 600) RunControl.stop_requested = true; }; };
    Run();
    ASSERT_EQ(host.ended.size(), 1u);
    EXPECT_TRUE(host.ended[0].started);
    EXPECT_FALSE(host.ended[0].finished);
    EXPECT_NE(SummaryLine(host.ended[0]).find("score n.a. (stopped before the end)"), std::string::npos);

    host = FakeHost();
    RunControl.stop_requested = false;
    host.setup = [](FakeDemo& d) { d.lostAt = 50; };
    Run();
    ASSERT_EQ(host.ended.size(), 1u);
    EXPECT_TRUE(host.ended[0].deviceLost);
}

}  // namespace

namespace {

// A 4 x 2 check frame, every byte `v`, with pixel 5's red channel at `odd`.
bool SmallFrame(uint8_t v, uint8_t odd, CheckFrame* out) {
    out->width = 4;
    out->height = 2;
    out->rgba.assign(32, v);
    out->rgba[20] = odd;
    return true;
}

std::vector<std::string> Lines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    return lines;
}

}  // namespace

TEST_F(RenderThread, PictureChecksCountOnlyRealDifferences) {
    gRunExtras = RunExtras();
    gRunExtras.verifyEveryFrames = 100;
    RunParameters.run_mode = 2;
    RunParameters.max_time = 0;
    // The "card" draws the same picture, within the tolerance, until frame
    // 700; from then on one pixel is far off.
    host.setup = [](FakeDemo& d) {
        d.checkFrame = [](int frames, CheckFrame* out) { return SmallFrame(9, frames >= 700 ? 200 : 9 + (frames % 3), out); };
        d.onFrame = [](int n) {
            if (n == 1000) RunControl.stop_requested = true;
        };
    };
    Run();
    const RunResults& r = host.ended.at(0);
    EXPECT_TRUE(r.checksActive);
    // Reference at frame 1, then every 100 frames (101 ... 901), then the last one.
    EXPECT_EQ(r.checks, 10u);
    EXPECT_EQ(r.checkErrors, 4u);  // 701, 801, 901 and the check at the end
    ASSERT_EQ(r.mismatches.size(), 4u);
    EXPECT_EQ(r.mismatches[0].frame, 701u);
    EXPECT_EQ(r.mismatches[0].pixels, 1u);
    EXPECT_EQ(r.mismatches[0].largest, 190);
    EXPECT_EQ(gCheckCounters.checks.load(), 10u);  // what the HUD shows
    EXPECT_EQ(gCheckCounters.errors.load(), 4u);
    gRunExtras = RunExtras();
}

TEST_F(RenderThread, InjectedFaultIsCaughtAndAnObjectWithoutChecksRunsWithout) {
    gRunExtras = RunExtras();
    gRunExtras.verifyEveryFrames = 50;
    gRunExtras.verifyFaultCheck = 2;
    host.setup = [](FakeDemo& d) { d.checkFrame = [](int, CheckFrame* out) { return SmallFrame(40, 40, out); }; };
    Run();
    const RunResults& a = host.ended.at(0);
    EXPECT_TRUE(a.checksActive);
    EXPECT_GT(a.checks, 20u);
    EXPECT_EQ(a.checkErrors, 1u);
    ASSERT_EQ(a.mismatches.size(), 1u);
    EXPECT_EQ(a.mismatches[0].frame, 101u);
    EXPECT_GT(a.mismatches[0].pixels, 0u);

    host.ended.clear();
    host.setup = nullptr;
    Run();
    EXPECT_FALSE(host.ended.at(0).checksActive);
    EXPECT_EQ(host.ended.at(0).checks, 0u);
    gRunExtras = RunExtras();
}

TEST_F(RenderThread, FrameLogHasOneRowPerFpsSampleAndAgreesWithTheResults) {
    const std::string path = ::testing::TempDir() + "frame_log_test.csv";
    gRunExtras = RunExtras();
    gRunExtras.logFramesPath = path;
    // 20 ms frames with every tenth at 60 ms.
    host.frameMs = [](int i) { return i % 10 == 9 ? 60u : 20u; };
    RunParameters.max_time = 5000;
    Run();
    gRunExtras = RunExtras();
    const RunResults& r = host.ended.at(0);
    const std::vector<std::string> lines = Lines(path);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], "time_s,phase,frames,fps,frame_time_p50_ms,frame_time_p99_ms");
    std::vector<int> measured;
    int warmup = 0;
    for (size_t i = 1; i < lines.size(); ++i) {
        std::stringstream row(lines[i]);
        std::string time, phase, frames, fps, p50, p99;
        std::getline(row, time, ',');
        std::getline(row, phase, ',');
        std::getline(row, frames, ',');
        std::getline(row, fps, ',');
        std::getline(row, p50, ',');
        std::getline(row, p99, ',');
        if (phase == "warm-up") {
            ++warmup;
            continue;
        }
        ASSERT_EQ(phase, "measured");
        measured.push_back(std::stoi(frames));
        EXPECT_DOUBLE_EQ(std::stod(p50), 20.0) << lines[i];
        EXPECT_DOUBLE_EQ(std::stod(p99), 60.0) << lines[i];
    }
    EXPECT_GE(warmup, 3);
    EXPECT_EQ(measured, r.fpsSeries);
    std::remove(path.c_str());
}

TEST_F(RenderThread, FrameLogThatCannotBeWrittenIsReported) {
    gRunExtras = RunExtras();
    gRunExtras.logFramesPath = ::testing::TempDir() + "no such folder/frames.csv";
    ResetRunOutcome();
    RunParameters.max_time = 1000;
    Run();
    gRunExtras = RunExtras();
    EXPECT_EQ(CurrentExitCode(), kExitResultsNotWritten);
    ASSERT_FALSE(NotedErrors().empty());
    EXPECT_NE(NotedErrors()[0].find("Unable to write the frame log ["), std::string::npos);
    ResetRunOutcome();
}

TEST_F(RenderThread, ComputeCheckErrorsCountWithThePictureChecks) {
    gRunExtras = RunExtras();
    gRunExtras.verifyEveryFrames = 100;
    RunParameters.run_mode = 2;
    host.setup = [](FakeDemo& d) {
        d.checkFrame = [](int, CheckFrame* out) { return SmallFrame(9, 9, out); };
        // Right until frame 500, then three values wrong, then the compute
        // pass cannot run at all.
        d.computeCheck = [](int frames) { return frames < 500 ? 0 : frames < 800 ? 3 : -1; };
        d.onFrame = [](int n) {
            if (n == 1000) RunControl.stop_requested = true;
        };
    };
    Run();
    gRunExtras = RunExtras();
    const RunResults& r = host.ended.at(0);
    EXPECT_TRUE(r.computeChecks);
    EXPECT_EQ(r.checks, 10u);
    // 501, 601, 701 with 3 wrong; 801, 901 and the last with every value wrong.
    ASSERT_EQ(r.checkErrors, 6u);
    EXPECT_EQ(r.mismatches[0].frame, 501u);
    EXPECT_EQ(r.mismatches[0].computeWrong, 3);
    EXPECT_EQ(r.mismatches[0].pixels, 0u);
    EXPECT_EQ(r.mismatches[3].computeWrong, kComputeValues);
}

TEST_F(RenderThread, ChecksTakeNoTimeFromTheFramesOrTheRunsClock) {
    gRunExtras = RunExtras();
    gRunExtras.verifyEveryFrames = 50;
    // 10 ms frames and a check every 50 frames that takes 300 ms: were the
    // checks counted, the run would end 60 % sooner by its clock, with fewer
    // frames and 300 ms frames among them.
    host.frameMs = [](int) { return 10u; };
    host.setup = [](FakeDemo& d) {
        d.checkMs = 300;
        d.checkFrame = [](int, CheckFrame* out) { return SmallFrame(9, 9, out); };
    };
    Run();
    gRunExtras = RunExtras();
    const RunResults& r = host.ended.at(0);
    EXPECT_GT(r.checks, 20u);
    EXPECT_EQ(r.checkErrors, 0u);
    EXPECT_EQ(RunStats.score.load(), 1000);
    EXPECT_EQ(RunStats.final_min_fps.load(), 100);
    EXPECT_DOUBLE_EQ(r.frameTimes.Percentile(1.0), 10.0);
    EXPECT_DOUBLE_EQ(r.seconds, 10.0);
    EXPECT_EQ(host.calls.frames, 402 + 1000);
}
