#include "render/mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <tuple>

#include "render/math3d.h"

using m3d::Vec3;

namespace {

constexpr double kPi = 3.14159265358979323846;

Vec3 Position(const Mesh& m, size_t v) {
    const float* p = &m.vertices[v * kMeshFloatsPerVertex];
    return {p[0], p[1], p[2]};
}

Vec3 Normal(const Mesh& m, size_t v) {
    const float* p = &m.vertices[v * kMeshFloatsPerVertex + kMeshNormalOffset];
    return {p[0], p[1], p[2]};
}

// Welds vertices with exactly the same position (the generators promise
// bit-identical copies along seams, so no tolerance is allowed).
std::vector<uint32_t> Weld(const Mesh& m) {
    std::map<std::tuple<float, float, float>, uint32_t> ids;
    std::vector<uint32_t> weld(m.VertexCount());
    for (size_t v = 0; v < m.VertexCount(); ++v) {
        const Vec3 p = Position(m, v);
        weld[v] = ids.emplace(std::make_tuple(p.x + 0.0f, p.y + 0.0f, p.z + 0.0f),
                              static_cast<uint32_t>(ids.size()))
                      .first->second;
    }
    return weld;
}

// A closed, consistently wound surface: after welding, every directed edge
// occurs exactly once and its reverse exactly once, and no triangle has two
// corners at one point.
::testing::AssertionResult ClosedAndConsistent(const Mesh& m) {
    const std::vector<uint32_t> w = Weld(m);
    std::map<std::pair<uint32_t, uint32_t>, int> directed;
    for (size_t t = 0; t < m.TriangleCount(); ++t) {
        const uint32_t c[3] = {w[m.indices[3 * t]], w[m.indices[3 * t + 1]], w[m.indices[3 * t + 2]]};
        if (c[0] == c[1] || c[1] == c[2] || c[0] == c[2])
            return ::testing::AssertionFailure() << "degenerate triangle " << t;
        for (int e = 0; e < 3; ++e) ++directed[{c[e], c[(e + 1) % 3]}];
    }
    for (const auto& [edge, count] : directed) {
        if (count != 1) return ::testing::AssertionFailure() << "edge used " << count << " times the same way";
        const auto reverse = directed.find({edge.second, edge.first});
        if (reverse == directed.end()) return ::testing::AssertionFailure() << "open edge";
    }
    return ::testing::AssertionSuccess();
}

// Positive for a closed surface wound counter-clockwise seen from outside.
double SignedVolume(const Mesh& m) {
    double v = 0;
    for (size_t t = 0; t < m.TriangleCount(); ++t) {
        const Vec3 a = Position(m, m.indices[3 * t]);
        const Vec3 b = Position(m, m.indices[3 * t + 1]);
        const Vec3 c = Position(m, m.indices[3 * t + 2]);
        v += static_cast<double>(m3d::Dot(a, m3d::Cross(b, c)));
    }
    return v / 6.0;
}

::testing::AssertionResult UnitNormalsAndUvsInRange(const Mesh& m) {
    for (size_t v = 0; v < m.VertexCount(); ++v) {
        const float len = m3d::Length(Normal(m, v));
        if (std::fabs(len - 1.0f) > 1e-5f) return ::testing::AssertionFailure() << "normal length " << len;
        const float u = m.vertices[v * kMeshFloatsPerVertex + kMeshUvOffset];
        const float vv = m.vertices[v * kMeshFloatsPerVertex + kMeshUvOffset + 1];
        if (u < 0 || u > 1 || vv < 0 || vv > 1) return ::testing::AssertionFailure() << "uv " << u << "," << vv;
    }
    return ::testing::AssertionSuccess();
}

::testing::AssertionResult IndicesInRange(const Mesh& m) {
    if (m.indices.size() % 3 != 0) return ::testing::AssertionFailure() << "index count not a multiple of 3";
    for (uint32_t i : m.indices)
        if (i >= m.VertexCount()) return ::testing::AssertionFailure() << "index " << i;
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(MeshTorus, SizesOfTheFurAndSkinTori) {
    const Mesh fur = MakeTorus(60, 30, 200);
    EXPECT_EQ(fur.VertexCount(), 201u * 101u);  // 100 tube sides, seams split
    EXPECT_EQ(fur.TriangleCount(), 200u * 100u * 2u);
    const Mesh skin = MakeTorus(58, 30, 20);
    EXPECT_EQ(skin.VertexCount(), 21u * 11u);
    EXPECT_EQ(skin.TriangleCount(), 20u * 10u * 2u);
    // Few segments still get a round tube.
    EXPECT_EQ(MakeTorus(10, 2, 6).VertexCount(), 7u * 9u);
}

TEST(MeshTorus, ClosedOutwardAndUnit) {
    const Mesh m = MakeTorus(60, 30, 40);
    ASSERT_TRUE(IndicesInRange(m));
    EXPECT_TRUE(ClosedAndConsistent(m));
    EXPECT_TRUE(UnitNormalsAndUvsInRange(m));
    // Volume of a torus: 2 pi^2 R r^2; the faceted one is a little smaller.
    const double exact = 2.0 * kPi * kPi * 60.0 * 30.0 * 30.0;
    const double v = SignedVolume(m);
    EXPECT_GT(v, 0.95 * exact);
    EXPECT_LT(v, exact);
    // Each normal points from the middle of the tube to the vertex, and the
    // hole's axis is X: the ring's centre line lies in the YZ plane.
    for (size_t i = 0; i < m.VertexCount(); ++i) {
        const Vec3 p = Position(m, i);
        const float ring = std::sqrt(p.y * p.y + p.z * p.z);
        const Vec3 centre{0, p.y * 60.0f / ring, p.z * 60.0f / ring};
        const Vec3 expected = m3d::Normalize(p - centre);
        EXPECT_GT(m3d::Dot(expected, Normal(m, i)), 0.9999f) << i;
        EXPECT_NEAR(m3d::Length(p - centre), 30.0f, 1e-3f);
    }
}

TEST(MeshTorus, UvWrapsOncePerTurn) {
    const Mesh m = MakeTorus(60, 30, 20);
    // The first and last ring copies share positions but carry u 0 and 1.
    const size_t row = 11;
    const size_t last = 20 * row;
    for (size_t j = 0; j < row; ++j) {
        EXPECT_EQ(m.vertices[j * 8 + 6], 0.0f);
        EXPECT_EQ(m.vertices[(last + j) * 8 + 6], 1.0f);
        EXPECT_EQ(std::memcmp(&m.vertices[j * 8], &m.vertices[(last + j) * 8], 3 * sizeof(float)), 0);
    }
}

TEST(MeshTorus, RejectsImpossibleShapes) {
    EXPECT_TRUE(MakeTorus(30, 60, 20).empty());  // tube through itself
    EXPECT_TRUE(MakeTorus(0, 1, 20).empty());
    EXPECT_TRUE(MakeTorus(5, 1, 2).empty());
}

TEST(MeshSphere, ClosedOutwardAndUnit) {
    for (const auto& [slices, stacks] : {std::pair{50, 50}, std::pair{20, 20}, std::pair{3, 2}, std::pair{7, 5}}) {
        SCOPED_TRACE(testing::Message() << slices << "x" << stacks);
        const Mesh m = MakeSphere(70, slices, stacks);
        ASSERT_TRUE(IndicesInRange(m));
        EXPECT_EQ(m.TriangleCount(), static_cast<size_t>(slices) * (2 * stacks - 2));
        EXPECT_TRUE(ClosedAndConsistent(m));
        EXPECT_TRUE(UnitNormalsAndUvsInRange(m));
        EXPECT_GT(SignedVolume(m), 0.0);
        for (size_t i = 0; i < m.VertexCount(); ++i) {
            const Vec3 p = Position(m, i);
            EXPECT_NEAR(m3d::Length(p), 70.0f, 1e-3f);
            EXPECT_GT(m3d::Dot(m3d::Normalize(p), Normal(m, i)), 0.9999f);
        }
    }
    const double exact = 4.0 / 3.0 * kPi * 70.0 * 70.0 * 70.0;
    const double v = SignedVolume(MakeSphere(70, 50, 50));
    EXPECT_GT(v, 0.98 * exact);
    EXPECT_LT(v, exact);
}

TEST(MeshSphere, PolesOnY) {
    const Mesh m = MakeSphere(69, 20, 20);
    const Vec3 north = Position(m, 0);
    const Vec3 south = Position(m, m.VertexCount() - 1);
    EXPECT_EQ(north.y, 69.0f);
    EXPECT_EQ(south.y, -69.0f);
    EXPECT_EQ(north.x, 0.0f);
    EXPECT_EQ(south.z, 0.0f);
    EXPECT_TRUE(MakeSphere(1, 2, 5).empty());
    EXPECT_TRUE(MakeSphere(-1, 8, 5).empty());
}

TEST(MeshBox, ClosedWithFlatFaceNormals) {
    const Mesh m = MakeBox(90, 60, 30, 4);
    ASSERT_TRUE(IndicesInRange(m));
    EXPECT_EQ(m.VertexCount(), 6u * 25u);
    EXPECT_EQ(m.TriangleCount(), 6u * 16u * 2u);
    EXPECT_TRUE(ClosedAndConsistent(m));
    EXPECT_TRUE(UnitNormalsAndUvsInRange(m));
    EXPECT_NEAR(SignedVolume(m), 90.0 * 60.0 * 30.0, 1.0);
    // Each vertex's flat normal is the axis of the face it lies on.
    for (size_t i = 0; i < m.VertexCount(); ++i) {
        const Vec3 p = Position(m, i), n = Normal(m, i);
        const float onFace = std::fabs(n.x) * (std::fabs(p.x) - 45) + std::fabs(n.y) * (std::fabs(p.y) - 30) +
                             std::fabs(n.z) * (std::fabs(p.z) - 15);
        EXPECT_EQ(onFace, 0.0f) << i;
        EXPECT_GT(m3d::Dot(n, p), 0.0f);
    }
}

TEST(MeshBox, RejectsBadSizes) {
    EXPECT_TRUE(MakeBox(1, 1, 1, 0).empty());
    EXPECT_TRUE(MakeBox(1, 0, 1, 4).empty());
}

TEST(MeshNormals, BoxGetsSmoothOutwardNormalsSharedAtEdges) {
    Mesh m = MakeBox(90, 90, 90, 4);
    GenerateNormals(m);
    EXPECT_TRUE(UnitNormalsAndUvsInRange(m));
    const std::vector<uint32_t> w = Weld(m);
    std::map<uint32_t, Vec3> byPoint;
    for (size_t i = 0; i < m.VertexCount(); ++i) {
        const Vec3 p = Position(m, i), n = Normal(m, i);
        EXPECT_GT(m3d::Dot(n, p), 0.0f) << i;
        // All copies of a point have one normal, so shells stay closed.
        const auto it = byPoint.emplace(w[i], n).first;
        EXPECT_EQ(it->second.x, n.x);
        EXPECT_EQ(it->second.y, n.y);
        EXPECT_EQ(it->second.z, n.z);
        // Inside a face the normal is the face's; on an edge it leans out.
        const int onFaces = (std::fabs(p.x) == 45) + (std::fabs(p.y) == 45) + (std::fabs(p.z) == 45);
        const float manhattan = std::fabs(n.x) + std::fabs(n.y) + std::fabs(n.z);
        if (onFaces == 1) {
            EXPECT_NEAR(manhattan, 1.0f, 1e-6f);
        } else {
            EXPECT_GT(manhattan, 1.3f);
        }
    }
}

TEST(MeshNormals, WeightedByArea) {
    // Two triangles meeting at the origin: one in the XY plane (normal +Z)
    // with area 2, one in the YZ plane (normal +X) with area 0.5.
    Mesh m;
    const float v[] = {0, 0, 0, 0, 0, 0, 0, 0,   // 0: shared corner
                       2, 0, 0, 0, 0, 0, 0, 0,   // 1
                       0, 2, 0, 0, 0, 0, 0, 0,   // 2
                       0, 1, 0, 0, 0, 0, 0, 0,   // 3
                       0, 0, 1, 0, 0, 0, 0, 0};  // 4
    m.vertices.assign(v, v + sizeof v / sizeof v[0]);
    m.indices = {0, 1, 2, 0, 3, 4};
    GenerateNormals(m);
    const Vec3 n = Normal(m, 0);
    const Vec3 expected = m3d::Normalize(Vec3{0.5f, 0, 2});
    EXPECT_NEAR(n.x, expected.x, 1e-6f);
    EXPECT_NEAR(n.z, expected.z, 1e-6f);
    EXPECT_NEAR(Normal(m, 1).z, 1.0f, 1e-6f);
    EXPECT_NEAR(Normal(m, 4).x, 1.0f, 1e-6f);
}

TEST(MeshNormals, RecoverTheSphereAndTorusNormals) {
    for (Mesh m : {MakeSphere(70, 24, 16), MakeTorus(60, 30, 40)}) {
        const Mesh original = m;
        // Scramble them first, so the test sees fresh ones.
        for (size_t i = 0; i < m.VertexCount(); ++i)
            for (int c = 0; c < 3; ++c) m.vertices[i * 8 + 3 + c] = c == 0 ? -1.0f : 0.0f;
        GenerateNormals(m);
        for (size_t i = 0; i < m.VertexCount(); ++i)
            EXPECT_GT(m3d::Dot(Normal(m, i), Normal(original, i)), 0.98f) << i;
    }
}

TEST(MeshFromArrays, CopiesAndValidates) {
    const float v[] = {0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 0, 1};
    const uint32_t f[] = {0, 1, 2};
    const Mesh m = MeshFromArrays(v, 3, f, 1);
    ASSERT_EQ(m.VertexCount(), 3u);
    EXPECT_EQ(std::memcmp(m.vertices.data(), v, sizeof v), 0);
    EXPECT_EQ(m.indices, std::vector<uint32_t>({0, 1, 2}));
    const uint32_t bad[] = {0, 1, 3};
    EXPECT_TRUE(MeshFromArrays(v, 3, bad, 1).empty());
    EXPECT_TRUE(MeshFromArrays(nullptr, 3, f, 1).empty());
    EXPECT_TRUE(MeshFromArrays(v, 3, nullptr, 1).empty());
    EXPECT_TRUE(MeshFromArrays(v, 0, f, 1).empty());
    EXPECT_TRUE(MeshFromArrays(v, 3, f, 0).empty());
}

TEST(Icosahedron, TwelveUnitCornersAndTwentyTriangles) {
    std::vector<float> p;
    std::vector<uint32_t> idx;
    Icosahedron(&p, &idx);
    ASSERT_EQ(p.size(), 36u);
    for (size_t i = 0; i < 12; ++i)
        EXPECT_NEAR(std::sqrt(p[i * 3] * p[i * 3] + p[i * 3 + 1] * p[i * 3 + 1] + p[i * 3 + 2] * p[i * 3 + 2]), 1.0, 1e-6);
    ASSERT_EQ(idx.size(), 60u);
    for (uint32_t v : idx) EXPECT_LT(v, 12u);
}
