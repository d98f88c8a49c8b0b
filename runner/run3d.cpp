#include "runner/run3d.h"

#include <chrono>
#include <cstdio>
#include <thread>

#include "core/boxes.h"
#include "core/event_log.h"
#include "core/settings.h"
#include "core/shell_state.h"
#include "platform/platform.h"
#include "render/image_write.h"
#include "runner/keys.h"
#include "runner/run_facts.h"
#include "runner/run_results.h"
#include "runner/run_stats.h"

std::function<void()> gShowScore = [] {};
RunFactsRecord RunFacts;

namespace {

class WindowRunHost : public RunHost {
public:
    WindowRunHost(platform::Window3D* window, Run3DServices services, bool headless)
        : window_(window), services_(std::move(services)),
          progress_(headless && platform::StandardErrorIsTerminal()) {}
    void SetTitle(const char* title) override { window_->SetTitle(title); }
    void PostClose() override { platform::PostCloseToUi(); }
    void AttachInput(bool attach) override { platform::AttachInputToUiThread(attach); }
    void UpdateWindow() override { window_->Update(); }
    void Sleep(unsigned ms) override { platform::SleepMs(ms); }
    bool FirstGpuTemperature(double* c) override { return services_.firstGpuTemperature(c); }
    bool GpuPhysxAvailable() override { return services_.gpuPhysxAvailable(); }
    std::unique_ptr<cLm4DDemo> CreateDemo(DemoClass c) override { return services_.createDemo(c); }
    ClockSource& Clock() override { return SystemClock(); }
    // Mask 1 whatever the rendering affinity setting says.
    void PinThread() override { platform::PinCurrentThreadToCpuMask(1); }
    void LastFrameDrawn(cLm4DDemo& demo) override {
        if (gRunExtras.screenshotPath.empty()) return;
        std::string rgba;
        int w = 0, h = 0;
        if (!demo.ReadBackFrame(&rgba, &w, &h))
            gEventLog.Write("Screenshot: this test cannot read its frame back.");
        else if (!WritePng(gRunExtras.screenshotPath, rgba, w, h))
            gEventLog.Write("Screenshot: unable to write [%s].", gRunExtras.screenshotPath.c_str());
        else
            gEventLog.Write("Screenshot saved to [%s] (%dx%d).", gRunExtras.screenshotPath.c_str(), w, h);
    }

    // A headless run shows where it stands on the terminal it was started
    // from; into a file or a pipe it writes nothing.
    void Progress(const RunStatsRecord& stats, unsigned limitMs) override {
        if (!progress_) return;
        char line[128];
        const unsigned elapsed = stats.elapsed_ms.load() / 1000;
        if (limitMs)
            std::snprintf(line, sizeof line, "\r%s: %u s of %u s, %d FPS   ", current_test_name, elapsed, limitMs / 1000,
                          stats.current_fps.load());
        else
            std::snprintf(line, sizeof line, "\r%s: %s%u s, %d FPS   ", current_test_name,
                          stats.warmup_done || RunParameters.run_mode != 1 ? "" : "warming up, ", elapsed,
                          stats.current_fps.load());
        platform::WriteStandardError(line);
        shown_ = true;
    }
    void EndProgress() override {
        if (shown_) platform::WriteStandardError("\n");
        shown_ = false;
    }
    void RunEnded(const RunResults& results) override { services_.runEnded(results); }
    int ReadGpuLog(std::vector<GpuLogReading>* out) override { return services_.readGpuLog(out); }

private:
    platform::Window3D* window_;
    Run3DServices services_;
    bool progress_;
    bool shown_ = false;
};

struct RunState {
    std::unique_ptr<platform::Window3D> window;
    // A window whose render thread outlived the kill sequence's wait: off
    // the screen, destroyed once the thread has let go of it.
    std::unique_ptr<platform::Window3D> retired;
    std::shared_ptr<WindowRunHost> host;
    std::thread thread;
    // The render thread of a run the kill sequence stopped waiting for.
    std::thread finishing;
};

RunState gRun;

class RunUiEvents : public platform::UiEvents {
public:
    void OnKey(RunKey key, const unsigned char* keyboardState) override {
        if (HandleRunKey(key, keyboardState) == KeyResult::Close) Close3DRun();
    }
    void OnClose() override { Close3DRun(); }
};

}  // namespace

