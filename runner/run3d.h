// A 3D run as the UI thread sees it: the window, the render thread, the keys,
// and the kill sequence that tears it all down again.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/window3d.h"
#include "runner/render_thread.h"

// How the run's window is shown.
enum class DisplayKind { Window, Headless };

// What the run needs from outside the runner (the monitor's readings, the
// test objects the build provides).
struct Run3DServices {
    std::function<bool(double*)> firstGpuTemperature = [](double*) { return false; };
    std::function<bool()> gpuPhysxAvailable = [] { return false; };
    std::function<std::unique_ptr<cLm4DDemo>(DemoClass)> createDemo = [](DemoClass) { return nullptr; };
    // The run is over (on the render thread, as its last act): tell the user
    // its results. Also called for a run that could not start.
    std::function<void(const struct RunResults&)> runEnded = [](const struct RunResults&) {};
    // Each GPU's latest readings for the per-second frame log; returns the
    // number of GPUs.
    std::function<int(std::vector<GpuLogReading>*)> readGpuLog = [](std::vector<GpuLogReading>* out) {
        out->clear();
        return 0;
    };
    // The largest viewport side the GPU allows; the run's size is cut to it.
    int maxViewportSize = 16384;
};

// UI thread. Clamps the size, creates the window and starts the render thread.
bool Start3DRun(DisplayKind kind, const Run3DServices& services);
// UI thread. Stops the render thread (waiting at most 1000 ms), destroys the
// window and puts the display mode back.
bool Kill3DRun();
// UI thread. The kill sequence, then the score after a finished benchmark,
// then the launcher again or the end of the program.
void Close3DRun();

// A render thread that outlived the kill sequence's wait (its last frame
// took longer than a second) ends within that frame: waits for it, so the
// libraries it draws with outlive it. Called before the next run starts and
// at exit.
void JoinFinishingRenderThread();

// Runs the UI loop for the current run until the program should end.
void Run3DMessageLoop();

// The window of the current run (null when none), for tests and the title.
platform::Window3D* Current3DWindow();

// The size a run's window gets: below 1 becomes 640 x 480, above the GPU's
// maximum viewport becomes that maximum.
void ClampRunSize(int* width, int* height, int maxViewportSize);

// Where the score of a finished benchmark is shown when the run closes; the
// launcher replaces it with its dialog. By default it is logged.
extern std::function<void()> gShowScore;
