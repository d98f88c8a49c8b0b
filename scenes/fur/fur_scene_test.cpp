#include "scenes/fur/fur_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "core/shell_state.h"

namespace {

// ------------------------------------------------------- parameter table

struct Row {
    int32_t shells;
    float length;
    int32_t layers;
    int32_t size;
    int32_t density;
};

void ExpectRow(const FurParams& p, const Row& r) {
    EXPECT_EQ(p.numShells, r.shells);
    EXPECT_EQ(p.furLength, r.length);
    EXPECT_EQ(p.numLayerTextures, r.layers);
    EXPECT_EQ(p.layerTextureSize, r.size);
    EXPECT_EQ(p.hairDensity, r.density);
}

// A record whose blur values no row would produce, to see "unchanged".
FurParams OddPrevious() {
    FurParams p;
    p.radialBlurSamples = 33;
    p.radialBlurScaleMul = 0.5f;
    p.numShells = 7;
    return p;
}

TEST(FurParamsTable, NamedObjects) {
    const FurParams prev = OddPrevious();
    const struct {
        int32_t object;
        Row row;
    } cases[] = {
        {kFurryVxa, {100, 10.0f, 40, 512, 180000}},   {kFurryTorus, {100, 15.0f, 50, 512, 100000}},
        {kFurryBox, {80, 10.0f, 20, 256, 50000}},     {kFurrySphere, {60, 10.0f, 20, 512, 150000}},
        {kFurryHd6970, {80, 10.0f, 20, 512, 200000}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.object);
        const FurParams p = SelectFurParams(c.object, false, false, prev);
        ExpectRow(p, c.row);
        EXPECT_EQ(p.radialBlurSamples, 50);
        EXPECT_EQ(p.radialBlurScaleMul, 0.9975f);
        EXPECT_EQ(SelectDotSet(c.object, false, false), DotSetKind::kUniform);
    }
}

TEST(FurParamsTable, XtremeBurnIn) {
    const FurParams prev = OddPrevious();
    for (int32_t object : std::initializer_list<int32_t>{kFurryVxa, kFurryTorus, kFurryBox, kFurrySphere, 0, 6, 99}) {
        SCOPED_TRACE(object);
        const FurParams p = SelectFurParams(object, true, false, prev);
        ExpectRow(p, {200, 12.0f, 20, 512, 150000});
        EXPECT_EQ(p.radialBlurSamples, 70);
        EXPECT_EQ(p.radialBlurScaleMul, 0.998f);
        // The Xtreme row comes before the unknown-object row.
        EXPECT_EQ(SelectDotSet(object, true, false), DotSetKind::kUniform);
    }
    const FurParams board = SelectFurParams(kFurryHd6970, true, false, prev);
    ExpectRow(board, {200, 8.0f, 20, 512, 150000});
    EXPECT_EQ(board.radialBlurSamples, 70);
}

TEST(FurParamsTable, BenchmarkStageKeepsTheBlur) {
    const FurParams prev = OddPrevious();
    for (bool xtreme : {false, true}) {
        for (int32_t object : std::initializer_list<int32_t>{kFurryVxa, kFurryTorus, kFurryHd6970, 42}) {
            const FurParams p = SelectFurParams(object, xtreme, true, prev);
            ExpectRow(p, {80, 4.0f, 10, 512, 200000});
            EXPECT_EQ(p.radialBlurSamples, 33);
            EXPECT_EQ(p.radialBlurScaleMul, 0.5f);
            EXPECT_EQ(SelectDotSet(object, xtreme, true), DotSetKind::kUniform);
        }
    }
}

TEST(FurParamsTable, UnknownObjectsAreGradedAndKeepTheBlur) {
    const FurParams prev = OddPrevious();
    for (int32_t object : std::initializer_list<int32_t>{0, 6, -1, 1000}) {
        const FurParams p = SelectFurParams(object, false, false, prev);
        ExpectRow(p, {160, 20.0f, 12, 256, 30000});
        EXPECT_EQ(p.radialBlurSamples, 33);
        EXPECT_EQ(p.radialBlurScaleMul, 0.5f);
        EXPECT_EQ(SelectDotSet(object, false, false), DotSetKind::kGraded);
    }
}

TEST(FurParamsTable, InitialRecordAndStartValues) {
    // The blur a process starts with, and the layer textures are never
    // carried over from the previous record.
    FurParams fresh;
    EXPECT_EQ(fresh.radialBlurSamples, 50);
    EXPECT_EQ(fresh.radialBlurScaleMul, 0.9975f);
    DotSet dummy;
    fresh.layerTextures = &dummy;
    EXPECT_EQ(SelectFurParams(7, false, false, fresh).layerTextures, nullptr);
    EXPECT_EQ(SelectFurParams(7, false, false, fresh).radialBlurSamples, 50);

    FurStartValues start{512, 200000, 120, 12.0f, 18};
    FurParams p = OddPrevious();
    ApplyFurStartValues(start, &p);
    ExpectRow(p, {120, 12.0f, 18, 512, 200000});
    EXPECT_EQ(p.radialBlurSamples, 33);
}

// ------------------------------------------------------------- dot sets

// The test's own placement: the C library's generator, scaled onto
// 0..32767, x before y.
int Draw(int size) {
    const long long r = std::rand();
    const long long r15 = r * 32768 / (static_cast<long long>(RAND_MAX) + 1);
    return static_cast<int>(r15 * size / 32768);
}

struct Texel {
    uint8_t r, g, b, a;
    bool operator==(const Texel& o) const { return r == o.r && g == o.g && b == o.b && a == o.a; }
};

Texel At(const DotSet& s, int layer, int x, int y) {
    const uint8_t* p = s.Texel(layer, x, y);
    return {p[0], p[1], p[2], p[3]};
}

std::vector<Texel> ExpectedLayer(int size, int seed, int dots, Texel clear, Texel dot) {
    std::vector<Texel> img(static_cast<size_t>(size) * size, clear);
    std::srand(static_cast<unsigned>(seed));
    for (int k = 0; k < dots; ++k) {
        const int x = Draw(size);
        const int y = Draw(size);
        img[static_cast<size_t>(y) * size + x] = dot;
    }
    return img;
}

::testing::AssertionResult LayerMatches(const DotSet& s, int layer, const std::vector<Texel>& expected) {
    for (int y = 0; y < s.size; ++y)
        for (int x = 0; x < s.size; ++x) {
            const Texel got = At(s, layer, x, y), want = expected[static_cast<size_t>(y) * s.size + x];
            if (!(got == want))
                return ::testing::AssertionFailure()
                       << "layer " << layer << " texel (" << x << "," << y << ") is " << int(got.r) << "/"
                       << int(got.a) << ", expected " << int(want.r) << "/" << int(want.a);
        }
    return ::testing::AssertionSuccess();
}

int CountAlpha(const DotSet& s, int layer) {
    int n = 0;
    for (int y = 0; y < s.size; ++y)
        for (int x = 0; x < s.size; ++x) n += At(s, layer, x, y).a != 0;
    return n;
}

TEST(DotSets, FirstDotComesFromThePlatformsGenerator) {
    // One dot, seeded with 1: the first two draws of the C library's own
    // sequence place it, x first. glibc starts 1804289383, 846930886; the
    // Windows library 41, 18467.
    const DotSet s = GenerateUniformDotSet(1, 256, 1, false);
    ASSERT_EQ(s.numLayers(), 1);
    int found = 0, fx = -1, fy = -1;
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x)
            if (At(s, 0, x, y).a) {
                ++found;
                fx = x;
                fy = y;
            }
    EXPECT_EQ(found, 1);
#if RAND_MAX == 32767
    EXPECT_EQ(fx, 0);
    EXPECT_EQ(fy, 144);
#else
    EXPECT_EQ(fx, 215);
    EXPECT_EQ(fy, 100);
#endif
}

