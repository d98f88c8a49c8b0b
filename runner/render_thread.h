// One test run is one life of the render thread: choose the object, Init it
// on the 3D window, drive its frames until the run ends, keep the statistics,
// tell the UI thread when a benchmark has ended, and tear the object down.
#pragma once

#include <memory>
#include <vector>

#include "runner/catalogue.h"
#include "runner/hires_timer.h"
#include "runner/frame_log.h"
#include "runner/lm4d_demo.h"

// What the render thread needs from the rest of the program. The real host
// talks to the 3D window and the monitor; tests use a fake one.
class RunHost {
public:
    virtual ~RunHost() = default;
    // Only called for windowed runs.
    virtual void SetTitle(const char* title) = 0;
    // Asks the UI thread to close the 3D window (WM_CLOSE or its equivalent).
    virtual void PostClose() = 0;
    // Shares (or stops sharing) key state and focus with the UI thread.
    virtual void AttachInput(bool attach) = 0;
    virtual void UpdateWindow() = 0;
    virtual void Sleep(unsigned ms) = 0;
    // The first monitored GPU's temperature in degrees Celsius, when a
    // temperature source exists.
    virtual bool FirstGpuTemperature(double* celsius) = 0;
    virtual bool GpuPhysxAvailable() = 0;
    // The object of the given class; null when this build has none.
    virtual std::unique_ptr<cLm4DDemo> CreateDemo(DemoClass demoClass) = 0;
    virtual ClockSource& Clock() = 0;
    // The run is over and the object still holds its last frame (screenshots).
    virtual void LastFrameDrawn(cLm4DDemo& demo) {}
    // Pins the render thread to its processor, once its object has made its
    // device (threads a software renderer starts then keep every processor).
    virtual void PinThread() {}
    // Once per FPS sample: where the run stands (limitMs 0: no time limit).
    virtual void Progress(const struct RunStatsRecord& stats, unsigned limitMs) {}
    virtual void EndProgress() {}
    // Each GPU's readings for the per-second frame log, as the monitor read
    // them last; returns how many GPUs the monitor has.
    virtual int ReadGpuLog(std::vector<GpuLogReading>* out) {
        out->clear();
        return 0;
    }
    // The run is over and its results are complete (also when it could not
    // start); the last thing before the thread marks itself done.
    virtual void RunEnded(const struct RunResults& results) {}
};

struct RunSetup {
    RenderTarget target;  // the 3D window and its client size
    bool windowed = true;
};

// The benchmark warm-up, not counted.
constexpr unsigned kWarmupMs = 4000;
// The longest a single frame may count for.
constexpr unsigned kMaxFrameMs = 2000;

// The thread procedure. Reads the settings and run parameters once at its
// start; returns 0 on every path.
int RenderThreadProc(RunHost& host, const RunSetup& setup);
