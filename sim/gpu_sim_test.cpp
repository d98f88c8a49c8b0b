#include "sim/gpu_sim.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "sim/gpu_context.h"

namespace sim {
namespace {

// The compute path runs where a 4.3 context can be made (llvmpipe here, WGL
// under Wine); elsewhere these tests say why they did not run.
#define REQUIRE_COMPUTE()                                                  \
    do {                                                                   \
        std::string why;                                                   \
        if (!GpuComputeAvailable(&why)) GTEST_SKIP() << "no compute: " << why; \
    } while (0)

TEST(GpuCloth, AgreesWithTheCpuSolver) {
    REQUIRE_COMPUTE();
    SceneDesc d;
    d.flagColumns = 16;
    d.flagRows = 12;
    d.poleHeight = 1.8f;
    ClothMesh mesh = BuildFlagMesh(d);
    CookedCloth cooked;
    std::string why;
    ASSERT_TRUE(CookCloth(mesh, &cooked, &why));
    ClothParams p;
    p.wind[0] = 2.0f;
    p.wind[2] = 1.0f;
    p.spheres.push_back({{0.3f, 0.2f, 0.2f}, 0.3f});
    ClothSolver cpu;
    ASSERT_TRUE(cpu.Init(mesh, cooked, p, &why));
    std::vector<float> gpuPositions;
    // The context belongs to the thread that makes it, as in the simulation thread.
    std::thread t([&] {
        auto gpu = GpuCloth::Create(mesh, cooked, p);
        ASSERT_TRUE(gpu);
        for (int s = 0; s < 100; ++s) gpu->Simulate(kFreeStep);
        gpu->ReadPositions(&gpuPositions);
    });
    t.join();
    for (int s = 0; s < 100; ++s) cpu.Simulate(kFreeStep);
    ASSERT_EQ(gpuPositions.size(), cpu.Positions().size());
    float worst = 0.0f;
    for (size_t i = 0; i < gpuPositions.size(); ++i) worst = std::max(worst, std::fabs(gpuPositions[i] - cpu.Positions()[i]));
    EXPECT_LT(worst, 1e-4f);
    // The flag moved: the comparison is not of two unmoved meshes.
    EXPECT_GT(std::fabs(cpu.Positions()[3 * 15 + 1] - mesh.positions[3 * 15 + 1]), 0.05f);
}

TEST(GpuFluid, StaysInsideTheBoxAndKeepsTheCpuEmitterCount) {
    REQUIRE_COMPUTE();
    FluidSolver f;
    FluidParams p;
    p.maxParticles = 1000;
    std::string why;
    EmitterParams e;
    e.rate = 1000.0f;
    ASSERT_TRUE(f.Create(p, &why) && f.CreateEmitter(e, &why));
    std::vector<float> x;
    int count = 0;
    std::thread t([&] {
        auto gpu = GpuFluid::Create(f);
        ASSERT_TRUE(gpu);
        for (int s = 0; s < 600; ++s) gpu->Simulate(kFreeStep);
        gpu->ReadPositions(&x, &count);
    });
    t.join();
    for (int s = 0; s < 600; ++s) f.Simulate(kFreeStep, nullptr);
    EXPECT_EQ(count, f.Live());
    ASSERT_EQ(x.size(), size_t(3 * count));
    double meanGpu = 0, meanCpu = 0;
    for (int i = 0; i < count; ++i) {
        for (int a = 0; a < 3; ++a) {
            ASSERT_TRUE(std::isfinite(x[3 * i + a]));
            ASSERT_GE(x[3 * i + a], p.boundsMin[a]);
            ASSERT_LE(x[3 * i + a], p.boundsMax[a]);
        }
        meanGpu += x[3 * i + 1];
        meanCpu += f.Positions()[3 * i + 1];
    }
    // Same fluid, summed in another order: the pools settle alike.
    EXPECT_NEAR(meanGpu / count, meanCpu / count, 0.1);
}

}  // namespace
}  // namespace sim