TEST(DotSets, GradedLayersMatchAnIndependentRendering) {
    const int layers = 4, size = 64, density = 600;
    const DotSet s = GenerateGradedDotSet(layers, size, density);
    ASSERT_EQ(s.numLayers(), layers);
    EXPECT_EQ(s.kind, DotSetKind::kGraded);
    EXPECT_EQ(s.size, size);
    // g = 0, .25, .5, .75: grey floor 25 (0.1) only on layer 0; dots of grey
    // g * 255 and alpha f * 255; counts 600, 450, 300, 150 seeded alike.
    const uint8_t clearGrey[] = {25, 63, 127, 191};
    const uint8_t dotGrey[] = {0, 63, 127, 191};
    const uint8_t alpha[] = {255, 191, 127, 63};
    const int dots[] = {600, 450, 300, 150};
    for (int i = 0; i < layers; ++i) {
        const Texel clear{clearGrey[i], clearGrey[i], clearGrey[i], 0};
        const Texel dot{dotGrey[i], dotGrey[i], dotGrey[i], alpha[i]};
        const std::vector<Texel> expected = ExpectedLayer(size, dots[i], dots[i], clear, dot);
        EXPECT_TRUE(LayerMatches(s, i, expected));
        std::set<size_t> distinct;
        for (size_t t = 0; t < expected.size(); ++t)
            if (expected[t].a) distinct.insert(t);
        EXPECT_EQ(CountAlpha(s, i), static_cast<int>(distinct.size()));
        EXPECT_GT(CountAlpha(s, i), dots[i] * 8 / 10);  // few collisions at this density
    }
    // Inner layers are denser than outer ones.
    EXPECT_GT(CountAlpha(s, 0), CountAlpha(s, 3));
}

