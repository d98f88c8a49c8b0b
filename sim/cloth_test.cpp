#include "sim/cloth.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "sim/cooking.h"

namespace sim {
namespace {

SceneDesc Desc(int cols, int rows) {
    SceneDesc d;
    d.flagColumns = cols;
    d.flagRows = rows;
    return d;
}

TEST(FixedStepper, WholeSubStepsCarryTheRestAndCapAtFour) {
    FixedStepper s;
    EXPECT_EQ(s.Advance(0.005f), 1);  // 0.001 carried
    EXPECT_EQ(s.Advance(0.005f), 1);  // 0.002
    EXPECT_EQ(s.Advance(0.005f), 1);  // 0.003
    EXPECT_EQ(s.Advance(0.005f), 2);  // 0.008 -> 2, nothing left
    EXPECT_EQ(s.Advance(1.0f), kMaxSubSteps);
    EXPECT_EQ(s.Advance(0.001f), 0);  // the dropped time does not come back
    EXPECT_EQ(s.Advance(-1.0f), 0);
}

TEST(Cooking, ColourGroupsShareNoVertexAndCoverEveryFreeConstraint) {
    ClothMesh m = BuildFlagMesh(Desc(8, 6));
    CookedCloth c;
    std::string why;
    ASSERT_TRUE(CookCloth(m, &c, &why)) << why;
    EXPECT_TRUE(ValidateCooked(c, m, &why)) << why;
    // 7*6 + 8*5 stretch, 2*7*5 shear, 6*6 + 8*4 bend; the pinned column's 5 vertical
    // stretch and 4 vertical bend constraints are dropped.
    EXPECT_EQ(c.ConstraintCount(), size_t(42 + 40 + 70 + 36 + 32 - 5 - 4));
    EXPECT_LE(c.colorStart.size(), 20u);
}

TEST(Cooking, BadMeshesAreRefused) {
    std::string why;
    CookedCloth c;
    ClothMesh tiny = BuildFlagMesh(Desc(1, 5));
    EXPECT_FALSE(CookCloth(tiny, &c, &why));
    SceneDesc flat = Desc(4, 4);
    flat.flagWidth = 0.0f;  // every column in one place
    EXPECT_FALSE(CookCloth(BuildFlagMesh(flat), &c, &why));
    ClothMesh nan = BuildFlagMesh(Desc(4, 4));
    nan.positions[5] = std::nanf("");
    EXPECT_FALSE(CookCloth(nan, &c, &why));
    // Cooked data of another mesh does not fit.
    ASSERT_TRUE(CookCloth(BuildFlagMesh(Desc(4, 4)), &c, &why));
    EXPECT_FALSE(ValidateCooked(c, BuildFlagMesh(Desc(5, 4)), &why));
}

TEST(Cooking, CacheIsWrittenReadAndRecookedWhenDamaged) {
    std::string folder = ::testing::TempDir() + "sim_cook_cache";
    std::filesystem::remove_all(folder);
    ClothMesh m = BuildFlagMesh(Desc(6, 5));
    CookedCloth first, second, third;
    CookSource src;
    std::string why;
    ASSERT_TRUE(LoadOrCookCloth(m, "PhysXFlagMesh", folder, &first, &src, &why));
    EXPECT_EQ(src, CookSource::Cooked);
    ASSERT_TRUE(LoadOrCookCloth(m, "PhysXFlagMesh", folder, &second, &src, &why));
    EXPECT_EQ(src, CookSource::Cache);
    EXPECT_TRUE(second == first);

    std::string path = CookedCachePath(folder, "PhysXFlagMesh", m);
    {
        std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
        f.seekp(40);
        f.put('\x7f');
    }
    ASSERT_TRUE(LoadOrCookCloth(m, "PhysXFlagMesh", folder, &third, &src, &why));
    EXPECT_EQ(src, CookSource::Cooked);
    EXPECT_TRUE(third == first);
    // ... and the rewritten file is good again.
    ASSERT_TRUE(LoadOrCookCloth(m, "PhysXFlagMesh", folder, &third, &src, &why));
    EXPECT_EQ(src, CookSource::Cache);
    std::filesystem::remove_all(folder);
}

struct FlagRun {
    ClothMesh mesh;
    ClothSolver solver;
};

void Start(FlagRun* r, const SceneDesc& d, const ClothParams& p) {
    r->mesh = BuildFlagMesh(d);
    CookedCloth c;
    std::string why;
    ASSERT_TRUE(CookCloth(r->mesh, &c, &why)) << why;
    ASSERT_TRUE(r->solver.Init(r->mesh, c, p, &why)) << why;
}

double Energy(const ClothSolver& s) {
    double e = 0.0;
    const auto& x = s.Positions();
    const auto& v = s.Velocities();
    for (size_t i = 0; i < s.InvMass().size(); ++i) {
        if (s.InvMass()[i] == 0.0f) continue;
        e += 0.5 * (v[3 * i] * v[3 * i] + v[3 * i + 1] * v[3 * i + 1] + v[3 * i + 2] * v[3 * i + 2]);
        e += 9.8 * x[3 * i + 1];
    }
    return e;
}

TEST(ClothSolver, LongRunWithoutWindStaysFiniteStretchedLittleAndLosesEnergy) {
    FlagRun r;
    ClothParams p;
    p.groundHeight = 0.0f;
    Start(&r, Desc(16, 12), p);
    double e0 = Energy(r.solver);
    for (int step = 0; step < 3000; ++step) {
        r.solver.Simulate(kFreeStep);
        if (step % 500 == 0) {
            EXPECT_LE(Energy(r.solver), e0 + 1e-3) << "step " << step;
        }
    }
    const auto& x = r.solver.Positions();
    for (float v : x) ASSERT_TRUE(std::isfinite(v));
    const CookedCloth& c = r.solver.Cooked();
    for (size_t k = 0; k < c.ConstraintCount(); ++k) {
        if (c.compliance[k] != 0.0f) continue;  // only the stretch constraints are stiff
        uint32_t i = c.pairs[2 * k], j = c.pairs[2 * k + 1];
        float d = std::hypot(x[3 * j] - x[3 * i], x[3 * j + 1] - x[3 * i + 1], x[3 * j + 2] - x[3 * i + 2]);
        EXPECT_NEAR(d, c.restLength[k], 0.15f * c.restLength[k]) << "constraint " << k;
    }
    // It hangs: the free corner is well below where it started.
    size_t corner = r.mesh.columns - 1;
    EXPECT_LT(x[3 * corner + 1], r.mesh.positions[3 * corner + 1] - 0.3f);
}

TEST(ClothSolver, PinnedVerticesStayAndWindBlowsTheFlag) {
    FlagRun calm, windy;
    ClothParams p;
    Start(&calm, Desc(12, 8), p);
    p.wind[2] = 6.0f;
    Start(&windy, Desc(12, 8), p);
    for (int s = 0; s < 400; ++s) {
        calm.solver.Simulate(kFreeStep);
        windy.solver.Simulate(kFreeStep);
    }
    const auto& x = windy.solver.Positions();
    for (size_t i = 0; i < windy.mesh.invMass.size(); ++i)
        if (windy.mesh.invMass[i] == 0.0f) {
            for (int a = 0; a < 3; ++a) EXPECT_EQ(x[3 * i + a], windy.mesh.positions[3 * i + a]);
        }
    double zCalm = 0, zWindy = 0;
    for (size_t i = 0; i < x.size() / 3; ++i) {
        zCalm += calm.solver.Positions()[3 * i + 2];
        zWindy += x[3 * i + 2];
    }
    EXPECT_GT(zWindy / (x.size() / 3), zCalm / (x.size() / 3) + 0.2);
}

TEST(ClothSolver, GroundAndSpheresAreNeverPenetrated) {
    SceneDesc d = Desc(12, 12);
    d.poleHeight = 1.5f;  // the flag reaches the ground
    FlagRun r;
    ClothParams p;
    p.groundHeight = 0.0f;
    p.spheres.push_back({{0.0f, 0.5f, 0.0f}, 0.4f});
    Start(&r, d, p);
    for (int s = 0; s < 1500; ++s) {
        r.solver.Simulate(kFreeStep);
        const auto& x = r.solver.Positions();
        for (size_t i = 0; i < x.size() / 3; ++i) {
            if (r.mesh.invMass[i] == 0.0f) continue;
            ASSERT_GE(x[3 * i + 1], p.groundHeight + p.thickness - 1e-5f);
            float dist = std::hypot(x[3 * i], x[3 * i + 1] - 0.5f, x[3 * i + 2]);
            ASSERT_GE(dist, 0.4f + p.thickness - 1e-4f) << "vertex " << i << " step " << s;
        }
    }
}

// Within a colour group the constraints share no vertex, so their order must
// not change a single bit of the result, although it changes which of them the
// solver takes four at a time and which one at a time.
TEST(ClothSolver, OrderWithinAColourGroupChangesNoBit) {
    SceneDesc d = Desc(11, 9);
    d.poleHeight = 1.5f;
    ClothMesh mesh = BuildFlagMesh(d);
    CookedCloth cooked;
    std::string why;
    ASSERT_TRUE(CookCloth(mesh, &cooked, &why)) << why;
    CookedCloth reversed = cooked;
    bool someGroupHasARest = false;
    for (size_t g = 0; g + 1 < cooked.colorStart.size(); ++g) {
        uint32_t first = cooked.colorStart[g], end = cooked.colorStart[g + 1];
        someGroupHasARest = someGroupHasARest || (end - first) % 4 != 0;
        for (uint32_t k = first; k < end; ++k) {
            uint32_t from = first + end - 1 - k;
            reversed.pairs[2 * k] = cooked.pairs[2 * from];
            reversed.pairs[2 * k + 1] = cooked.pairs[2 * from + 1];
            reversed.restLength[k] = cooked.restLength[from];
            reversed.compliance[k] = cooked.compliance[from];
        }
    }
    ASSERT_TRUE(someGroupHasARest);
    ClothParams p;
    p.wind[0] = 2.0f;
    p.wind[2] = 1.0f;
    p.spheres.push_back({{0.0f, 0.5f, 0.2f}, 0.4f});
    ClothSolver a, b;
    ASSERT_TRUE(a.Init(mesh, cooked, p, &why)) << why;
    ASSERT_TRUE(b.Init(mesh, reversed, p, &why)) << why;
    for (int s = 0; s < 300; ++s) {
        a.Simulate(kFreeStep);
        b.Simulate(kFreeStep);
    }
    ASSERT_EQ(a.Positions().size(), b.Positions().size());
    for (size_t i = 0; i < a.Positions().size(); ++i) {
        ASSERT_EQ(a.Positions()[i], b.Positions()[i]) << "coordinate " << i;
        ASSERT_EQ(a.Velocities()[i], b.Velocities()[i]) << "coordinate " << i;
    }
}

// Vertices in one place give constraints without a direction: such a
// constraint is left alone for that pass, wherever in its group it falls, and
// the others part the vertices. Here the whole sheet starts in one point.
TEST(ClothSolver, VerticesInOnePlaceStayFinite) {
    ClothMesh mesh = BuildFlagMesh(Desc(9, 7));
    CookedCloth cooked;
    std::string why;
    ASSERT_TRUE(CookCloth(mesh, &cooked, &why)) << why;
    for (size_t i = 3; i < mesh.positions.size(); ++i) mesh.positions[i] = mesh.positions[i % 3];
    ClothSolver s;
    ASSERT_TRUE(s.Init(mesh, cooked, ClothParams(), &why)) << why;
    for (int step = 0; step < 200; ++step) s.Simulate(kFreeStep);
    const auto& x = s.Positions();
    for (float v : x) ASSERT_TRUE(std::isfinite(v));
    // Hanging from the point: the far corner has dropped below it.
    size_t corner = mesh.positions.size() / 3 - 1;
    EXPECT_LT(x[3 * corner + 1], mesh.positions[1] - 0.02f);
}

TEST(ClothMeshes, SupportMeshFollowsTheSupportValue) {
    SceneDesc d;
    StaticMeshes m;
    d.flagSupportValue = 30;
    ASSERT_TRUE(BuildSupportMesh(d, &m));
    EXPECT_EQ(m.supportIndices.size(), size_t(30 * 6 + 30 * 3));
    for (uint32_t i : m.supportIndices) EXPECT_LT(i, m.supportPositions.size() / 3);
    d.flagSupportValue = 2;
    EXPECT_FALSE(BuildSupportMesh(d, &m));
}

TEST(ClothMeshes, NormalsOfAFlatSheetAreUnitAndAlike) {
    ClothMesh m = BuildFlagMesh(Desc(4, 3));
    std::vector<float> n;
    ComputeNormals(m.positions, m.indices, &n);
    for (size_t i = 0; i < n.size(); i += 3) {
        EXPECT_NEAR(std::fabs(n[i + 2]), 1.0f, 1e-5f);
        EXPECT_EQ(n[i + 2], n[2]);
    }
}

}  // namespace
}  // namespace sim
