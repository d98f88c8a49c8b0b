#include "runner/render_thread.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "core/event_log.h"
#include "core/run_outcome.h"
#include "core/settings.h"
#include "platform/compiler.h"
#include "platform/platform.h"
#include "runner/demo_access.h"
#include "runner/frame_log.h"
#include "runner/frame_verify.h"
#include "runner/run_facts.h"
#include "runner/run_results.h"
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

// Counts the frames the device has finished drawing, as they finish. An
// object that cannot tell counts each frame as drawn when Frame returns.
class DrawnFrames {
public:
    explicit DrawnFrames(cLm4DDemo& demo) : demo_(demo) { Resync(); }
    // Frames finished since the last call (after a Frame: at most the
    // frames it handed over, less those still in flight).
    unsigned TakeNew() {
        if (!tracked_) return 1;
        const uint64_t now = demo_.FramesFinished();
        const uint64_t n = now - seen_;
        seen_ = now;
        return static_cast<unsigned>(n);
    }
    // Waits for the frames in flight; with count they are taken as new.
    unsigned Drain(bool count) {
        demo_.FinishFrames();
        if (!tracked_) return 0;
        const unsigned n = TakeNew();
        return count ? n : 0;
    }
    void Resync() {
        const uint64_t now = demo_.FramesFinished();
        tracked_ = now != cLm4DDemo::kFramesNotTracked;
        seen_ = tracked_ ? now : 0;
    }

private:
    cLm4DDemo& demo_;
    bool tracked_ = false;
    uint64_t seen_ = 0;
};

// The per-second rows of /log_frames=, when asked for.
class SecondLog {
public:
    explicit SecondLog(RunHost& host) : host_(host), path_(gRunExtras.logFramesPath) {
        if (path_.empty()) return;
        const int gpus = host_.ReadGpuLog(&readings_);
        std::string reason;
        if (log_.Open(path_, gpus, &reason))
            gEventLog.Write("Frame log: one row per second to [%s].", path_.c_str());
        else
            NoteResultNotWritten("the frame log", path_, reason);
    }
    void AddFrameTime(double ms) {
        if (log_.open()) times_.push_back(ms);
    }
    void Restart() { times_.clear(); }
    void Row(double seconds, bool measured, unsigned frames, unsigned intervalMs) {
        if (!log_.open()) return;
        host_.ReadGpuLog(&readings_);
        std::string reason;
        if (!log_.AddRow(seconds, measured ? "measured" : "warm-up", SummariseSecond(frames, intervalMs, &times_),
                         readings_, &reason))
            NoteResultNotWritten("the frame log", path_, reason);
        times_.clear();
    }

private:
    RunHost& host_;
    std::string path_;
    FrameLog log_;
    std::vector<GpuLogReading> readings_;
    std::vector<double> times_;
};

