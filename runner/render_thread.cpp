#include "runner/render_thread.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/event_log.h"
#include "core/settings.h"
#include "platform/compiler.h"
#include "runner/demo_access.h"
#include "runner/run_stats.h"

RunStatsRecord RunStats;
RunControlFlags RunControl;
char current_test_name[kTestNameSize];

void FpsAverager::Add(int fps, RunStatsRecord& s) {
    if (first_) {
        first_ = false;
        s.min_fps = fps;
        s.max_fps = fps;
        s.avg_fps = fps;
        sum_ = fps;
        count_ = 1;
        return;
    }
    if (fps < s.min_fps) s.min_fps = fps;
    if (fps > s.max_fps) s.max_fps = fps;
    sum_ += fps;
    count_ += 1;
    s.avg_fps = static_cast<int>(sum_ / count_);
}

namespace {

constexpr const char* kProductName = "Ardentium";

void ResetStatistics(RunStatsRecord& s, FpsAverager& avg) {
    s.elapsed_ms = 0;
    s.interval_frames = 0;
    s.benchmark_frames = 0;
    s.max_fps = 0;
    s.current_fps = 0;
    s.avg_fps = 0;
    s.interval_ms = 0;
    s.min_fps = 10000;
    avg.Reset();
}

// Hands the object to the rest of the program and takes it back before it is
// torn down.
void Publish(cLm4DDemo* demo) { DemoAccess::Publish(demo); }

void Retire(std::unique_ptr<cLm4DDemo>& demo) {
    DemoAccess::Withdraw();
    demo->Terminate();
    demo.reset();
}

}  // namespace

int RenderThreadProc(RunHost& host, const RunSetup& setup) {
    RunControl.render_thread_done = false;
    host.AttachInput(true);
    char title[128];
    std::memset(title, 0, sizeof title);
    RunControl.test_running = false;
    RunControl.init_done = false;

    if (setup.windowed) {
        std::snprintf(title, sizeof title, "%s - Init in progress...", kProductName);
        host.SetTitle(title);
    }

    // The run's parameters are read once; the rendering delay is read live
    // because the + and - keys change it during the run.
    const bool benchmark = RunParameters.run_mode == 1;
    const bool timeBased = RunParameters.time_based == 1;
    const unsigned maxTime = RunParameters.max_time;
    const unsigned maxFrames = RunParameters.max_frames;

    DemoChoice choice;
    std::unique_ptr<cLm4DDemo> demo;
    if (ChooseDemo(StartupOptions.test3d, StartupOptions.api3d, &choice)) {
        ApplyForcedSettings(choice, host.GpuPhysxAvailable(), StartupOptions);
        demo = host.CreateDemo(choice.demoClass);
        CopyText(current_test_name, sizeof current_test_name, choice.displayName);
    }
    if (demo) {
        demo->api_id = ApiIdOf(choice.demoClass);
        demo->amark_mode = choice.amarkMode;
        demo->display_name = choice.displayName;
    }

    // A test outside the catalogue, or one this build cannot create, fails
    // the way a failed Init does.
    if (!demo || !demo->Init(setup.target, setup.target.width, setup.target.height)) {
        if (demo) {
            demo->Terminate();
            demo.reset();
        }
        host.AttachInput(false);
        host.PostClose();
        RunControl.render_thread_done = true;
        return 0;
    }
    RunControl.init_done = true;
    host.PinThread();
    host.UpdateWindow();
    if (setup.windowed) {
        std::snprintf(title, sizeof title, "%s - Running...", kProductName);
        host.SetTitle(title);
    }
    Publish(demo.get());

    RunStatsRecord& s = RunStats;
    FpsAverager averager;
    HiResTimer timer(host.Clock());
    RunControl.benchmark_done = false;
    RunControl.test_running = true;
    ResetStatistics(s, averager);
    s.finished = false;
    timer.Start();
    unsigned lastFrame = timer.Milliseconds();
    s.warmup_done = false;

    bool benchmarkEnded = false;
    while (!RunControl.stop_requested) {
        // L1: the warm-up is over; what it measured is thrown away.
        if (benchmark && s.elapsed_ms > kWarmupMs && !s.warmup_done) {
            s.warmup_done = true;
            ResetStatistics(s, averager);
            lastFrame = timer.Milliseconds();
        }
        // L2: frame time, clamped so a stall cannot jump the animation or the clock.
        unsigned now = timer.Milliseconds();
        unsigned dt = now - lastFrame;
        lastFrame = now;
        if (dt > kMaxFrameMs) dt = kMaxFrameMs;
        demo->frame_seconds = static_cast<float>(dt) * 0.001f;
        s.interval_ms += dt;
        s.elapsed_ms += dt;

        // L3: the end test comes before drawing, so a frame-counted run draws
        // exactly max_frames counted frames.
        if (benchmark && s.warmup_done) {
            bool finished = s.finished;
            if (demo->api_id == kApiOpenGL4)
                finished = finished || demo->AmarkFinished();
            else if (timeBased)
                finished = finished || s.elapsed_ms >= maxTime;
            else  // exact count; a count of 0 means the run has no frame limit
                finished = finished || (maxFrames != 0 && s.benchmark_frames == maxFrames);
            s.finished = finished;
            if (finished) {
                benchmarkEnded = true;
                break;
            }
        }

        // L4
        demo->Frame(demo->frame_seconds);
        if (demo->DeviceLost()) {
            host.PostClose();
            break;
        }
        s.interval_frames += 1;
        if (!benchmark || s.warmup_done) s.benchmark_frames += 1;

        // L5: one sample per interval of at least a second; the count is not
        // scaled to the interval's true length.
        if (s.interval_ms >= 1000) {
            int fps = static_cast<int>(s.interval_frames.load());
            s.current_fps = fps;
            s.interval_frames = 0;
            s.interval_ms = 0;
            averager.Add(fps, s);
            s.fps_updated = 1;
            if (setup.windowed && !RunControl.stop_requested) {
                double temp = 0.0;
                if (host.FirstGpuTemperature(&temp))
                    std::snprintf(title, sizeof title, "%s - %s - FPS=%d, GPU1 temp: %d", kProductName,
                                  choice.displayName, fps, static_cast<int>(temp));
                else
                    std::snprintf(title, sizeof title, "%s - %s - FPS=%d", kProductName, choice.displayName, fps);
                host.SetTitle(title);
            }
        }

        // L6: pacing.
        if (!demo->render_furry_object)
            host.Sleep(10);
        else if (!benchmark)
            host.Sleep(static_cast<unsigned>(std::max(0, AtomicLoad(StartupOptions.tone_down_delay_ms))));
    }

    if (benchmarkEnded) {
        if (demo->api_id == kApiOpenGL4) {
            demo->LogStageResults();
            s.score = static_cast<int>(demo->FinalScore());
        } else {
            s.score = static_cast<int>(s.benchmark_frames.load());
        }
        s.final_min_fps = s.min_fps.load();
        s.final_avg_fps = s.avg_fps.load();
        s.final_max_fps = s.max_fps.load();
        host.LastFrameDrawn(*demo);
        host.PostClose();
        RunControl.benchmark_done = true;
        RunControl.test_running = false;
        Retire(demo);
        host.AttachInput(false);
        gEventLog.Write("Main render thread - benchmark finished - exit ok.");
    } else {
        host.LastFrameDrawn(*demo);
        host.AttachInput(false);
        RunControl.test_running = false;
        Retire(demo);
        gEventLog.Write("Main render thread - demo finished - exit ok.");
    }
    RunControl.render_thread_done = true;
    return 0;
}
