// Simulation throughput, side by side in one run:
//   our cloth (64 x 64 vertices, one CPU thread) against a mainstream
//   engine's soft-body cloth on the same mesh (the two in alternating
//   slices of the same seconds), the SPH fluid at 4,000
//   particles on the CPU, and the compute-shader path of both.
// Run: build/bench/sim_bench [seconds per case] [fluid threads, default: every core]
#include <btBulletDynamicsCommon.h>
#include <BulletSoftBody/btSoftBodyHelpers.h>
#include <BulletSoftBody/btSoftBodyRigidBodyCollisionConfiguration.h>
#include <BulletSoftBody/btSoftRigidDynamicsWorld.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

#include "sim/cloth.h"
#include "sim/fluid.h"
#include "sim/gpu_sim.h"

namespace {

using Clock = std::chrono::steady_clock;

// Steps per second of `step` over about `seconds`.
double Rate(double seconds, const std::function<void()>& step) {
    for (int i = 0; i < 20; ++i) step();  // warm caches
    auto t0 = Clock::now();
    long n = 0;
    while (std::chrono::duration<double>(Clock::now() - t0).count() < seconds) {
        for (int i = 0; i < 10; ++i) step();
        n += 10;
    }
    return n / std::chrono::duration<double>(Clock::now() - t0).count();
}

sim::SceneDesc Flag64() {
    sim::SceneDesc d;
    d.flagColumns = 64;
    d.flagRows = 64;
    d.flagWidth = 3.0f;
    d.flagHeight = 3.0f;
    return d;
}

// The other engine's soft-body cloth, kept between measuring slices.
struct BulletCloth {
    btSoftBodyRigidBodyCollisionConfiguration config;
    btCollisionDispatcher dispatcher{&config};
    btDbvtBroadphase broadphase;
    btSequentialImpulseConstraintSolver solver;
    btSoftRigidDynamicsWorld world{&dispatcher, &broadphase, &solver, &config};
    btSoftBody* cloth = nullptr;

    BulletCloth() {
        world.setGravity(btVector3(0, -9.8f, 0));
        btSoftBodyWorldInfo& info = world.getWorldInfo();
        info.m_gravity = btVector3(0, -9.8f, 0);
        info.m_sparsesdf.Initialize();
        // The same sheet: 64 x 64 vertices, pinned along one edge (two fixed
        // corners here, the edge's other vertices held by mass 0 below).
        cloth = btSoftBodyHelpers::CreatePatch(info, btVector3(-1.5f, 4, 0), btVector3(1.5f, 4, 0),
                                               btVector3(-1.5f, 1, 0), btVector3(1.5f, 1, 0), 64, 64, 1 + 4, true);
        for (int r = 0; r < 64; ++r) cloth->setMass(r * 64, 0);
        cloth->m_cfg.piterations = 2;  // as many constraint passes as ours
        cloth->m_cfg.kDF = 0.2f;
        world.addSoftBody(cloth);
    }
    ~BulletCloth() {
        world.removeSoftBody(cloth);
        delete cloth;
    }
    void Step() { world.stepSimulation(sim::kFreeStep, sim::kMaxSubSteps, sim::kSubStep); }
};

// Steps per second of two steppers measured in alternating slices of about
// `seconds` / 12 each, so that a change of load on a shared machine falls on
// both alike and their ratio stays fair.
void Interleaved(double seconds, const std::function<void()>& a, const std::function<void()>& b, double* rateA,
                 double* rateB) {
    for (int i = 0; i < 20; ++i) a(), b();  // warm caches
    const int kSlices = 12;
    double timeA = 0, timeB = 0;
    long stepsA = 0, stepsB = 0;
    auto slice = [&](const std::function<void()>& step, double* time, long* steps) {
        auto t0 = Clock::now();
        do {
            for (int i = 0; i < 10; ++i) step();
            *steps += 10;
        } while (std::chrono::duration<double>(Clock::now() - t0).count() < seconds / kSlices);
        *time += std::chrono::duration<double>(Clock::now() - t0).count();
    };
    for (int s = 0; s < kSlices; ++s) {
        slice(a, &timeA, &stepsA);
        slice(b, &timeB, &stepsB);
    }
    *rateA = stepsA / timeA;
    *rateB = stepsB / timeB;
}

}  // namespace

int main(int argc, char** argv) {
    double seconds = argc > 1 ? std::atof(argv[1]) : 3.0;
    if (!(seconds > 0.0)) seconds = 3.0;

    sim::ClothMesh mesh = sim::BuildFlagMesh(Flag64());
    sim::CookedCloth cooked;
    std::string why;
    if (!sim::CookCloth(mesh, &cooked, &why)) {
        std::fprintf(stderr, "cooking failed: %s\n", why.c_str());
        return 1;
    }
    sim::ClothParams params;
    params.wind[0] = 3.0f;
    params.wind[2] = 1.0f;
    sim::ClothSolver cloth;
    cloth.Init(mesh, cooked, params, &why);
    BulletCloth other;
    double ours = 0, bullet = 0;
    Interleaved(seconds, [&] { cloth.Simulate(sim::kFreeStep); }, [&] { other.Step(); }, &ours, &bullet);
    std::printf("cloth 64x64, 1 CPU thread:   %8.0f steps/s\n", ours);
    std::printf("bullet soft-body cloth 64x64: %8.0f steps/s  (ours / bullet = %.2f, target >= 2)\n", bullet,
                ours / bullet);

    sim::FluidParams fp;
    fp.maxParticles = 4000;
    sim::EmitterParams ep;
    ep.rate = 4000.0f;
    sim::FluidSolver fluid;
    if (!fluid.Create(fp, &why) || !fluid.CreateEmitter(ep, &why)) {
        std::fprintf(stderr, "fluid failed: %s\n", why.c_str());
        return 1;
    }
    int cores = argc > 2 ? std::atoi(argv[2]) : static_cast<int>(std::thread::hardware_concurrency());
    sim::WorkerPool pool(cores > 1 ? cores - 1 : 0);
    while (fluid.Live() < 4000) fluid.Simulate(sim::kFreeStep, &pool);
    sim::FluidSolver fluidGpuStart = fluid;
    double sph = Rate(seconds, [&] { fluid.Simulate(sim::kFreeStep, &pool); });
    std::printf("SPH 4000 particles, %d threads: %8.0f steps/s  (target >= 400)\n", pool.Threads(), sph);

    if (!sim::GpuComputeAvailable(&why)) {
        std::printf("compute path: not available (%s)\n", why.c_str());
        return 0;
    }
    std::thread gpu([&] {
        auto gc = sim::GpuCloth::Create(mesh, cooked, params);
        auto gf = sim::GpuFluid::Create(fluidGpuStart);
        if (!gc || !gf) {
            std::printf("compute path: could not be created (see the event log)\n");
            return;
        }
        std::vector<float> out;
        int count = 0;
        // A step ends when its positions are back on the CPU, as in the simulation thread.
        double c = Rate(seconds, [&] {
            gc->Simulate(sim::kFreeStep);
            gc->ReadPositions(&out);
        });
        double f = Rate(seconds, [&] {
            gf->Simulate(sim::kFreeStep);
            gf->ReadPositions(&out, &count);
        });
        std::printf("compute path, cloth 64x64:   %8.0f steps/s\n", c);
        std::printf("compute path, SPH 4000:      %8.0f steps/s\n", f);
    });
    gpu.join();
    return 0;
}
