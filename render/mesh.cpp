#include "render/mesh.h"

#include <cmath>
#include <cstring>
#include <unordered_map>

#include "render/math3d.h"

namespace {

constexpr double kTwoPi = 6.283185307179586476925286766559;

void PushVertex(Mesh& mesh, float px, float py, float pz, float nx, float ny, float nz, float u, float v) {
    const float vertex[kMeshFloatsPerVertex] = {px, py, pz, nx, ny, nz, u, v};
    mesh.vertices.insert(mesh.vertices.end(), vertex, vertex + kMeshFloatsPerVertex);
}

// Two triangles for the quad a b c d, given counter-clockwise.
void PushQuad(Mesh& mesh, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
    const uint32_t tri[6] = {a, b, c, a, c, d};
    mesh.indices.insert(mesh.indices.end(), tri, tri + 6);
}

// cos and sin of step k of n around a full turn. The last step reuses the
// first one's values, so the two copies of a seam vertex are bit-identical.
void TurnStep(int k, int n, double* c, double* s) {
    if (k % n == 0) {
        *c = 1.0;
        *s = 0.0;
        return;
    }
    const double a = kTwoPi * k / n;
    *c = std::cos(a);
    *s = std::sin(a);
}

}  // namespace

Mesh MakeTorus(float ringRadius, float tubeRadius, int segments) {
    Mesh mesh;
    if (!(ringRadius > 0.0f) || !(tubeRadius > 0.0f) || tubeRadius >= ringRadius || segments < 3) return mesh;
    const int sides = segments / 2 < 8 ? 8 : segments / 2;
    const double R = ringRadius, r = tubeRadius;
    mesh.vertices.reserve(static_cast<size_t>(segments + 1) * (sides + 1) * kMeshFloatsPerVertex);
    // Vertex (i, j): ring step i, tube step j. With the ring direction
    // (0, cos a, sin a) and the tube turning from it towards +X, the ring
    // tangent crossed with the tube tangent points outwards, so the quads
    // below run counter-clockwise seen from outside.
    for (int i = 0; i <= segments; ++i) {
        double ca, sa;
        TurnStep(i, segments, &ca, &sa);
        for (int j = 0; j <= sides; ++j) {
            double cb, sb;
            TurnStep(j, sides, &cb, &sb);
            const double nx = sb, ny = cb * ca, nz = cb * sa;
            const double d = R + r * cb;
            PushVertex(mesh, static_cast<float>(r * sb), static_cast<float>(d * ca), static_cast<float>(d * sa),
                       static_cast<float>(nx), static_cast<float>(ny), static_cast<float>(nz),
                       static_cast<float>(i) / segments, static_cast<float>(j) / sides);
        }
    }
    mesh.indices.reserve(static_cast<size_t>(segments) * sides * 6);
    const uint32_t row = static_cast<uint32_t>(sides + 1);
    for (int i = 0; i < segments; ++i) {
        for (int j = 0; j < sides; ++j) {
            const uint32_t a = i * row + j;
            PushQuad(mesh, a, a + row, a + row + 1, a + 1);
        }
    }
    return mesh;
}

Mesh MakeSphere(float radius, int slices, int stacks) {
    Mesh mesh;
    if (!(radius > 0.0f) || slices < 3 || stacks < 2) return mesh;
    const double r = radius;
    mesh.vertices.reserve(static_cast<size_t>(slices + 1) * (stacks + 1) * kMeshFloatsPerVertex);
    for (int j = 0; j <= stacks; ++j) {
        // Polar angle from +Y; the poles are set exactly so that every copy
        // of a pole vertex has the same position.
        double sp, cp;
        if (j == 0) {
            sp = 0.0;
            cp = 1.0;
        } else if (j == stacks) {
            sp = 0.0;
            cp = -1.0;
        } else {
            const double p = kTwoPi * 0.5 * j / stacks;
            sp = std::sin(p);
            cp = std::cos(p);
        }
        const bool pole = j == 0 || j == stacks;
        for (int i = 0; i <= slices; ++i) {
            double ct, st;
            TurnStep(i, slices, &ct, &st);
            const double nx = sp * ct, ny = cp, nz = sp * st;
            // A pole copy takes the u of the middle of its triangle.
            float u = static_cast<float>(i) / slices;
            if (pole && i < slices) u = (static_cast<float>(i) + 0.5f) / slices;
            PushVertex(mesh, static_cast<float>(r * nx), static_cast<float>(r * ny), static_cast<float>(r * nz),
                       static_cast<float>(nx), static_cast<float>(ny), static_cast<float>(nz), u,
                       static_cast<float>(j) / stacks);
        }
    }
    const uint32_t row = static_cast<uint32_t>(slices + 1);
    for (int j = 0; j < stacks; ++j) {
        for (int i = 0; i < slices; ++i) {
            const uint32_t a = j * row + i, b = a + 1, c = a + row + 1, d = a + row;
            // The quad's corners a b c d run counter-clockwise from outside;
            // at a pole two of them coincide and one triangle is enough.
            if (j != 0) mesh.indices.insert(mesh.indices.end(), {a, b, c});
            if (j != stacks - 1) mesh.indices.insert(mesh.indices.end(), {a, c, d});
        }
    }
    return mesh;
}

