// The mesh data library (libadata.so / adata.dll): the two solid models the
// program draws, "VXA" (the lettering) and "HD6970" (the graphics board),
// made by data/meshgen.py at build time and embedded in the library.
//
// The program does not link against the library; it loads it at run time and
// looks the six functions up by the names in kAdataSymbolNames, which differ
// per platform: the Windows names carry stdcall-style decorations (a leading
// underscore and "@4" for the one pointer argument) that the loader asks for
// verbatim. This header serves both sides.
//
// Each model is one blob: numVertices vertices of kAdataFloatsPerVertex
// floats (position, unit outward normal, texture coordinate) followed by
// numFaces triangles of three 32-bit vertex indices, counter-clockwise seen
// from outside. GetData returns the blob and GetSize its byte size; the
// vertex and face pointers point into it. All pointers stay valid while the
// library is loaded. Names compare case-sensitively; an unknown or null name
// gives 0 or nullptr.
#pragma once

#if defined(ADATA_BUILDING) && !defined(_WIN32)
#define ADATA_EXPORT __attribute__((visibility("default")))
#else
// Windows exports exactly the decorated names listed in data/adata.def.
#define ADATA_EXPORT
#endif

extern "C" {
ADATA_EXPORT int VXA_AData_GetSize(const char* name);
ADATA_EXPORT const void* VXA_AData_GetData(const char* name);
ADATA_EXPORT int VXA_AData_Mesh_GetNumVertices(const char* name);
ADATA_EXPORT int VXA_AData_Mesh_GetNumFaces(const char* name);
ADATA_EXPORT const float* VXA_AData_Mesh_GetVertices(const char* name);
ADATA_EXPORT const unsigned int* VXA_AData_Mesh_GetFaces(const char* name);
}

// Function types for the loader.
using AdataGetSizeFn = int (*)(const char*);
using AdataGetDataFn = const void* (*)(const char*);
using AdataGetNumVerticesFn = int (*)(const char*);
using AdataGetNumFacesFn = int (*)(const char*);
using AdataGetVerticesFn = const float* (*)(const char*);
using AdataGetFacesFn = const unsigned int* (*)(const char*);

// The models the library holds.
constexpr const char* kAdataMeshLettering = "VXA";
constexpr const char* kAdataMeshBoard = "HD6970";

// Base name of the library file ("libadata.so" / "adata.dll").
constexpr const char* kAdataLibraryBase = "adata";

// Vertex layout.
constexpr int kAdataFloatsPerVertex = 8;
constexpr int kAdataPositionOffset = 0;  // px, py, pz
constexpr int kAdataNormalOffset = 3;    // nx, ny, nz
constexpr int kAdataUvOffset = 6;        // u, v
constexpr int kAdataIndicesPerFace = 3;

struct AdataVertex {
    float px, py, pz;
    float nx, ny, nz;
    float u, v;
};
static_assert(sizeof(AdataVertex) == kAdataFloatsPerVertex * sizeof(float),
              "AdataVertex must match the packed vertex layout");

// Exported symbol names, in this order.
enum AdataSymbol {
    kAdataGetSize,
    kAdataGetData,
    kAdataMeshGetNumVertices,
    kAdataMeshGetNumFaces,
    kAdataMeshGetVertices,
    kAdataMeshGetFaces,
    kAdataSymbolCount
};

#ifdef _WIN32
constexpr const char* kAdataSymbolNames[kAdataSymbolCount] = {
    "_VXA_AData_GetSize@4",
    "_VXA_AData_GetData@4",
    "_VXA_AData_Mesh_GetNumVertices@4",
    "_VXA_AData_Mesh_GetNumFaces@4",
    "_VXA_AData_Mesh_GetVertices@4",
    "_VXA_AData_Mesh_GetFaces@4",
};
#else
constexpr const char* kAdataSymbolNames[kAdataSymbolCount] = {
    "VXA_AData_GetSize",
    "VXA_AData_GetData",
    "VXA_AData_Mesh_GetNumVertices",
    "VXA_AData_Mesh_GetNumFaces",
    "VXA_AData_Mesh_GetVertices",
    "VXA_AData_Mesh_GetFaces",
};
#endif