TEST(DotSets, GradedFloorAppliesBelowATenth) {
    // 20 layers: g = 0.05 on layer 1 is below the floor, g = 0.15 on layer 3 above it.
    const DotSet s = GenerateGradedDotSet(20, 16, 0);
    ASSERT_EQ(s.numLayers(), 20);
    EXPECT_EQ(At(s, 1, 5, 5), (Texel{25, 25, 25, 0}));
    EXPECT_EQ(At(s, 2, 5, 5), (Texel{25, 25, 25, 0}));  // g = 0.1 exactly: 25 either way
    EXPECT_EQ(At(s, 3, 5, 5), (Texel{38, 38, 38, 0}));
    EXPECT_EQ(At(s, 19, 0, 15), (Texel{242, 242, 242, 0}));
    EXPECT_EQ(CountAlpha(s, 0), 0);
}

TEST(DotSets, UniformLayersShareDotsAndFadeAlpha) {
    const int layers = 5, size = 32, density = 300;
    for (bool xtreme : {false, true}) {
        SCOPED_TRACE(xtreme);
        const DotSet s = GenerateUniformDotSet(layers, size, density, xtreme);
        ASSERT_EQ(s.numLayers(), layers);
        EXPECT_EQ(s.kind, DotSetKind::kUniform);
        const uint8_t grey = xtreme ? 150 : 240;
        // g = 0, .2, .4, .6, .8: floor 51 (0.2) on the first two; alpha
        // (1 - g) * 255.
        const uint8_t clearGrey[] = {51, 51, 102, 153, 204};
        const uint8_t alpha[] = {255, 204, 153, 102, 51};
        for (int i = 0; i < layers; ++i) {
            const std::vector<Texel> expected = ExpectedLayer(size, density, density,
                                                              Texel{clearGrey[i], clearGrey[i], clearGrey[i], 0},
                                                              Texel{grey, grey, grey, alpha[i]});
            EXPECT_TRUE(LayerMatches(s, i, expected));
        }
        // The same places on every layer.
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x) {
                const bool dot = At(s, 0, x, y).a != 0;
                for (int i = 1; i < layers; ++i) ASSERT_EQ(At(s, i, x, y).a != 0, dot);
            }
        EXPECT_EQ(CountAlpha(s, 0), CountAlpha(s, layers - 1));
    }
}

TEST(DotSets, SizesAndRejections) {
    const DotSet s = GenerateUniformDotSet(3, 100, 50, false);
    ASSERT_EQ(s.numLayers(), 3);
    for (const auto& layer : s.layers) EXPECT_EQ(layer.size(), 100u * 100u * 4u);
    EXPECT_EQ(GenerateUniformDotSet(0, 64, 10, false).numLayers(), 0);
    EXPECT_EQ(GenerateGradedDotSet(4, 0, 10).numLayers(), 0);
    EXPECT_EQ(GenerateGradedDotSet(4, 64, -1).numLayers(), 0);
    // Large sizes stay inside the texture: the last column and row are reachable.
    const DotSet big = GenerateUniformDotSet(1, 1024, 200000, false);
    bool lastColumn = false, lastRow = false;
    for (int i = 0; i < 1024; ++i) {
        lastColumn |= At(big, 0, 1023, i).a != 0;
        lastRow |= At(big, 0, i, 1023).a != 0;
    }
    EXPECT_TRUE(lastColumn);
    EXPECT_TRUE(lastRow);
}