Mesh MakeBox(float sx, float sy, float sz, int subdivisions) {
    Mesh mesh;
    if (!(sx > 0.0f) || !(sy > 0.0f) || !(sz > 0.0f) || subdivisions < 1) return mesh;
    const int n = subdivisions;
    const float half[3] = {sx * 0.5f, sy * 0.5f, sz * 0.5f};
    // One table of grid coordinates per axis, shared by every face, so the
    // vertices two faces have along their common edge are bit-identical.
    std::vector<float> grid[3];
    for (int axis = 0; axis < 3; ++axis) {
        const float h = half[axis];
        for (int k = 0; k <= n; ++k)
            grid[axis].push_back(k == 0 ? -h : k == n ? h : -h + 2.0f * h * static_cast<float>(k) / n);
    }
    // Each face: the axis and side of its normal, and the axes of u and v
    // with their directions, chosen so that u x v is the outward normal.
    struct Face {
        int normalAxis, normalSign, uAxis, uSign, vAxis, vSign;
    };
    static const Face kFaces[6] = {
        {0, +1, 2, -1, 1, +1},  // +X: u along -Z, v along +Y
        {0, -1, 2, +1, 1, +1},  // -X: u along +Z
        {1, +1, 0, +1, 2, -1},  // +Y: u along +X, v along -Z
        {1, -1, 0, +1, 2, +1},  // -Y: u along +X, v along +Z
        {2, +1, 0, +1, 1, +1},  // +Z
        {2, -1, 0, -1, 1, +1},  // -Z: u along -X
    };
    const size_t perFace = static_cast<size_t>(n + 1) * (n + 1);
    mesh.vertices.reserve(6 * perFace * kMeshFloatsPerVertex);
    mesh.indices.reserve(static_cast<size_t>(6) * n * n * 6);
    for (const Face& f : kFaces) {
        const uint32_t base = static_cast<uint32_t>(mesh.VertexCount());
        for (int b = 0; b <= n; ++b) {
            for (int a = 0; a <= n; ++a) {
                float p[3], nrm[3] = {0.0f, 0.0f, 0.0f};
                p[f.normalAxis] = f.normalSign > 0 ? half[f.normalAxis] : -half[f.normalAxis];
                p[f.uAxis] = grid[f.uAxis][f.uSign > 0 ? a : n - a];
                p[f.vAxis] = grid[f.vAxis][f.vSign > 0 ? b : n - b];
                nrm[f.normalAxis] = static_cast<float>(f.normalSign);
                PushVertex(mesh, p[0], p[1], p[2], nrm[0], nrm[1], nrm[2], static_cast<float>(a) / n,
                           static_cast<float>(b) / n);
            }
        }
        const uint32_t row = static_cast<uint32_t>(n + 1);
        for (int b = 0; b < n; ++b) {
            for (int a = 0; a < n; ++a) {
                const uint32_t v0 = base + b * row + a;
                PushQuad(mesh, v0, v0 + 1, v0 + row + 1, v0 + row);
            }
        }
    }
    return mesh;
}

namespace {

struct PositionKey {
    uint32_t bits[3];
    bool operator==(const PositionKey& o) const {
        return bits[0] == o.bits[0] && bits[1] == o.bits[1] && bits[2] == o.bits[2];
    }
};

struct PositionKeyHash {
    size_t operator()(const PositionKey& k) const {
        uint64_t h = 1469598103934665603ull;
        for (uint32_t b : k.bits) h = (h ^ b) * 1099511628211ull;
        return static_cast<size_t>(h ^ (h >> 29));
    }
};

PositionKey KeyOf(const float* p) {
    PositionKey k;
    for (int i = 0; i < 3; ++i) {
        const float v = p[i] + 0.0f;  // -0 and +0 are the same point
        std::memcpy(&k.bits[i], &v, sizeof v);
    }
    return k;
}

}  // namespace

