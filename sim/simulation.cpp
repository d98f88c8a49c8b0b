#include "sim/simulation.h"

#include <cmath>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "core/event_log.h"
#include "platform/platform.h"
#include "sim/cooking.h"
#include "sim/fluid.h"
#include "sim/gpu_sim.h"

namespace sim {

void SimCounters::Reset() {
    for (int i = 0; i < kStageCount; ++i) {
        clothStage[i] = 0;
        fluidStage[i] = 0;
    }
    clothTotal = 0;
    fluidTotal = 0;
    currentStage = 0;
    stageHeld = false;
}

namespace {

// An auto-reset event: one Set releases one Wait.
class Event {
public:
    void Set() {
        {
            std::lock_guard<std::mutex> lock(m_);
            set_ = true;
        }
        cv_.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(m_);
        cv_.wait(lock, [this] { return set_; });
        set_ = false;
    }
    bool WaitFor(int ms) {
        std::unique_lock<std::mutex> lock(m_);
        if (!cv_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return set_; })) return false;
        set_ = false;
        return true;
    }

private:
    std::mutex m_;
    std::condition_variable cv_;
    bool set_ = false;
};

// Thread control shared with the render thread.
struct ThreadControl {
    std::atomic<bool> run{false};
    std::atomic<bool> exited{true};
    std::atomic<bool> synchronised{false};
    Event start, done;
    std::thread thread;
};

int32_t StageIndex(const SimCounters& c) {
    int32_t s = c.currentStage.load(std::memory_order_relaxed);
    return s < 0 ? 0 : (s >= kStageCount ? kStageCount - 1 : s);
}

bool SceneIsValid(const SceneDesc& d) {
    if (!std::isfinite(d.groundHeight)) return false;
    for (const Sphere& s : d.spheres)
        if (!(s.radius > 0.0f) || !std::isfinite(s.radius) || !std::isfinite(s.center[0]) ||
            !std::isfinite(s.center[1]) || !std::isfinite(s.center[2]))
            return false;
    return true;
}

}  // namespace

class SimulationImpl {
public:
    ~SimulationImpl() { StopThreads(); }

    bool Startup(const SceneDesc& d, bool wantGpu);
    void StartThreads();
    void StopThreads();
    void ClothLoop();
    void FluidLoop();
    void StepCloth(float dt, GpuCloth* gpu);
    void StepFluid(float dt, GpuFluid* gpu);
    bool WaitDone(ThreadControl& t);

    SceneDesc desc;
    bool useGpu = false;
    bool hasCloth = false, hasFluid = false;
    SimCounters counters;
    StaticMeshes meshes;
    ClothMesh flag;
    CookedCloth cooked;
    ClothParams clothParams;
    ClothSolver cloth;
    FluidSolver fluid;
    FluidParams fluidParams;
    EmitterParams emitterParams;
    std::unique_ptr<WorkerPool> pool;
    std::atomic<bool> active{false};
    std::atomic<float> frameSeconds{kFreeStep};
    std::atomic<int> liveParticles{0};
    ThreadControl clothThread, fluidThread;
    TripleBuffer<ClothFrame> clothFrames;
    TripleBuffer<FluidFrame> fluidFrames;
    int64_t clothSteps = 0, fluidSteps = 0;  // owned by the stepping threads
};