TEST(DotSetStoreTest, FirstSetFixesSizeAndDensity) {
    DotSetStore store;
    EXPECT_EQ(store.Find(DotSetKind::kUniform), nullptr);
    FurParams a;
    a.numLayerTextures = 4;
    a.layerTextureSize = 64;
    a.hairDensity = 100;
    const DotSet& uniform = store.Acquire(DotSetKind::kUniform, false, &a);
    EXPECT_EQ(uniform.size, 64);
    EXPECT_EQ(a.layerTextures, &uniform);
    EXPECT_EQ(store.Find(DotSetKind::kUniform), &uniform);
    EXPECT_EQ(store.Find(DotSetKind::kGraded), nullptr);

    // The graded set made later takes the first set's size and density.
    FurParams b;
    b.numLayerTextures = 3;
    b.layerTextureSize = 32;
    b.hairDensity = 50;
    const DotSet& graded = store.Acquire(DotSetKind::kGraded, false, &b);
    EXPECT_EQ(graded.size, 64);
    EXPECT_EQ(graded.hairDensity, 100);
    EXPECT_EQ(graded.numLayers(), 3);
    EXPECT_EQ(b.layerTextureSize, 64);
    EXPECT_EQ(b.hairDensity, 100);
    EXPECT_EQ(b.layerTextures, &graded);

    // Asking again returns the same textures, whatever the parameters and
    // the Xtreme switch say now, and the shells get the set's layer count.
    FurParams c;
    c.numLayerTextures = 9;
    c.layerTextureSize = 512;
    c.hairDensity = 7;
    const DotSet& again = store.Acquire(DotSetKind::kUniform, true, &c);
    EXPECT_EQ(&again, &uniform);
    EXPECT_FALSE(again.xtremeBurnIn);
    EXPECT_EQ(c.numLayerTextures, 4);
    EXPECT_EQ(c.layerTextureSize, 64);
    EXPECT_EQ(c.hairDensity, 100);
}

TEST(DotSetStoreTest, ProcessStoreIsOne) { EXPECT_EQ(&ProcessDotSets(), &ProcessDotSets()); }

// --------------------------------------------------------------- meshes

// A fake mesh data library: one tetrahedron under "VXA", nothing else.
const float kTetraVertices[] = {
    1, 1, 1, 0, 0, 1, 0, 0,   -1, -1, 1, 0, 0, 1, 1, 0,
    -1, 1, -1, 0, 0, 1, 0, 1, 1, -1, -1, 0, 0, 1, 1, 1,
};
const unsigned kTetraFaces[] = {0, 1, 3, 0, 2, 1, 0, 3, 2, 1, 2, 3};
std::vector<std::string> gAskedFor;
bool gBrokenFaces = false;
bool IsVxa(const char* name) { return name && std::strcmp(name, "VXA") == 0; }
int FakeNumVertices(const char* name) {
    gAskedFor.push_back(name ? name : "(null)");
    return IsVxa(name) ? 4 : 0;
}
int FakeNumFaces(const char* name) { return IsVxa(name) ? 4 : 0; }
const float* FakeVertices(const char* name) { return IsVxa(name) ? kTetraVertices : nullptr; }
const unsigned* FakeFaces(const char* name) {
    static const unsigned kBroken[] = {0, 1, 9, 0, 2, 1, 0, 3, 2, 1, 2, 3};
    return IsVxa(name) ? (gBrokenFaces ? kBroken : kTetraFaces) : nullptr;
}

AdataMeshSource FakeLibrary() {
    AdataMeshSource s;
    s.numVertices = FakeNumVertices;
    s.numFaces = FakeNumFaces;
    s.vertices = FakeVertices;
    s.faces = FakeFaces;
    return s;
}

TEST(FurMeshes, LibraryModelsFillBothMeshes) {
    gAskedFor.clear();
    gBrokenFaces = false;
    FurMeshes m;
    ASSERT_TRUE(BuildFurMeshes(kFurryVxa, FakeLibrary(), &m));
    EXPECT_EQ(gAskedFor, std::vector<std::string>({"VXA"}));
    EXPECT_EQ(m.fur.VertexCount(), 4u);
    EXPECT_EQ(m.fur.TriangleCount(), 4u);
    EXPECT_EQ(m.skin.vertices, m.fur.vertices);
    EXPECT_EQ(m.skin.indices, m.fur.indices);
    EXPECT_EQ(std::memcmp(m.fur.vertices.data(), kTetraVertices, sizeof kTetraVertices), 0);

    // The board is asked for by its own name; this library lacks it.
    gAskedFor.clear();
    EXPECT_FALSE(BuildFurMeshes(kFurryHd6970, FakeLibrary(), &m));
    EXPECT_EQ(gAskedFor, std::vector<std::string>({"HD6970"}));
    EXPECT_TRUE(m.fur.empty());
    EXPECT_TRUE(m.skin.empty());

    // A library that is not loaded, or hands out a bad index.
    EXPECT_FALSE(BuildFurMeshes(kFurryVxa, AdataMeshSource{}, &m));
    gBrokenFaces = true;
    EXPECT_FALSE(BuildFurMeshes(kFurryVxa, FakeLibrary(), &m));
    gBrokenFaces = false;
    EXPECT_EQ(AdataMeshName(kFurryVxa), std::string("VXA"));
    EXPECT_EQ(AdataMeshName(kFurryHd6970), std::string("HD6970"));
    EXPECT_EQ(AdataMeshName(kFurryTorus), nullptr);
}

