// SPH fluid: particles from an emitter, neighbours found through a spatial
// hash grid built by counting sort (a prefix sum over the cells), density and
// force passes, kept inside the scene's box, above the ground and out of the
// spheres.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/cloth.h"
#include "sim/simulation.h"
#include "sim/workers.h"

namespace sim {

struct FluidParams {
    int maxParticles = 3000;
    float h = 0.1f;               // kernel radius = grid cell size
    float restDensity = 1000.0f;  // kg/m^3
    float stiffness = 60.0f;      // pressure per unit of excess density, m^2/s^2
    float viscosity = 2.0f;
    float maxSpeed = 10.0f;
    float boundsMin[3] = {-0.6f, 0.0f, -0.6f};
    float boundsMax[3] = {0.6f, 3.0f, 0.6f};
    float groundHeight = 0.0f;
    std::vector<Sphere> spheres;
};

struct EmitterParams {
    float position[3] = {0.0f, 1.5f, 0.0f};
    float direction[3] = {1.0f, 0.0f, 0.0f};
    float rate = 500.0f;  // particles per simulated second
};

// Constants of the kernels, shared by the CPU passes and the shader uniforms.
struct SphConstants {
    float h2, poly6, spikyGrad, viscLap, mass;
};
SphConstants MakeSphConstants(const FluidParams& p);
// Bucket of a grid cell in a table of `mask` + 1 entries.
uint32_t CellHash(int ix, int iy, int iz, uint32_t mask);

class FluidSolver {
public:
    // False with *why for parameters no fluid can have (the fluid creation failure).
    bool Create(const FluidParams& params, std::string* why);
    // False with *why for an emitter outside the box or without a rate.
    bool CreateEmitter(const EmitterParams& emitter, std::string* why);

    // One simulate call of whole fixed sub-steps; pool may be null.
    int Simulate(float dt, WorkerPool* pool);
    void SubStep(float h, WorkerPool* pool);
    // Emits what is due in a sub-step of length h into the ring of particle
    // slots; returns the slots written (the GPU path uploads those).
    const std::vector<uint32_t>& Emit(float h);

    int Live() const { return live_; }
    const std::vector<float>& Positions() const { return x_; }
    const std::vector<float>& Velocities() const { return v_; }
    const std::vector<float>& Densities() const { return rho_; }
    const FluidParams& Params() const { return params_; }
    const SphConstants& Constants() const { return k_; }
    uint32_t TableMask() const { return mask_; }
    FixedStepper& Stepper() { return stepper_; }
    // Keeps a particle inside the box, above the ground and out of the spheres.
    void Confine(float* x, float* v) const;

private:
    // Neighbours found by the density pass are kept for the force pass, up
    // to this many per particle; a particle with more scans its cells again.
    static constexpr uint32_t kListed = 80;

    uint32_t CellOf(const float* x) const;
    void BuildGrid();
    void DensityPass(size_t begin, size_t end);
    void ForcePass(size_t begin, size_t end);
    // Visits every particle (sorted index) in the 3 x 3 x 3 cells around
    // sorted particle i that lies within the kernel radius.
    template <typename F>
    void ForNeighbours(size_t i, F&& visit) const;

    FluidParams params_;
    EmitterParams emitter_;
    SphConstants k_{};
    bool hasEmitter_ = false;
    std::vector<float> x_, v_, a_, rho_, p_;
    // The neighbour grid: a dense grid of cells of the kernel radius over
    // the box (x fastest), particles sorted by cell so that a row of three
    // cells is one contiguous run, and copies of what the passes read in
    // that order, so neighbours sit next to each other in memory.
    int dims_[3] = {0, 0, 0};
    std::vector<uint32_t> cellStart_, cursor_, cellOf_, order_, nbr_, nbrCount_, emitted_;
    std::vector<float> sx_, sy_, sz_, svx_, svy_, svz_, srho_, sInvRho_, sp_;
    uint32_t mask_ = 0;  // hash table size of the compute path
    int live_ = 0;
    uint32_t next_ = 0;
    float emitCarry_ = 0.0f;
    uint32_t layer_ = 0;
    FixedStepper stepper_;
};

constexpr int kNozzleSide = 4;  // the emitter's nozzle: 4 x 4 particles per layer

}  // namespace sim