bool SimulationImpl::Startup(const SceneDesc& d, bool wantGpu) {
    desc = d;
    try {
        unsigned cores = platform::GetSystemInfo().numberOfProcessors;
        pool = std::make_unique<WorkerPool>(cores > 1 ? static_cast<int>(cores) - 1 : 0);
    } catch (const std::system_error&) {
        gEventLog.Write("NVIDIA PhysX initialization failed. Could not start NVIDIA PhysX Engine version %d.%d.%d",
                        kEngineVersionMajor, kEngineVersionMinor, kEngineVersionPatch);
        return false;
    }
    gEventLog.Write("Ardentium simulation engine version %d.%d.%d successfully started.", kEngineVersionMajor,
                    kEngineVersionMinor, kEngineVersionPatch);
    std::string why;
    bool gpu = GpuComputeAvailable(&why);
    gEventLog.Write("NVIDIA PhysX engine - # of GPUs/PPUs detected: %d.", gpu ? 1 : 0);
    useGpu = wantGpu && gpu;
    if (useGpu)
        gEventLog.Write("NVIDIA PhysX engine - PhysX GPU codepath selected - PhysX hardware detected.");
    else if (wantGpu)
        gEventLog.Write("NVIDIA PhysX: PhysX hardware not detected. PhysX CPU codepath will be used.");
    else
        gEventLog.Write("NVIDIA PhysX engine - PhysX CPU codepath selected.");
    gEventLog.Write("NVIDIA PhysX startup ok.");

    if (!SceneIsValid(d)) {
        gEventLog.Write("NVIDIA PhysX: could not create PhysX scene!");
        return false;
    }

    // Cloth.
    hasCloth = false;
    if (d.flagColumns < 2 || d.flagRows < 2 || d.flagColumns > 1024 || d.flagRows > 1024) {
        gEventLog.Write("NVIDIA PhysX: could not initialize cooking lib");
    } else if (!BuildSupportMesh(d, &meshes)) {
        gEventLog.Write("NVIDIA PhysX - cooking mesh %s failed.", "PhysXFlagSupportMesh");
    } else {
        flag = BuildFlagMesh(d);
        CookSource source;
        if (!LoadOrCookCloth(flag, "PhysXFlagMesh", d.cacheFolder, &cooked, &source, &why)) {
            gEventLog.Write("NVIDIA PhysX - cooking mesh %s failed.", "PhysXFlagMesh");
            gEventLog.Write("Cloth cooking: %s", why.c_str());
        } else {
            for (int a = 0; a < 3; ++a) clothParams.wind[a] = d.wind[a];
            clothParams.groundHeight = d.groundHeight;
            clothParams.spheres = d.spheres;
            if (!cloth.Init(flag, cooked, clothParams, &why)) {
                gEventLog.Write("ERROR - PhysX: unable to create a mesh cloth.");
            } else {
                hasCloth = true;
                meshes.flagIndices = flag.indices;
                meshes.flagVertexCount = static_cast<int>(flag.invMass.size());
            }
        }
    }

    // Fluid.
    hasFluid = false;
    fluidParams.maxParticles = d.particleCount;
    for (int a = 0; a < 3; ++a) {
        fluidParams.boundsMin[a] = d.fluidMin[a];
        fluidParams.boundsMax[a] = d.fluidMax[a];
        emitterParams.position[a] = d.emitterPosition[a];
        emitterParams.direction[a] = d.emitterVelocity[a];
    }
    fluidParams.groundHeight = d.groundHeight;
    fluidParams.spheres = d.spheres;
    emitterParams.rate = d.particleValue * 100.0f;
    if (!fluid.Create(fluidParams, &why)) {
        gEventLog.Write("NVIDIA PhysX: fluid creation failed.");
    } else if (!fluid.CreateEmitter(emitterParams, &why)) {
        gEventLog.Write("NVIDIA PhysX: fluid emitter creation failed.");
    } else {
        hasFluid = true;
    }
    // The first frames the render thread reads: the rest shapes.
    if (hasCloth) {
        for (int s = 0; s < 3; ++s) {
            ClothFrame& f = clothFrames.WriteSlot();
            f.positions = cloth.Positions();
            ComputeNormals(f.positions, meshes.flagIndices, &f.normals);
            clothFrames.Publish();
        }
    }
    return true;
}

void SimulationImpl::StepCloth(float dt, GpuCloth* gpu) {
    ClothFrame& f = clothFrames.WriteSlot();
    if (gpu) {
        gpu->Simulate(dt);
        gpu->ReadPositions(&f.positions);
    } else {
        cloth.Simulate(dt);
        f.positions = cloth.Positions();
    }
    ComputeNormals(f.positions, meshes.flagIndices, &f.normals);
    f.step = ++clothSteps;
}

void SimulationImpl::StepFluid(float dt, GpuFluid* gpu) {
    FluidFrame& f = fluidFrames.WriteSlot();
    if (gpu) {
        gpu->Simulate(dt);
        gpu->ReadPositions(&f.positions, &f.count);
    } else {
        fluid.Simulate(dt, pool.get());
        f.count = fluid.Live();
        f.positions.assign(fluid.Positions().begin(), fluid.Positions().begin() + 3 * f.count);
    }
    f.step = ++fluidSteps;
    liveParticles.store(f.count, std::memory_order_relaxed);
}

// The two loops have the same shape: idle while inactive, in synchronised
// mode wait for the render thread's trigger and step by the frame time,
// count a step only once it has finished.
void SimulationImpl::ClothLoop() {
    gEventLog.Write("PhysX simulation thread - Start ok.");
    std::unique_ptr<GpuCloth> gpu;
    if (useGpu) gpu = GpuCloth::Create(flag, cooked, clothParams);
    while (clothThread.run.load()) {
        if (!active.load()) {
            platform::SleepMs(100);
            continue;
        }
        bool sync = clothThread.synchronised.load();
        if (sync) {
            clothThread.start.Wait();
            if (!clothThread.run.load()) break;
        }
        float dt = sync ? frameSeconds.load() : kFreeStep;
        StepCloth(dt, gpu.get());
        clothFrames.Publish();
        int32_t stage = StageIndex(counters);
        if (!counters.stageHeld.load()) counters.clothStage[stage].fetch_add(1);
        counters.clothTotal.fetch_add(1);
        if (sync) clothThread.done.Set();
    }
    gpu.reset();
    clothThread.exited.store(true);
    gEventLog.Write("PhysX simulation thread - Exit ok.");
}