TEST(FurMeshes, GeneratedObjects) {
    FurMeshes m;
    gAskedFor.clear();
    ASSERT_TRUE(BuildFurMeshes(kFurryTorus, FakeLibrary(), &m));
    EXPECT_EQ(m.fur.TriangleCount(), 200u * 100u * 2u);
    EXPECT_EQ(m.skin.TriangleCount(), 20u * 10u * 2u);
    // The skin stays under the fur on the outside of the ring.
    float furMax = 0, skinMax = 0;
    for (size_t v = 0; v < m.fur.VertexCount(); ++v) furMax = std::max(furMax, m.fur.vertices[v * 8 + 1]);
    for (size_t v = 0; v < m.skin.VertexCount(); ++v) skinMax = std::max(skinMax, m.skin.vertices[v * 8 + 1]);
    EXPECT_FLOAT_EQ(furMax, 90.0f);
    EXPECT_FLOAT_EQ(skinMax, 88.0f);

    ASSERT_TRUE(BuildFurMeshes(kFurrySphere, FakeLibrary(), &m));
    EXPECT_EQ(m.fur.VertexCount(), 51u * 51u);
    EXPECT_EQ(m.skin.VertexCount(), 21u * 21u);
    EXPECT_FLOAT_EQ(m.fur.vertices[1], 70.0f);
    EXPECT_FLOAT_EQ(m.skin.vertices[1], 69.0f);

    ASSERT_TRUE(BuildFurMeshes(kFurryBox, FakeLibrary(), &m));
    EXPECT_EQ(m.fur.VertexCount(), 6u * 25u);
    EXPECT_EQ(m.skin.vertices, m.fur.vertices);
    // Normals were generated: a corner's leans out along the diagonal.
    for (size_t v = 0; v < m.fur.VertexCount(); ++v) {
        const float* p = &m.fur.vertices[v * 8];
        if (std::fabs(p[0]) == 45 && std::fabs(p[1]) == 45 && std::fabs(p[2]) == 45) {
            EXPECT_GT(p[3] * p[0], 0.0f);
            EXPECT_GT(p[4] * p[1], 0.0f);
            EXPECT_GT(p[5] * p[2], 0.0f);
        }
    }
    EXPECT_TRUE(gAskedFor.empty());  // generated objects never touch the library

    EXPECT_FALSE(BuildFurMeshes(6, FakeLibrary(), &m));
    EXPECT_TRUE(m.fur.empty());
}

// --------------------------------------------------------- camera, sway

TEST(FurCameraTest, AspectRule) {
    EXPECT_FLOAT_EQ(FurViewAspect(800, 600), 800.0f / 600.0f);
    EXPECT_FLOAT_EQ(FurViewAspect(300, 400), 0.75f);  // not an integer quotient
    EXPECT_EQ(FurViewAspect(640, 0), 1.0f);
    EXPECT_EQ(FurViewAspect(640, -2), 1.0f);
    EXPECT_EQ(FurViewAspect(0, 480), 1.0f);
    const FurCamera c = MakeFurCamera(kFurryTorus, 640, 0);
    EXPECT_EQ(c.aspect, 1.0f);
    for (float v : c.projection.m) EXPECT_TRUE(std::isfinite(v));
}

