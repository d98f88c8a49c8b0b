#include "sim/fluid.h"

#include <gtest/gtest.h>

#include <cmath>

namespace sim {
namespace {

FluidParams Params(int count) {
    FluidParams p;
    p.maxParticles = count;
    return p;
}

TEST(Fluid, CreationAndEmitterRefuseImpossibleValues) {
    FluidSolver f;
    std::string why;
    EXPECT_FALSE(f.Create(Params(0), &why));
    FluidParams tiny = Params(100);
    tiny.boundsMax[0] = tiny.boundsMin[0] + 0.1f;
    EXPECT_FALSE(f.Create(tiny, &why));
    // A box of a kilometre in particles of ten centimetres: its neighbour
    // grid would not fit, so creation says so instead of allocating it.
    FluidParams huge = Params(100);
    for (int a = 0; a < 3; ++a) huge.boundsMin[a] = -500.0f, huge.boundsMax[a] = 500.0f;
    EXPECT_FALSE(f.Create(huge, &why));
    EXPECT_EQ(why, "the fluid's box holds too many cells for its particle size");
    ASSERT_TRUE(f.Create(Params(100), &why)) << why;
    EmitterParams e;
    e.rate = 0.0f;
    EXPECT_FALSE(f.CreateEmitter(e, &why));
    e.rate = 400.0f;
    e.position[0] = 5.0f;  // outside the box
    EXPECT_FALSE(f.CreateEmitter(e, &why));
    e.position[0] = 0.0f;
    EXPECT_TRUE(f.CreateEmitter(e, &why)) << why;
}

TEST(Fluid, EmitterFillsTheRingAtItsRateThenRecycles) {
    FluidSolver f;
    std::string why;
    ASSERT_TRUE(f.Create(Params(64), &why));
    EmitterParams e;
    e.rate = 1600.0f;  // 100 layers of 16 per second
    ASSERT_TRUE(f.CreateEmitter(e, &why));
    EXPECT_EQ(f.Emit(0.005f).size(), 0u);  // 8 particles due: not a whole layer
    EXPECT_EQ(f.Emit(0.005f).size(), 16u);
    EXPECT_EQ(f.Live(), 16);
    for (int i = 0; i < 10; ++i) f.Emit(0.01f);
    EXPECT_EQ(f.Live(), 64);
    const auto& slots = f.Emit(0.01f);
    ASSERT_EQ(slots.size(), 16u);
    EXPECT_LT(slots[0], 64u);
}

// Grid neighbour search against every pair.
TEST(Fluid, NeighbourGridDensityMatchesBruteForce) {
    FluidSolver f;
    std::string why;
    ASSERT_TRUE(f.Create(Params(500), &why));
    EmitterParams e;
    e.rate = 3000.0f;
    ASSERT_TRUE(f.CreateEmitter(e, &why));
    for (int s = 0; s < 80; ++s) f.SubStep(kSubStep, nullptr);
    const SphConstants& k = f.Constants();
    ASSERT_GT(f.Live(), 300);
    // A density pass at (almost) the current positions, compared pair by pair.
    FluidSolver g = f;
    g.SubStep(1e-9f, nullptr);
    for (int i = 0; i < g.Live(); i += 13) {
        double sum = 0;
        const auto& y = g.Positions();
        for (int j = 0; j < g.Live(); ++j) {
            float r2 = 0;
            for (int a = 0; a < 3; ++a) r2 += (y[3 * i + a] - y[3 * j + a]) * (y[3 * i + a] - y[3 * j + a]);
            if (r2 < k.h2) sum += std::pow(k.h2 - r2, 3.0);
        }
        EXPECT_NEAR(g.Densities()[i], k.mass * k.poly6 * sum, 1e-3 * g.Densities()[i]) << "particle " << i;
    }
}

TEST(Fluid, LongRunSettlesNearRestDensityInsideTheBox) {
    FluidSolver f;
    std::string why;
    FluidParams p = Params(2000);
    p.spheres.push_back({{0.3f, 0.3f, 0.0f}, 0.2f});
    ASSERT_TRUE(f.Create(p, &why));
    EmitterParams e;
    e.rate = 800.0f;
    ASSERT_TRUE(f.CreateEmitter(e, &why));
    WorkerPool pool(1);
    for (int s = 0; s < 3000; ++s) f.Simulate(kFreeStep, &pool);  // 15 s: emitted, fallen and settled
    ASSERT_EQ(f.Live(), 2000);
    const auto& x = f.Positions();
    const float r = 0.25f * p.h;
    double dense = 0;
    int counted = 0;
    for (int i = 0; i < f.Live(); ++i) {
        for (int a = 0; a < 3; ++a) {
            ASSERT_TRUE(std::isfinite(x[3 * i + a]));
            ASSERT_GE(x[3 * i + a], p.boundsMin[a] + r - 1e-4f);
            ASSERT_LE(x[3 * i + a], p.boundsMax[a] - r + 1e-4f);
        }
        float d = std::hypot(x[3 * i] - 0.3f, x[3 * i + 1] - 0.3f, x[3 * i + 2]);
        ASSERT_GE(d, 0.2f + r - 1e-4f);
        // Inside the settled pool (not at its surface) the density is near rest.
        if (x[3 * i + 1] < 0.1f) {
            dense += f.Densities()[i];
            ++counted;
        }
    }
    ASSERT_GT(counted, 100);
    EXPECT_NEAR(dense / counted, p.restDensity, 0.15 * p.restDensity);
}

TEST(Fluid, HelperThreadsGiveTheSameResult) {
    FluidSolver a, b;
    std::string why;
    EmitterParams e;
    e.rate = 2000.0f;
    ASSERT_TRUE(a.Create(Params(800), &why) && a.CreateEmitter(e, &why));
    b = a;
    WorkerPool pool(1);
    for (int s = 0; s < 200; ++s) {
        a.Simulate(kFreeStep, nullptr);
        b.Simulate(kFreeStep, &pool);
    }
    EXPECT_EQ(a.Positions(), b.Positions());
}

}  // namespace
}  // namespace sim