const char* ApiName(int apiId) {
    switch (apiId) {
        case kApiOpenGL3: return "OpenGL 3";
        case kApiOpenGL4: return "OpenGL 4";
        case kApiD3D9: return "Direct3D 9";
        case kApiD3D10: return "Direct3D 10";
        case kApiD3D11: return "Direct3D 11";
        default: return "OpenGL 2";
    }
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

    RunResults& r = gRunResults;
    r = RunResults();
    r.benchmark = benchmark;
    r.timeBased = timeBased;
    r.maxTime = maxTime;
    r.maxFrames = maxFrames;
    r.width = setup.target.width;
    r.height = setup.target.height;
    r.fullscreen = !setup.windowed;

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
    r.testName = choice.displayName;
    r.apiName = ApiName(demo ? demo->api_id : ApiIdOf(choice.demoClass));

    // A test outside the catalogue, or one this build cannot create, fails
    // the way a failed Init does.
    if (!demo || !demo->Init(setup.target, setup.target.width, setup.target.height)) {
        if (demo) {
            demo->Terminate();
            demo.reset();
        }
        host.AttachInput(false);
        host.PostClose();
        host.RunEnded(r);
        RunControl.render_thread_done = true;
        return 0;
    }
    RunControl.init_done = true;
    r.started = true;
    r.renderer = demo->renderer_text;
    r.driver = demo->driver_text;
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

    // Frames count when the device has drawn them, not when they are handed
    // over: a frame still in flight belongs to no interval yet.
    DrawnFrames drawn(*demo);
    unsigned measuredSubmitted = 0;  // frames handed over in the measured phase
    // Frame times come from the run's clock at full resolution; the
    // millisecond timer above drives the run's logic.
    ClockSource& clock = host.Clock();
    int64_t lastFine = clock.Counter();
    const double fineToMs = 1000.0 / static_cast<double>(clock.Frequency());

    SecondLog secondLog(host);
    CheckSchedule schedule;
    schedule.everyFrames = static_cast<unsigned>(gRunExtras.verifyEveryFrames);
    FrameVerifier verifier(schedule, static_cast<unsigned>(gRunExtras.verifyFaultCheck));
    uint64_t submitted = 0;  // every frame handed over, warm-up included

    bool benchmarkEnded = false;
    while (!RunControl.stop_requested) {
        // L1: the warm-up is over; what it measured is thrown away, and so
        // are the warm-up frames still being drawn.
        if (benchmark && s.elapsed_ms > kWarmupMs && !s.warmup_done) {
            drawn.Drain(false);
            s.warmup_done = true;
            ResetStatistics(s, averager);
            r.fpsSeries.clear();
            r.frameTimes.Reset();
            secondLog.Restart();
            lastFrame = timer.Milliseconds();
            lastFine = clock.Counter();
        }
        // L2: frame time, clamped so a stall cannot jump the animation or the clock.
        unsigned now = timer.Milliseconds();
        unsigned dt = now - lastFrame;
        lastFrame = now;
        if (dt > kMaxFrameMs) dt = kMaxFrameMs;
        demo->frame_seconds = static_cast<float>(dt) * 0.001f;
        s.interval_ms += dt;
        s.elapsed_ms += dt;
        const int64_t fine = clock.Counter();
        const double frameMs = static_cast<double>(fine - lastFine) * fineToMs;
        lastFine = fine;

        // L3: the end test comes before drawing. A frame-counted run hands
        // over exactly max_frames measured frames and then waits for them,
        // so it ends with exactly that many drawn; a timed run ends at its
        // time, and frames still in flight then are not counted.
        const bool measuring = !benchmark || s.warmup_done;
        if (benchmark && s.warmup_done) {
            bool finished = s.finished;
            if (demo->amark_mode) {
                finished = finished || demo->AmarkFinished();
            } else if (timeBased) {
                finished = finished || s.elapsed_ms >= maxTime;
            } else if (maxFrames != 0 && measuredSubmitted == maxFrames) {  // 0: no frame limit
                s.benchmark_frames += drawn.Drain(true);
                finished = true;
            }
            s.finished = finished;
            if (finished) {
                benchmarkEnded = true;
                break;
            }
        }
        // The time since the last loop top is the last measured frame's.
        if (measuring && measuredSubmitted > 0) r.frameTimes.Add(frameMs);
        if (submitted > 0 && !(measuring && benchmark && measuredSubmitted == 0)) secondLog.AddFrameTime(frameMs);

        // L4
        demo->Frame(demo->frame_seconds);
        if (demo->DeviceLost()) {
            r.deviceLost = true;
            host.PostClose();
            break;
        }
        if (measuring) ++measuredSubmitted;
        // The reference is drawn once the first frame has taken the run's
        // pictures (custom images are picked up by the first frame).
        ++submitted;
        const bool reference = submitted == 1;
        if (reference || verifier.Due(submitted, timer.Milliseconds())) {
            // A check is no frame: the frames in flight are drawn first (that
            // wait is theirs), then the check's own time is taken out of the
            // run's clock, so that neither the next frame's time, the FPS nor
            // a staged benchmark's stage lengths hold it.
            if (!reference) demo->FinishFrames();
            const unsigned beforeMs = timer.Milliseconds();
            const int64_t beforeFine = clock.Counter();
            if (reference)
                verifier.TakeReference(*demo, submitted, beforeMs);
            else
                verifier.Check(*demo, submitted, beforeMs);
            lastFrame += timer.Milliseconds() - beforeMs;
            lastFine += clock.Counter() - beforeFine;
        }
        const unsigned newlyDrawn = drawn.TakeNew();
        s.interval_frames += newlyDrawn;
        if (measuring) s.benchmark_frames += newlyDrawn;

        // L5: one sample per interval of at least a second; the count is not
        // scaled to the interval's true length.
        if (s.interval_ms >= 1000) {
            int fps = static_cast<int>(s.interval_frames.load());
            secondLog.Row(timer.Milliseconds() / 1000.0, measuring, s.interval_frames.load(), s.interval_ms.load());
            s.current_fps = fps;
            s.interval_frames = 0;
            s.interval_ms = 0;
            averager.Add(fps, s);
            s.fps_updated = 1;
            if (s.warmup_done || !benchmark) r.fpsSeries.push_back(fps);
            host.Progress(s, benchmark && s.warmup_done && timeBased ? maxTime : 0);
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

    host.EndProgress();
    // One last check on the way out, so every run that drew frames is
    // checked at least once.
    if (verifier.active() && !r.deviceLost) {
        verifier.Check(*demo, submitted, timer.Milliseconds());
        gEventLog.Write("Verification: %u checks, %u errors.", verifier.checks(), verifier.errors());
        gEventLog.Write("Verification: the checks took %.1f ms in all.", verifier.checkMs());
    }
    r.checkMs = verifier.checkMs();
    r.checksActive = verifier.active();
    r.checks = verifier.checks();
    r.checkErrors = verifier.errors();
    r.computeChecks = verifier.computeActive();
    for (const CheckMismatch& m : verifier.mismatches())
        r.mismatches.push_back(RunResults::Mismatch{m.frame, m.difference.pixels, m.difference.largest, m.computeWrong});
    r.frames = s.benchmark_frames.load();
    r.seconds = s.elapsed_ms.load() / 1000.0;
    r.minFps = s.min_fps.load();
    r.avgFps = s.avg_fps.load();
    r.maxFps = s.max_fps.load();
    if (benchmarkEnded) {
        drawn.Drain(false);
        if (demo->amark_mode) {
            demo->LogStageResults();
            // An infinite or oversized score (every sub-score 0) has no
            // whole-number form: the scores row then holds 0.
            const double f = demo->FinalScore();
            s.score = std::isfinite(f) && f >= 0.0 && f < 2147483647.0 ? static_cast<int>(f) : 0;
            r.subScores = demo->ScoreBreakdown();
            r.stages = demo->StageResults();
        } else {
            s.score = static_cast<int>(s.benchmark_frames.load());
        }
        s.final_min_fps = s.min_fps.load();
        s.final_avg_fps = s.avg_fps.load();
        s.final_max_fps = s.max_fps.load();
        r.finished = true;
        r.score = s.score.load();
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
    host.RunEnded(r);
    RunControl.render_thread_done = true;
    return 0;
}
