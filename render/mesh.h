// Triangle meshes for the scenes: one interleaved vertex array (position,
// normal, texture coordinate; 8 floats per vertex, the layout of the mesh
// data library) and a 32-bit index list, three indices per triangle,
// counter-clockwise seen from outside.
//
// The generators make closed solids with unit outward normals. Where a
// texture coordinate wraps (the seam of a torus or sphere, the edges of a
// box's faces) the vertex is split, so u and v stay in [0, 1] and run
// continuously across each face; split copies share bit-identical positions,
// which is what lets GenerateNormals and the fur shells treat them as one
// point.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

constexpr int kMeshFloatsPerVertex = 8;
constexpr int kMeshPositionOffset = 0;
constexpr int kMeshNormalOffset = 3;
constexpr int kMeshUvOffset = 6;

struct Mesh {
    std::vector<float> vertices;  // px py pz nx ny nz u v, per vertex
    std::vector<uint32_t> indices;

    size_t VertexCount() const { return vertices.size() / kMeshFloatsPerVertex; }
    size_t TriangleCount() const { return indices.size() / 3; }
    bool empty() const { return indices.empty(); }
};

// The unit square in the XY plane, (0,0) to (1,1), facing +Z, with texture
// coordinates equal to its positions: the full-view passes draw it.
Mesh UnitSquare();

// A ring torus about the origin whose ring lies in the YZ plane (the axis
// through its hole is X), so a quarter turn about Y shows the hole to a
// camera on +Z. ringRadius is the distance from the centre to the
// middle of the tube, tubeRadius the radius of the tube itself. `segments`
// is the number of steps around the ring; the tube gets segments / 2 sides
// (at least 8), which keeps the quads about square for a tube half as thick
// as the ring is wide. u runs once around the ring, v once around the tube.
// Empty when a radius is not positive, the tube would meet itself
// (tubeRadius >= ringRadius) or segments < 3.
Mesh MakeTorus(float ringRadius, float tubeRadius, int segments);

// A UV sphere about the origin with its poles on the Y axis: `slices` steps
// around the axis (u), `stacks` steps from the north pole (v = 0) to the
// south pole (v = 1). The pole rows are single triangles, so there are no
// degenerate ones. Empty when radius <= 0, slices < 3 or stacks < 2.
Mesh MakeSphere(float radius, int slices, int stacks);

// A unit icosahedron, positions only (x, y, z per corner) and 20 triangles:
// the coarse sphere a tessellator refines.
void Icosahedron(std::vector<float>* positions, std::vector<uint32_t>* indices);

// An axis-aligned box sx by sy by sz about the origin, each face split into
// subdivisions x subdivisions quads with its own vertices (flat face
// normals, u and v from 0 to 1 across each face). Empty when a size is not
// positive or subdivisions < 1.
Mesh MakeBox(float sx, float sy, float sz, int subdivisions);

// Recomputes smooth per-vertex normals: each triangle adds its face normal
// weighted by its area to its corners, and vertices at bit-identical
// positions add up together and get the same normal, so the copies along a
// texture seam or a box edge are pushed outwards alike and the fur shells
// stay closed there. A vertex that no triangle with area touches keeps its
// normal.
void GenerateNormals(Mesh& mesh);

// Copies the mesh data library's arrays (kMeshFloatsPerVertex floats per
// vertex, three indices per face). Empty when a pointer is null, a count is
// not positive or an index is out of range.
Mesh MeshFromArrays(const float* vertices, int numVertices, const uint32_t* faces, int numFaces);
