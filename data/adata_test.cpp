// Loads the built mesh data library the way the program does (by file name,
// at run time) and checks both models through the six exported functions.
#include "data/adata.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace {

struct Library {
    platform::LibHandle handle = nullptr;
    std::string error;
    AdataGetSizeFn getSize = nullptr;
    AdataGetDataFn getData = nullptr;
    AdataGetNumVerticesFn numVertices = nullptr;
    AdataGetNumFacesFn numFaces = nullptr;
    AdataGetVerticesFn vertices = nullptr;
    AdataGetFacesFn faces = nullptr;
};

// Opened once for the whole run: from the working directory (where ctest
// starts the tests), else from beside the test program.
const Library& Lib() {
    static const Library lib = [] {
        Library l;
        const std::string file = platform::LibFileName(kAdataLibraryBase);
        for (const std::string& path :
             {"./" + file, platform::FolderOf(platform::ExecutablePath()) + file}) {
            if ((l.handle = platform::LoadLib(path.c_str()))) break;
        }
        if (!l.handle) {
            l.error = "cannot load " + file + " from the working directory or the test's folder";
            return l;
        }
        auto sym = [&](AdataSymbol s) { return platform::LibSymbol(l.handle, kAdataSymbolNames[s]); };
        l.getSize = reinterpret_cast<AdataGetSizeFn>(sym(kAdataGetSize));
        l.getData = reinterpret_cast<AdataGetDataFn>(sym(kAdataGetData));
        l.numVertices = reinterpret_cast<AdataGetNumVerticesFn>(sym(kAdataMeshGetNumVertices));
        l.numFaces = reinterpret_cast<AdataGetNumFacesFn>(sym(kAdataMeshGetNumFaces));
        l.vertices = reinterpret_cast<AdataGetVerticesFn>(sym(kAdataMeshGetVertices));
        l.faces = reinterpret_cast<AdataGetFacesFn>(sym(kAdataMeshGetFaces));
        if (!l.getSize || !l.getData || !l.numVertices || !l.numFaces || !l.vertices || !l.faces)
            l.error = file + " lacks one of the six exported functions";
        return l;
    }();
    return lib;
}

#define REQUIRE_LIBRARY() ASSERT_TRUE(Lib().error.empty()) << Lib().error

using Vec3 = std::array<double, 3>;

