// The compute-shader path (OpenGL 4.3). Each simulation thread makes an
// offscreen context of its own through platform/, so the render thread's
// context is never touched; results are read back into the same buffers the
// CPU path fills.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/cloth.h"
#include "sim/fluid.h"

namespace platform {
class GlContext;
}

namespace sim {

class GpuContext;

// The cloth passes: predict, one dispatch per colour group and iteration,
// then collisions and velocities. Same arithmetic as ClothSolver::SubStep.
class GpuCloth {
public:
    // Null (with the reason logged) when no 4.3 context or shader is to be had.
    static std::unique_ptr<GpuCloth> Create(const ClothMesh& mesh, const CookedCloth& cooked,
                                            const ClothParams& params);
    ~GpuCloth();
    int Simulate(float dt);
    void ReadPositions(std::vector<float>* out);

private:
    GpuCloth() = default;
    std::unique_ptr<GpuContext> ctx_;
    CookedCloth cooked_;
    ClothParams params_;
    FixedStepper stepper_;
    unsigned vertices_ = 0;
    unsigned buffers_[8] = {};
    unsigned predict_ = 0, solve_ = 0, finalize_ = 0;
};

// The fluid passes: bucket counts, a prefix sum, the scatter into cells,
// density, forces, integration. The emitter runs on the CPU (a few particles
// per sub-step) and its particles are uploaded.
class GpuFluid {
public:
    static std::unique_ptr<GpuFluid> Create(const FluidSolver& fluid);
    ~GpuFluid();
    int Simulate(float dt);
    void ReadPositions(std::vector<float>* out, int* count);

private:
    GpuFluid() = default;
    void SubStep(float h);
    std::unique_ptr<GpuContext> ctx_;
    FluidSolver emitter_;  // the CPU copy whose emitter and ring decide the slots
    unsigned buffers_[8] = {};
    unsigned programs_[7] = {};
    unsigned table_ = 0;
};

}  // namespace sim