void SimulationImpl::FluidLoop() {
    gEventLog.Write("PhysX fluids simulation thread - Start ok.");
    std::unique_ptr<GpuFluid> gpu;
    if (useGpu) gpu = GpuFluid::Create(fluid);
    while (fluidThread.run.load()) {
        if (!active.load()) {
            platform::SleepMs(100);
            continue;
        }
        bool sync = fluidThread.synchronised.load();
        if (sync) {
            fluidThread.start.Wait();
            if (!fluidThread.run.load()) break;
        }
        float dt = sync ? frameSeconds.load() : kFreeStep;
        StepFluid(dt, gpu.get());
        fluidFrames.Publish();
        int32_t stage = StageIndex(counters);
        if (!counters.stageHeld.load()) counters.fluidStage[stage].fetch_add(1);
        counters.fluidTotal.fetch_add(1);
        if (sync) fluidThread.done.Set();
    }
    gpu.reset();
    fluidThread.exited.store(true);
    gEventLog.Write("PhysX fluids simulation thread - Exit ok.");
}

void SimulationImpl::StartThreads() {
    if (hasCloth && !clothThread.thread.joinable()) {
        clothThread.run = true;
        clothThread.exited = false;
        clothThread.thread = std::thread([this] {
            platform::NameThisThread("sim-cloth");
            ClothLoop();
        });
    }
    if (hasFluid && !fluidThread.thread.joinable()) {
        fluidThread.run = true;
        fluidThread.exited = false;
        fluidThread.thread = std::thread([this] {
            platform::NameThisThread("sim-fluid");
            FluidLoop();
        });
    }
}

void SimulationImpl::StopThreads() {
    for (ThreadControl* t : {&clothThread, &fluidThread}) {
        t->run = false;
        t->start.Set();  // a synchronised thread waits for it
    }
    for (ThreadControl* t : {&clothThread, &fluidThread})
        if (t->thread.joinable()) t->thread.join();
}

bool SimulationImpl::WaitDone(ThreadControl& t) {
    // A thread that is stopping or idle will not answer; stop waiting then.
    while (!t.done.WaitFor(50)) {
        if (!t.run.load() || t.exited.load() || !active.load()) return false;
    }
    return true;
}

Simulation::Simulation() : impl_(std::make_unique<SimulationImpl>()) {}
Simulation::~Simulation() = default;

bool Simulation::Startup(const SceneDesc& desc, bool wantGpu) { return impl_->Startup(desc, wantGpu); }

void Simulation::Shutdown() {
    impl_->StopThreads();
    gEventLog.Write("NVIDIA PhysX shutdown ok.");
}

bool Simulation::UsesGpu() const { return impl_->useGpu; }
void Simulation::StartThreads() { impl_->StartThreads(); }
void Simulation::StopThreads() { impl_->StopThreads(); }
bool Simulation::ClothExited() const { return impl_->clothThread.exited.load(); }
bool Simulation::FluidExited() const { return impl_->fluidThread.exited.load(); }
void Simulation::SetActive(bool active) { impl_->active = active; }
bool Simulation::Active() const { return impl_->active.load(); }

void Simulation::SetSynchronised(bool cloth, bool fluid) {
    impl_->clothThread.synchronised = cloth;
    impl_->fluidThread.synchronised = fluid;
}

void Simulation::TriggerStep(float frameSeconds) {
    impl_->frameSeconds = frameSeconds;
    for (ThreadControl* t : {&impl_->clothThread, &impl_->fluidThread})
        if (t->synchronised.load() && !t->exited.load()) t->start.Set();
}

void Simulation::WaitStepDone() {
    for (ThreadControl* t : {&impl_->clothThread, &impl_->fluidThread})
        if (t->synchronised.load() && !t->exited.load()) impl_->WaitDone(*t);
}

SimCounters& Simulation::Counters() { return impl_->counters; }
const StaticMeshes& Simulation::Meshes() const { return impl_->meshes; }
const ClothFrame& Simulation::Flag() { return impl_->clothFrames.Read(); }
const FluidFrame& Simulation::Fluid() { return impl_->fluidFrames.Read(); }
int Simulation::LiveParticles() const { return impl_->liveParticles.load(std::memory_order_relaxed); }

}  // namespace sim
