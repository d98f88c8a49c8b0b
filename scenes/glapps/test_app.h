// The GL test applications: a registry of seven small tests, each found by
// its identifier, each able to start a run of its own scene. A selected
// application hands its scene to the runner's render thread, so its runs
// share the window, limits, keys, statistics, title, scores row and results
// of every other test.
#pragma once

#include <memory>
#include <vector>

#include "runner/lm4d_demo.h"
#include "runner/run3d.h"

struct StartupOptionsRecord;
struct RunParametersBlock;

class cVXA_3DTestApp {
public:
    explicit cVXA_3DTestApp(int id);
    virtual ~cVXA_3DTestApp() = default;
    cVXA_3DTestApp(const cVXA_3DTestApp&) = delete;
    cVXA_3DTestApp& operator=(const cVXA_3DTestApp&) = delete;

    // The scene the render thread draws for this application.
    virtual std::unique_ptr<cLm4DDemo> CreateScene() const = 0;
    // UI thread: opens the run's window and starts the render thread that
    // draws this application's scene (services say how the run is reported).
    bool StartRenderThread(DisplayKind kind, Run3DServices services) const;

    const int id;
    const char* const displayName;
    const char* const description;  // "%s": the product name
    const char* const link;
};

// The applications of this build, in their fixed order, and the one chosen.
class TestAppRegistry {
public:
    void Register(std::unique_ptr<cVXA_3DTestApp> app);
    // Selects the first application with the identifier. Null, and nothing
    // changes, when one is already selected or none has it.
    cVXA_3DTestApp* Select(int id);
    cVXA_3DTestApp* Selected() const { return selected_; }
    void Unselect() { selected_ = nullptr; }
    void Clear();
    int Count() const { return static_cast<int>(apps_.size()); }
    const cVXA_3DTestApp* At(int i) const { return apps_[static_cast<size_t>(i)].get(); }

private:
    std::vector<std::unique_ptr<cVXA_3DTestApp>> apps_;
    cVXA_3DTestApp* selected_ = nullptr;
};

extern TestAppRegistry gTestApps;

// Appends the seven applications in their fixed order.
void RegisterTestApps(TestAppRegistry& registry);

// A test application's benchmark lasts one minute by the clock, whatever the
// settings said: both the settings and the run's parameters are set.
void ForceBenchmarkMode(StartupOptionsRecord& options, RunParametersBlock& run);