TEST(FurCameraTest, PerObjectEyeAndFieldOfView) {
    for (int32_t object : std::initializer_list<int32_t>{kFurryVxa, kFurryHd6970}) {
        const FurCamera c = MakeFurCamera(object, 1000, 500);
        EXPECT_EQ(c.fovYDegrees, 80.0f);
        EXPECT_NEAR(c.projection.at(1, 1), 1.0f / std::tan(40.0f * m3d::kPi / 180.0f), 1e-5f);
        EXPECT_NEAR(c.projection.at(0, 0), c.projection.at(1, 1) / 2.0f, 1e-5f);
        const m3d::Vec3 o = m3d::TransformPoint(c.view, m3d::Vec3{0, 0, 0});
        EXPECT_NEAR(o.x, 0.0f, 1e-4f);
        EXPECT_NEAR(o.y, 0.0f, 1e-4f);
        EXPECT_NEAR(o.z, -150.0f, 1e-3f);
    }
    for (int32_t object : std::initializer_list<int32_t>{kFurryTorus, kFurryBox, kFurrySphere, 9}) {
        const FurCamera c = MakeFurCamera(object, 1000, 500);
        EXPECT_EQ(c.fovYDegrees, 60.0f);
        EXPECT_EQ(c.eye.y, 20.0f);
        EXPECT_EQ(c.eye.z, 140.0f);
        const m3d::Vec3 o = m3d::TransformPoint(c.view, m3d::Vec3{0, 0, 0});
        EXPECT_NEAR(o.z, -std::sqrt(140.0f * 140.0f + 20.0f * 20.0f), 1e-3f);
        EXPECT_NEAR(o.y, 0.0f, 1e-4f);
    }
    // Near and far planes at 1 and 10000.
    const FurCamera c = MakeFurCamera(kFurryVxa, 4, 3);
    const m3d::Vec4 nearPoint = m3d::Transform(c.projection, m3d::Vec4{0, 0, -1, 1});
    const m3d::Vec4 farPoint = m3d::Transform(c.projection, m3d::Vec4{0, 0, -10000, 1});
    EXPECT_NEAR(nearPoint.z / nearPoint.w, -1.0f, 1e-5f);
    EXPECT_NEAR(farPoint.z / farPoint.w, 1.0f, 1e-3f);
}

TEST(FurSway, AnglesOverTime) {
    const float half = m3d::kPi / 2;
    SwayAngles s = FurSwayAngles(kFurryVxa, 0.0f);
    EXPECT_FLOAT_EQ(s.a, 0.0f);
    EXPECT_FLOAT_EQ(s.b, 20.0f);
    s = FurSwayAngles(kFurryVxa, half);
    EXPECT_FLOAT_EQ(s.a, 15.0f);
    EXPECT_NEAR(s.b, 0.0f, 1e-5f);
    for (int32_t object : std::initializer_list<int32_t>{kFurryTorus, kFurryBox, kFurrySphere}) {
        EXPECT_FLOAT_EQ(FurSwayAngles(object, 0.0f).b, 110.0f);
        EXPECT_NEAR(FurSwayAngles(object, m3d::kPi).b, 70.0f, 1e-4f);
        EXPECT_NEAR(FurSwayAngles(object, 3 * half).a, -15.0f, 1e-4f);
    }
    EXPECT_FLOAT_EQ(FurSwayAngles(kFurryHd6970, 0.0f).b, 20.0f);
    EXPECT_FLOAT_EQ(FurSwayAngles(9, 0.0f).b, 20.0f);
    // It swings back and forth within its bounds and never spins.
    for (float t = 0; t < 100; t += 0.37f) {
        const SwayAngles v = FurSwayAngles(kFurryVxa, t);
        EXPECT_LE(std::fabs(v.a), 15.0f + 1e-4f);
        EXPECT_LE(std::fabs(v.b), 20.0f + 1e-4f);
    }
}

TEST(FurSway, ModelMatrixIsTheRotationAboutXThenY) {
    for (float t : {0.0f, 0.7f, 2.0f, 5.5f}) {
        for (int32_t object : std::initializer_list<int32_t>{kFurryVxa, kFurryTorus}) {
            const SwayAngles s = FurSwayAngles(object, t);
            const m3d::Mat4 m = FurModelMatrix(object, t);
            const m3d::Mat4 expected = m3d::RotationX(s.a) * m3d::RotationY(s.b);
            for (int i = 0; i < 16; ++i) EXPECT_NEAR(m.m[i], expected.m[i], 1e-6f);
            EXPECT_EQ(m.m[12], 0.0f);  // no translation
            EXPECT_EQ(m.m[13], 0.0f);
            EXPECT_EQ(m.m[14], 0.0f);
        }
    }
    // At the middle of the swing the torus shows its hole: its axis (X)
    // points along the view's Z.
    const m3d::Vec3 axis = m3d::TransformDirection(FurModelMatrix(kFurryTorus, m3d::kPi / 2), m3d::Vec3{1, 0, 0});
    EXPECT_NEAR(std::fabs(axis.z), std::cos(15.0f * m3d::kPi / 180.0f), 1e-5f);
    EXPECT_NEAR(axis.x, 0.0f, 1e-5f);
}

TEST(FurSway, FullScreenMatrixCoversClipSpace) {
    const m3d::Mat4 m = FullScreenMatrix();
    const m3d::Vec3 a = m3d::TransformPoint(m, m3d::Vec3{0, 0, 0});
    const m3d::Vec3 b = m3d::TransformPoint(m, m3d::Vec3{1, 1, 1});
    EXPECT_EQ(a.x, -1.0f);
    EXPECT_EQ(a.y, -1.0f);
    EXPECT_EQ(b.x, 1.0f);
    EXPECT_EQ(b.y, 1.0f);
    EXPECT_EQ(b.z, -1.0f);
}