void GenerateNormals(Mesh& mesh) {
    const size_t count = mesh.VertexCount();
    if (count == 0) return;
    // Group the vertices by position.
    std::vector<uint32_t> group(count);
    std::unordered_map<PositionKey, uint32_t, PositionKeyHash> groups;
    groups.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        const auto it = groups.emplace(KeyOf(&mesh.vertices[i * kMeshFloatsPerVertex]),
                                       static_cast<uint32_t>(groups.size()));
        group[i] = it.first->second;
    }
    // The cross product of two edges is the face normal scaled by twice the
    // triangle's area: summing it weights each face by its area.
    std::vector<m3d::Vec3> sum(groups.size());
    const auto position = [&](uint32_t v) {
        const float* p = &mesh.vertices[static_cast<size_t>(v) * kMeshFloatsPerVertex];
        return m3d::Vec3{p[0], p[1], p[2]};
    };
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
        const uint32_t i0 = mesh.indices[t], i1 = mesh.indices[t + 1], i2 = mesh.indices[t + 2];
        if (i0 >= count || i1 >= count || i2 >= count) continue;
        const m3d::Vec3 p0 = position(i0);
        const m3d::Vec3 faceNormal = m3d::Cross(position(i1) - p0, position(i2) - p0);
        for (uint32_t v : {i0, i1, i2}) sum[group[v]] = sum[group[v]] + faceNormal;
    }
    for (size_t i = 0; i < count; ++i) {
        const m3d::Vec3& s = sum[group[i]];
        const float len = m3d::Length(s);
        if (!(len > 0.0f)) continue;
        float* n = &mesh.vertices[i * kMeshFloatsPerVertex + kMeshNormalOffset];
        n[0] = s.x / len;
        n[1] = s.y / len;
        n[2] = s.z / len;
    }
}

Mesh MeshFromArrays(const float* vertices, int numVertices, const uint32_t* faces, int numFaces) {
    Mesh mesh;
    if (!vertices || !faces || numVertices <= 0 || numFaces <= 0) return mesh;
    const size_t indexCount = static_cast<size_t>(numFaces) * 3;
    for (size_t i = 0; i < indexCount; ++i)
        if (faces[i] >= static_cast<uint32_t>(numVertices)) return mesh;
    mesh.vertices.assign(vertices, vertices + static_cast<size_t>(numVertices) * kMeshFloatsPerVertex);
    mesh.indices.assign(faces, faces + indexCount);
    return mesh;
}

Mesh UnitSquare() {
    Mesh quad;
    quad.vertices = {0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 1, 1, 0, 0, 0, 1, 1, 1, 0, 1, 0, 0, 0, 1, 0, 1};
    quad.indices = {0, 1, 2, 0, 2, 3};
    return quad;
}

void Icosahedron(std::vector<float>* positions, std::vector<uint32_t>* indices) {
    const float t = (1.0f + std::sqrt(5.0f)) / 2.0f;
    const float v[12][3] = {{-1, t, 0}, {1, t, 0}, {-1, -t, 0}, {1, -t, 0}, {0, -1, t}, {0, 1, t},
                            {0, -1, -t}, {0, 1, -t}, {t, 0, -1}, {t, 0, 1}, {-t, 0, -1}, {-t, 0, 1}};
    for (const auto& p : v) {
        const m3d::Vec3 n = m3d::Normalize(m3d::Vec3{p[0], p[1], p[2]});
        positions->insert(positions->end(), {n.x, n.y, n.z});
    }
    *indices = {0, 11, 5, 0, 5, 1, 0, 1, 7, 0, 7, 10, 0, 10, 11, 1, 5, 9, 5, 11, 4, 11, 10, 2, 10, 7, 6, 7, 1, 8,
                3, 9, 4, 3, 4, 2, 3, 2, 6, 3, 6, 8, 3, 8, 9, 4, 9, 5, 2, 4, 11, 6, 2, 10, 8, 6, 7, 9, 8, 1};
}