Vec3 Sub(const Vec3& a, const Vec3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Vec3 Cross(const Vec3& a, const Vec3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
double Dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
double Length(const Vec3& a) { return std::sqrt(Dot(a, a)); }

struct MeshView {
    int numVertices = 0;
    int numFaces = 0;
    const float* vertices = nullptr;
    const unsigned int* faces = nullptr;

    Vec3 Position(unsigned i) const {
        const float* v = vertices + size_t(i) * kAdataFloatsPerVertex + kAdataPositionOffset;
        return {v[0], v[1], v[2]};
    }
    Vec3 Normal(unsigned i) const {
        const float* v = vertices + size_t(i) * kAdataFloatsPerVertex + kAdataNormalOffset;
        return {v[0], v[1], v[2]};
    }
    unsigned Index(int face, int corner) const { return faces[face * kAdataIndicesPerFace + corner]; }
};

MeshView View(const char* name) {
    MeshView m;
    m.numVertices = Lib().numVertices(name);
    m.numFaces = Lib().numFaces(name);
    m.vertices = Lib().vertices(name);
    m.faces = Lib().faces(name);
    return m;
}

// Vertex ids after merging vertices at bit-identical positions: hard edges
// split vertices, so closure is a property of the welded surface.
std::vector<int> Weld(const MeshView& m) {
    std::map<std::array<float, 3>, int> ids;
    std::vector<int> weld(m.numVertices);
    for (int i = 0; i < m.numVertices; ++i) {
        const float* p = m.vertices + size_t(i) * kAdataFloatsPerVertex;
        weld[i] = ids.emplace(std::array<float, 3>{p[0], p[1], p[2]}, int(ids.size())).first->second;
    }
    return weld;
}

// Connected pieces of the welded surface; each is one solid.
std::vector<int> Components(const MeshView& m, const std::vector<int>& weld, int* count) {
    std::vector<int> parent(m.numVertices);
    std::iota(parent.begin(), parent.end(), 0);
    auto find = [&](int x) {
        while (parent[x] != x) x = parent[x] = parent[parent[x]];
        return x;
    };
    std::vector<int> first(m.numVertices, -1);  // first vertex of each weld id
    for (int i = 0; i < m.numVertices; ++i) {
        if (first[weld[i]] < 0) first[weld[i]] = i;
        parent[find(i)] = find(first[weld[i]]);
    }
    for (int f = 0; f < m.numFaces; ++f)
        for (int c = 1; c < 3; ++c) parent[find(int(m.Index(f, c)))] = find(int(m.Index(f, 0)));
    std::map<int, int> label;
    std::vector<int> faceComponent(m.numFaces);
    for (int f = 0; f < m.numFaces; ++f)
        faceComponent[f] = label.emplace(find(int(m.Index(f, 0))), int(label.size())).first->second;
    *count = int(label.size());
    return faceComponent;
}

// ------------------------------------------------------------------ exports

TEST(AdataExports, AllSixFunctionsResolveUnderThePlatformNames) {
    REQUIRE_LIBRARY();
    for (const char* name : kAdataSymbolNames)
        EXPECT_NE(platform::LibSymbol(Lib().handle, name), nullptr) << name;
}

TEST(AdataExports, NothingElseLeaks) {
    REQUIRE_LIBRARY();
    // The embedded file's labels and the helpers stay private.
    EXPECT_EQ(platform::LibSymbol(Lib().handle, "adata_blob_begin"), nullptr);
    EXPECT_EQ(platform::LibSymbol(Lib().handle, "adata_blob_end"), nullptr);
#ifdef _WIN32
    // Only the decorated names are exported, not the plain C ones.
    EXPECT_EQ(platform::LibSymbol(Lib().handle, "VXA_AData_GetSize"), nullptr);
    EXPECT_EQ(platform::LibSymbol(Lib().handle, "VXA_AData_Mesh_GetFaces"), nullptr);
#endif
}

// ------------------------------------------------------------------- lookup

TEST(AdataLookup, UnknownNamesGiveNothing) {
    REQUIRE_LIBRARY();
    const std::string longName(300, 'V');
    const char* names[] = {nullptr, "", "vxa", "hd6970", "VXA ", " VXA", "VX", "VXAA", "HD697",
                           "HD6970\n", "HD6970HD6970HD69", longName.c_str()};
    for (const char* name : names) {
        SCOPED_TRACE(name ? name : "(null)");
        EXPECT_EQ(Lib().getSize(name), 0);
        EXPECT_EQ(Lib().getData(name), nullptr);
        EXPECT_EQ(Lib().numVertices(name), 0);
        EXPECT_EQ(Lib().numFaces(name), 0);
        EXPECT_EQ(Lib().vertices(name), nullptr);
        EXPECT_EQ(Lib().faces(name), nullptr);
    }
}

TEST(AdataLookup, TheTwoModelsAreDistinctAndStable) {
    REQUIRE_LIBRARY();
    const void* letters = Lib().getData(kAdataMeshLettering);
    const void* board = Lib().getData(kAdataMeshBoard);
    ASSERT_NE(letters, nullptr);
    ASSERT_NE(board, nullptr);
    EXPECT_NE(letters, board);
    // A name held in another buffer finds the same model: names are compared
    // by content, and the pointers do not move between calls.
    char copy[8];
    std::strcpy(copy, "HD6970");
    EXPECT_EQ(Lib().getData(copy), board);
    EXPECT_EQ(Lib().faces(copy), Lib().faces(kAdataMeshBoard));
}

// ------------------------------------------------------------------- models

class AdataMesh : public ::testing::TestWithParam<const char*> {};

TEST_P(AdataMesh, CountsAndBlobAgree) {
    REQUIRE_LIBRARY();
    const char* name = GetParam();
    const MeshView m = View(name);
    // Heavy enough to look solid, light enough for ~100 fur shells in software.
    EXPECT_GE(m.numFaces, 2000);
    EXPECT_LE(m.numFaces, 40000);
    EXPECT_GE(m.numVertices, 4);
    EXPECT_LE(m.numVertices, 3 * m.numFaces);
    const auto* blob = static_cast<const unsigned char*>(Lib().getData(name));
    ASSERT_NE(blob, nullptr);
    EXPECT_EQ(Lib().getSize(name),
              m.numVertices * kAdataFloatsPerVertex * int(sizeof(float)) +
                  m.numFaces * kAdataIndicesPerFace * int(sizeof(unsigned int)));
    EXPECT_EQ(static_cast<const void*>(m.vertices), static_cast<const void*>(blob));
    EXPECT_EQ(static_cast<const void*>(m.faces),
              static_cast<const void*>(blob + size_t(m.numVertices) * sizeof(AdataVertex)));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(blob) % alignof(float), 0u);
}

TEST_P(AdataMesh, VerticesAreFiniteWithUnitNormalsAndSaneUvs) {
    REQUIRE_LIBRARY();
    const MeshView m = View(GetParam());
    ASSERT_NE(m.vertices, nullptr);
    float uMin = 1e9f, uMax = -1e9f, vMin = 1e9f, vMax = -1e9f;
    int bad = 0;
    for (int i = 0; i < m.numVertices && bad < 5; ++i) {
        const float* v = m.vertices + size_t(i) * kAdataFloatsPerVertex;
        for (int k = 0; k < kAdataFloatsPerVertex; ++k)
            if (!std::isfinite(v[k])) {
                ADD_FAILURE() << "vertex " << i << " component " << k << " is not finite";
                ++bad;
            }
        const double len = Length(m.Normal(i));
        if (std::fabs(len - 1.0) > 1e-4) {
            ADD_FAILURE() << "normal of vertex " << i << " has length " << len;
            ++bad;
        }
        const float u = v[kAdataUvOffset], w = v[kAdataUvOffset + 1];
        if (u < -1e-4f || u > 1.0001f || w < -1e-4f || w > 1.0001f) {
            ADD_FAILURE() << "vertex " << i << " uv (" << u << ", " << w << ") outside [0,1]";
            ++bad;
        }
        uMin = std::min(uMin, u), uMax = std::max(uMax, u);
        vMin = std::min(vMin, w), vMax = std::max(vMax, w);
    }
    // The fur texture must be spread over the model, not squeezed into a corner.
    EXPECT_GT(uMax - uMin, 0.5f);
    EXPECT_GT(vMax - vMin, 0.3f);
}

TEST_P(AdataMesh, FacesUseValidVerticesAndHaveArea) {
    REQUIRE_LIBRARY();
    const MeshView m = View(GetParam());
    ASSERT_NE(m.faces, nullptr);
    int bad = 0;
    for (int f = 0; f < m.numFaces && bad < 5; ++f) {
        const unsigned a = m.Index(f, 0), b = m.Index(f, 1), c = m.Index(f, 2);
        if (a >= unsigned(m.numVertices) || b >= unsigned(m.numVertices) ||
            c >= unsigned(m.numVertices)) {
            ADD_FAILURE() << "face " << f << " indexes past the vertices";
            ++bad;
            continue;
        }
        const double area =
            Length(Cross(Sub(m.Position(b), m.Position(a)), Sub(m.Position(c), m.Position(a)))) / 2;
        if (a == b || b == c || a == c || area < 1e-4) {
            ADD_FAILURE() << "face " << f << " is degenerate (area " << area << ")";
            ++bad;
        }
    }
}

TEST_P(AdataMesh, CentredAndSizedForTheDefaultView) {
    REQUIRE_LIBRARY();
    const MeshView m = View(GetParam());
    ASSERT_GT(m.numVertices, 0);
    Vec3 lo{1e9, 1e9, 1e9}, hi{-1e9, -1e9, -1e9};
    for (int i = 0; i < m.numVertices; ++i) {
        const Vec3 p = m.Position(i);
        for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], p[a]), hi[a] = std::max(hi[a], p[a]);
    }
    const double extent = std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
    EXPECT_GE(extent, 100.0);
    EXPECT_LE(extent, 150.0);
    for (int a = 0; a < 3; ++a) EXPECT_NEAR((lo[a] + hi[a]) / 2, 0.0, 0.01 * extent) << "axis " << a;
    // Everything inside the view of a camera at (0,0,150) looking down -z with
    // an 80-degree vertical field on a 4:3 screen.
    const double tanHalf = std::tan(40.0 * 3.14159265358979 / 180.0);
    for (int i = 0; i < m.numVertices; ++i) {
        const Vec3 p = m.Position(i);
        const double depth = 150.0 - p[2];
        ASSERT_GT(depth, 1.0) << "vertex " << i << " behind the camera";
        ASSERT_LT(std::fabs(p[1]) / depth, tanHalf) << "vertex " << i << " above/below the view";
        ASSERT_LT(std::fabs(p[0]) / depth, tanHalf * 4 / 3) << "vertex " << i << " beside the view";
    }
}

