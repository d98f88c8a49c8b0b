// The frame loop's own cost per frame: the render thread driving a test
// object that draws nothing, on the real clock, with no sleeps (benchmark
// mode). What is left is the statistics, the timer reads and the end test.
#include <benchmark/benchmark.h>

#include <atomic>

#include "core/settings.h"
#include "runner/render_thread.h"
#include "runner/run_stats.h"

namespace {

class EmptyDemo : public cLm4DDemo {
public:
    explicit EmptyDemo(long frames) : left_(frames) {}
    bool Init(const RenderTarget&, int, int) override { return true; }
    void Terminate() override {}
    void ClearScreen() override {}
    void Frame(float) override {
        if (--left_ <= 0) RunControl.stop_requested = true;
    }
    void Present() override {}
    void BeginOverlay() override {}
    void EndOverlay() override {}
    void DrawText(int, int, const Color4&, const char*) override {}
    void DrawQuad(int, int, int, int, const Color4&, unsigned short) override {}

private:
    long left_;
};

class BenchHost : public RunHost {
public:
    explicit BenchHost(long frames) : frames_(frames) {}
    void SetTitle(const char*) override {}
    void PostClose() override {}
    void AttachInput(bool) override {}
    void UpdateWindow() override {}
    void Sleep(unsigned) override {}
    bool FirstGpuTemperature(double*) override { return false; }
    bool GpuPhysxAvailable() override { return false; }
    std::unique_ptr<cLm4DDemo> CreateDemo(DemoClass) override { return std::make_unique<EmptyDemo>(frames_); }
    ClockSource& Clock() override { return SystemClock(); }

private:
    long frames_;
};

void BM_FrameLoopPerFrame(benchmark::State& state) {
    InitStartupOptions(StartupOptions, 2);
    StartupOptions.test3d = 2003;
    RunParameters.run_mode = 1;
    RunParameters.time_based = 1;
    RunParameters.max_time = 600000;
    const long frames = state.range(0);
    for (auto _ : state) {
        RunControl.stop_requested = false;
        BenchHost host(frames);
        RunSetup setup;
        setup.windowed = true;
        RenderThreadProc(host, setup);
    }
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(BM_FrameLoopPerFrame)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