// --------------------------------------------------------------- lighting

TEST(FurLighting, ConstantsAndShading) {
    EXPECT_EQ(kFurLights[0].position.x, 100.0f);
    EXPECT_EQ(kFurLights[1].position.y, -20.0f);
    EXPECT_EQ(kFurLights[0].diffuse[0], 0.9f);
    EXPECT_EQ(kFurLights[1].diffuse[2], 1.0f);
    EXPECT_EQ(kFurMaterialAmbient[0], 0.8f);
    EXPECT_EQ(kFurMaterialDiffuse[3], 1.0f);

    // A surface facing light 0 head-on and light 1 not at all: ambient from
    // both (0.2 * 0.8 each) plus light 0's red diffuse 0.9 * 0.9.
    const m3d::Vec3 p{0, 0, 0};
    const m3d::Vec3 l0{0, 0, 10}, l1{0, 0, -10};
    const m3d::Vec3 white = ShadeTwoLights(m3d::Vec3{0, 0, 1}, p, m3d::Vec3{1, 1, 1}, l0, l1);
    EXPECT_NEAR(white.x, 0.32f + 0.81f, 1e-6f);
    EXPECT_NEAR(white.y, 0.32f, 1e-6f);
    EXPECT_NEAR(white.z, 0.32f, 1e-6f);
    // Turned to light 1: its blue-cyan diffuse, scaled by the texture.
    const m3d::Vec3 grey = ShadeTwoLights(m3d::Vec3{0, 0, -1}, p, m3d::Vec3{0.5f, 0.5f, 0.5f}, l0, l1);
    EXPECT_NEAR(grey.x, 0.16f, 1e-6f);
    EXPECT_NEAR(grey.y, (0.32f + 0.36f) * 0.5f, 1e-6f);
    EXPECT_NEAR(grey.z, (0.32f + 0.9f) * 0.5f, 1e-6f);

    EXPECT_EQ(HairFade(0.0f), 1.0f);
    EXPECT_EQ(HairFade(1.0f), 0.0f);
    EXPECT_FLOAT_EQ(HairFade(0.5f), 1.0f / 32.0f);
    EXPECT_NEAR(HairFade(0.9f), 1e-5f, 1e-9f);
}

// ----------------------------------------------------------------- shells

TEST(FurShells, EightyShellsOverTenTextures) {
    FurParams p;
    p.numShells = 80;
    p.numLayerTextures = 10;
    p.furLength = 4.0f;
    const std::vector<FurShell> s = FurShellSchedule(p);
    ASSERT_EQ(s.size(), 80u);
    for (int i = 0; i <= 7; ++i) EXPECT_EQ(s[i].texture, 0) << i;
    for (int i = 8; i <= 15; ++i) EXPECT_EQ(s[i].texture, 1) << i;
    EXPECT_EQ(s[79].texture, 9);
    EXPECT_FLOAT_EQ(s[0].layer, 1.0f / 80.0f);
    EXPECT_FLOAT_EQ(s[0].furLength, 4.0f / 80.0f);
    EXPECT_EQ(s[79].layer, 1.0f);
    EXPECT_EQ(s[79].furLength, 4.0f);
    // Binds exactly where the texture changes: shells 0, 8, 16, ... 72.
    for (int i = 0; i < 80; ++i) EXPECT_EQ(s[i].bind, i % 8 == 0) << i;
    EXPECT_EQ(FurTextureBindsPerFrame(p), 10);
    for (int i = 0; i < 80; ++i) EXPECT_EQ(s[i].index, i);
}

TEST(FurShells, BindsPerFrameForEveryTableRow) {
    for (int32_t object : std::initializer_list<int32_t>{kFurryVxa, kFurryTorus, kFurryBox, kFurrySphere, kFurryHd6970, 0}) {
        for (bool xtreme : {false, true}) {
            const FurParams p = SelectFurParams(object, xtreme, false, FurParams{});
            EXPECT_EQ(FurTextureBindsPerFrame(p), p.numLayerTextures) << object;
            const std::vector<FurShell> s = FurShellSchedule(p);
            // Layers rise strictly and the textures never go back.
            for (size_t i = 1; i < s.size(); ++i) {
                EXPECT_GT(s[i].layer, s[i - 1].layer);
                EXPECT_GE(s[i].texture, s[i - 1].texture);
                EXPECT_LT(s[i].texture, p.numLayerTextures);
            }
            EXPECT_EQ(s.back().furLength, p.furLength);
        }
    }
}