TEST_P(AdataMesh, SurfaceIsClosed) {
    REQUIRE_LIBRARY();
    const MeshView m = View(GetParam());
    ASSERT_GT(m.numFaces, 0);
    const std::vector<int> weld = Weld(m);
    // A closed, consistently wound surface crosses every edge once in each
    // direction (solids that touch may share an edge, in balanced pairs).
    std::map<std::pair<int, int>, int> directed;
    for (int f = 0; f < m.numFaces; ++f)
        for (int c = 0; c < 3; ++c) {
            const int a = weld[m.Index(f, c)], b = weld[m.Index(f, (c + 1) % 3)];
            ASSERT_NE(a, b) << "face " << f << " collapses when welded";
            ++directed[{a, b}];
        }
    int open = 0;
    for (const auto& [edge, count] : directed) {
        const auto back = directed.find({edge.second, edge.first});
        if (back == directed.end() || back->second != count) ++open;
    }
    EXPECT_EQ(open, 0) << "edges without a matching opposite edge";
}

TEST_P(AdataMesh, EverySolidFacesOutward) {
    REQUIRE_LIBRARY();
    const MeshView m = View(GetParam());
    ASSERT_GT(m.numFaces, 0);
    int pieces = 0;
    const std::vector<int> component = Components(m, Weld(m), &pieces);
    std::vector<double> volume(pieces, 0.0);
    int against = 0;
    for (int f = 0; f < m.numFaces; ++f) {
        const unsigned idx[3] = {m.Index(f, 0), m.Index(f, 1), m.Index(f, 2)};
        const Vec3 p0 = m.Position(idx[0]), p1 = m.Position(idx[1]), p2 = m.Position(idx[2]);
        volume[component[f]] += Dot(p0, Cross(p1, p2)) / 6;
        // The winding must agree with the normals the renderer lights with.
        const Vec3 n = Cross(Sub(p1, p0), Sub(p2, p0));
        const double len = Length(n);
        for (unsigned i : idx)
            if (len > 0 && Dot(n, m.Normal(i)) / len < 0.7) ++against;
    }
    EXPECT_EQ(against, 0) << "triangle corners whose normal disagrees with the winding";
    for (int c = 0; c < pieces; ++c) EXPECT_GT(volume[c], 1.0) << "solid " << c << " is inside out";
    if (std::strcmp(GetParam(), kAdataMeshLettering) == 0)
        EXPECT_EQ(pieces, 3) << "one solid per letter";
    else
        EXPECT_GE(pieces, 5) << "board, shroud, fan, bracket...";
}

INSTANTIATE_TEST_SUITE_P(BothModels, AdataMesh,
                         ::testing::Values(kAdataMeshLettering, kAdataMeshBoard),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });

}  // namespace
