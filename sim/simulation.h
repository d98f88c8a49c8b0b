// The cloth and fluid simulation of the benchmark: our own engine, stepped on
// two threads of its own (one for the scene with the cloth flag, one for the
// fluid), on the CPU or through OpenGL 4.3 compute shaders.
//
// Usage from the benchmark (render thread):
//   sim::Simulation physics;
//   sim::SceneDesc desc;                       // preset values, spheres, ground, cache folder
//   if (physics.Startup(desc, wantGpu)) {      // logs the start-up lines
//       physics.StartThreads();
//       physics.Counters().currentStage = 2;   // before each stage
//       physics.SetActive(true);
//       // each frame: physics.Flag() / physics.Fluid() give the latest buffers;
//       // synchronised mode: physics.TriggerStep(frameSeconds); ...; physics.WaitStepDone();
//       physics.Shutdown();                    // stops the threads, logs the shut-down line
//   }
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/render_buffer.h"

namespace sim {

constexpr int kStageCount = 5;
// The engine that the start-up line names.
constexpr int kEngineVersionMajor = 1, kEngineVersionMinor = 0, kEngineVersionPatch = 0;

struct Sphere {
    float center[3];
    float radius;
};

struct SceneDesc {
    // From the preset.
    int flagSupportValue = 50;   // sides of the flag pole ("PhysXFlagSupportMesh")
    float particleValue = 5.0f;  // emitter rate, in hundreds of particles per simulated second
    int particleCount = 3000;    // the most live particles; the oldest are re-emitted past it

    // The scene the benchmark draws, in metres.
    float groundHeight = 0.0f;
    std::vector<Sphere> spheres;
    float poleBase[3] = {-1.5f, 0.0f, 0.0f};  // the flag hangs from the top of the pole
    float poleHeight = 4.0f;
    float poleRadius = 0.05f;
    float flagWidth = 3.0f, flagHeight = 2.0f;
    int flagColumns = 32, flagRows = 22;
    float wind[3] = {3.0f, 0.0f, 1.0f};  // mean wind acceleration on the flag, m/s^2
    float fluidMin[3] = {-2.0f, 0.0f, -2.0f};  // the fluid's box (its floor is the ground)
    float fluidMax[3] = {2.0f, 4.0f, 2.0f};
    float emitterPosition[3] = {0.5f, 2.5f, 0.0f};
    float emitterVelocity[3] = {1.0f, 0.0f, 0.0f};  // direction; speed follows from the rate

    // Folder of the cooked cloth cache ("" cooks every time).
    std::string cacheFolder;
};

// Steps completed per stage and in all, by the cloth (scene) thread and the
// fluid thread. Written by those threads only, after a step has finished;
// `currentStage` is set by the benchmark.
struct SimCounters {
    std::atomic<int32_t> clothStage[kStageCount] = {};
    std::atomic<int32_t> fluidStage[kStageCount] = {};
    std::atomic<int32_t> clothTotal{0};
    std::atomic<int32_t> fluidTotal{0};
    std::atomic<int32_t> currentStage{0};
    // Set while the render thread draws something other than the stage (a
    // picture check), whose time the stage's clock leaves out: steps
    // finished meanwhile count in the totals only.
    std::atomic<bool> stageHeld{false};
    void Reset();
};

// Static meshes, fixed once Startup has returned.
struct StaticMeshes {
    std::vector<uint32_t> flagIndices;  // triangles over the flag's vertices
    int flagVertexCount = 0;
    std::vector<float> supportPositions;  // xyz, the pole
    std::vector<float> supportNormals;
    std::vector<uint32_t> supportIndices;
};

struct ClothFrame {
    std::vector<float> positions;  // xyz per flag vertex
    std::vector<float> normals;
    int64_t step = 0;              // the step that produced it
};

struct FluidFrame {
    std::vector<float> positions;  // xyz per live particle
    int count = 0;
    int64_t step = 0;
};

// Compute shaders available in an OpenGL 4.3 context: what "GPU available"
// means. Asked once (on a thread of its own, so no context of the caller is
// disturbed); *why says what was missing.
bool GpuComputeAvailable(std::string* why = nullptr);

class SimulationImpl;

class Simulation {
public:
    Simulation();
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // Starts the engine and builds the scene, the cloth (cooked or from the
    // cache) and the fluid; every step is logged, failures included. wantGpu
    // asks for the compute path; it is used when GpuComputeAvailable().
    bool Startup(const SceneDesc& desc, bool wantGpu);
    // Stops the threads and logs the shut-down line.
    void Shutdown();
    bool UsesGpu() const;  // the HUD's "GPU PhysX" / "CPU PhysX"

    void StartThreads();
    // Clears the run flag and waits for both threads; each finishes the step it is in.
    void StopThreads();
    bool ClothExited() const;
    bool FluidExited() const;

    // Inactive threads idle (100 ms sleeps) without stepping.
    void SetActive(bool active);
    bool Active() const;

    // Synchronised mode: the thread steps once per TriggerStep, by the frame
    // time handed over, and signals when done.
    void SetSynchronised(bool cloth, bool fluid);
    void TriggerStep(float frameSeconds);
    // Waits until each synchronised thread has finished the triggered step.
    void WaitStepDone();

    SimCounters& Counters();
    const StaticMeshes& Meshes() const;
    // The newest published buffers; the reference stays valid until the next
    // call of the same function on the same thread (the render thread).
    const ClothFrame& Flag();
    const FluidFrame& Fluid();
    int LiveParticles() const;  // "PhysX fluid: %d particles"

private:
    std::unique_ptr<SimulationImpl> impl_;
};

}  // namespace sim