void ClampRunSize(int* width, int* height, int maxViewportSize) {
    if (*width < 1) *width = 640;
    if (*width > maxViewportSize) *width = maxViewportSize;
    if (*height < 1) *height = 480;
    if (*height > maxViewportSize) *height = maxViewportSize;
}

platform::Window3D* Current3DWindow() { return gRun.window.get(); }

bool Start3DRun(DisplayKind kind, const Run3DServices& services) {
    // Two render threads never draw at once: they share the run's statistics.
    JoinFinishingRenderThread();
    int width = RunParameters.width;
    int height = RunParameters.height;
    ClampRunSize(&width, &height, services.maxViewportSize);
    RunParameters.width = width;
    RunParameters.height = height;

    platform::Window3DRequest req;
    req.headless = kind == DisplayKind::Headless;
    req.fullscreen = !req.headless && RunParameters.fullscreen == 1;
    req.hidden = StartupOptions.api3d == 4;
    req.menuBar = StartupOptions.display_menu_bar > 0;
    req.width = width;
    req.height = height;
    req.samples = AaSampleCount(StartupOptions.aa_mode);

    platform::WindowError error = platform::WindowError::None;
    gRun.window = platform::CreateWindow3D(req, &error);
    if (!gRun.window) {
        if (error == platform::WindowError::DisplayModeRefused) {
            platform::RestoreDisplayMode();
            ErrorBox("Could not switch to fullscreen mode.\n\rPlease try another resolution.");
        }
        return false;
    }

    RunSetup setup;
    setup.target = gRun.window->Target();
    setup.windowed = !req.fullscreen;
    RunControl.stop_requested = false;
    RunControl.render_thread_done = false;
    gRun.host = std::make_shared<WindowRunHost>(gRun.window.get(), services, req.headless);
    std::shared_ptr<WindowRunHost> host = gRun.host;
    gRun.thread = std::thread([host, setup] {
        platform::NameThisThread("render");
        RenderThreadProc(*host, setup);
    });
    return true;
}

bool Kill3DRun() {
    RunControl.stop_requested = true;
    if (gRun.thread.joinable()) {
        // Bounded wait: a thread stuck in the driver is left behind rather
        // than holding the user's window hostage.
        auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1000);
        while (!RunControl.render_thread_done && std::chrono::steady_clock::now() < until)
            platform::WaitServingSentMessages(1);
        if (RunControl.render_thread_done)
            gRun.thread.join();
        else
            gRun.finishing = std::move(gRun.thread);  // keeps its host alive through the shared pointer
        gRun.host.reset();
        gEventLog.Write("Render thread killed ok.");
    }
    if (gRun.window) {
        if (RunControl.render_thread_done) {
            gRun.window.reset();
            gRun.retired.reset();
        } else {
            gRun.window->Hide();
            gRun.retired = std::move(gRun.window);
        }
        gEventLog.Write("3D window killed ok.");
    }
    if (platform::RestoreDisplayMode()) gEventLog.Write("Back to windowed mode ok.");
    return true;
}

void Close3DRun() {
    Kill3DRun();
    if (RunParameters.run_mode == 1 && RunControl.benchmark_done && StartupOptions.display_score) {
        gShowScore();
        RunControl.benchmark_done = false;
    }
    // Without a launcher to go back to, the program ends here.
    platform::PostQuitToUi();
}

void JoinFinishingRenderThread() {
    if (gRun.finishing.joinable()) {
        // Its frame may be presenting into the window, which a driver can
        // make wait on this thread: serve those messages meanwhile.
        while (!RunControl.render_thread_done) platform::WaitServingSentMessages(5);
        gRun.finishing.join();
    }
    gRun.retired.reset();
}

void Run3DMessageLoop() {
    RunUiEvents events;
    platform::RunUiLoop(events);
}