TEST(FurShells, FewerShellsThanTextures) {
    FurParams p;
    p.numShells = 4;
    p.numLayerTextures = 10;
    const std::vector<FurShell> s = FurShellSchedule(p);
    EXPECT_EQ(s[0].texture, 0);
    EXPECT_EQ(s[1].texture, 2);
    EXPECT_EQ(s[3].texture, 7);
    EXPECT_EQ(FurTextureBindsPerFrame(p), 4);
    p.numShells = 0;
    EXPECT_TRUE(FurShellSchedule(p).empty());
    EXPECT_EQ(FurTextureBindsPerFrame(p), 0);
}

// ----------------------------------------------------------- custom images

TEST(FurCustomImages, SizeRules) {
    EXPECT_TRUE(CheckCustomImageSize(CustomImageKind::kFur, 1024, 1024).accepted());
    EXPECT_TRUE(CheckCustomImageSize(CustomImageKind::kBackground, 256, 256).accepted());

    CustomImageCheck c = CheckCustomImageSize(CustomImageKind::kFur, 1025, 1024);
    ASSERT_EQ(c.messageCount, 1);
    EXPECT_STREQ(c.messages[0],
                 "Custom fur texture size must be in the range [256px to 1024px] for the width and height. "
                 "Loading failed.");

    c = CheckCustomImageSize(CustomImageKind::kFur, 255, 300);
    EXPECT_FALSE(c.accepted());
    ASSERT_EQ(c.messageCount, 1);
    // Both sides out: the text twice.
    c = CheckCustomImageSize(CustomImageKind::kBackground, 255, 2000);
    ASSERT_EQ(c.messageCount, 2);
    EXPECT_STREQ(c.messages[0], c.messages[1]);

    // Only the height out of range: one message, the background's text.
    c = CheckCustomImageSize(CustomImageKind::kBackground, 300, 2000);
    ASSERT_EQ(c.messageCount, 1);
    EXPECT_STREQ(c.messages[0],
                 "Custom bkg texture size must be in the range [256px to 1024px] for the width and height. "
                 "Loading failed.");
    EXPECT_EQ(CheckCustomImageSize(CustomImageKind::kFur, 300, 255).messageCount, 1);
    EXPECT_EQ(CheckCustomImageSize(CustomImageKind::kFur, 0, 0).messageCount, 2);
}

// ---------------------------------------------------------------- set-up

TEST(FurSetUp, BenchmarkStageForcesTheLettering) {
    DotSetStore store;
    FurParams record;
    record.radialBlurSamples = 12;
    gAskedFor.clear();
    gBrokenFaces = false;
    FurSceneRequest r;
    r.furryObject = kFurryTorus;
    r.amarkFurStage = true;
    r.width = 640;
    r.height = 480;
    r.adata = FakeLibrary();
    const FurScene s = SetUpFurScene(r, &record, &store);
    EXPECT_EQ(s.furryObject, kFurryVxa);
    EXPECT_TRUE(s.hasMeshes);
    EXPECT_EQ(gAskedFor, std::vector<std::string>({"VXA"}));
    EXPECT_EQ(s.params.numShells, 80);
    EXPECT_EQ(s.params.radialBlurSamples, 12);
    EXPECT_EQ(record.numShells, 80);
    ASSERT_NE(s.params.layerTextures, nullptr);
    EXPECT_EQ(s.params.layerTextures, store.Find(DotSetKind::kUniform));
    EXPECT_EQ(s.params.layerTextures->numLayers(), 10);
    EXPECT_EQ(s.camera.fovYDegrees, 80.0f);
    EXPECT_FLOAT_EQ(s.camera.aspect, 640.0f / 480.0f);
    EXPECT_EQ(s.width, 640);
}

TEST(FurSetUp, UnknownObjectGetsGradedSetAndNoMesh) {
    DotSetStore store;
    FurParams record;
    FurSceneRequest r;
    r.furryObject = 6;
    r.width = 300;
    r.height = 0;
    const FurScene s = SetUpFurScene(r, &record, &store);
    EXPECT_FALSE(s.hasMeshes);
    EXPECT_EQ(s.params.numShells, 160);
    ASSERT_NE(s.params.layerTextures, nullptr);
    EXPECT_EQ(s.params.layerTextures->kind, DotSetKind::kGraded);
    EXPECT_EQ(s.params.layerTextureSize, 256);
    EXPECT_EQ(s.camera.aspect, 1.0f);
    EXPECT_EQ(store.Find(DotSetKind::kUniform), nullptr);
}

}  // namespace
