// The mesh data library. The models are generated at build time by
// data/meshgen.py into one binary file, which the assembler embeds here
// verbatim (.incbin works with both the Linux and the MinGW toolchains and
// costs no compile time, unlike a source array of megabytes).
//
// The file is read in place: a small header, a table of entries and the
// blobs. Every entry is checked against the size of what was embedded before
// a pointer into it is handed out, so a damaged file means "no such mesh",
// never a read past the end.
#include "data/adata.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifndef ADATA_BLOB_PATH
#error "ADATA_BLOB_PATH must name the generated mesh file"
#endif

#ifdef _WIN32
// The PE assembler has no section stack. GCC writes top-level asm ahead of
// every function, while the current section is still .text, so returning to
// .text restores what the compiler expects.
#define ADATA_ENTER_RODATA ".section .rdata,\"dr\"\n"
#define ADATA_LEAVE_RODATA ".text\n"
#else
#define ADATA_ENTER_RODATA ".pushsection .rodata,\"a\",@progbits\n"
#define ADATA_LEAVE_RODATA ".popsection\n"
#endif

// The labels are local to this object, so they are exported from nowhere.
__asm__(ADATA_ENTER_RODATA
        ".balign 16\n"
        "adata_blob_begin:\n"
        ".incbin \"" ADATA_BLOB_PATH "\"\n"
        "adata_blob_end:\n"
        ADATA_LEAVE_RODATA);

#ifdef _WIN32
extern "C" const unsigned char adata_blob_begin[] __asm__("adata_blob_begin");
extern "C" const unsigned char adata_blob_end[] __asm__("adata_blob_end");
#else
extern "C" __attribute__((visibility("hidden"))) const unsigned char adata_blob_begin[] __asm__(
    "adata_blob_begin");
extern "C" __attribute__((visibility("hidden"))) const unsigned char adata_blob_end[] __asm__(
    "adata_blob_end");
#endif

static_assert(sizeof(unsigned int) == sizeof(uint32_t), "face indices are 32-bit");

namespace {

constexpr char kMagic[4] = {'A', 'D', 'A', 'T'};
constexpr uint32_t kVersion = 1;
constexpr size_t kNameBytes = 16;
constexpr size_t kHeaderBytes = 16;
constexpr size_t kEntryBytes = 32;
constexpr size_t kVertexBytes = kAdataFloatsPerVertex * sizeof(float);
constexpr size_t kFaceBytes = kAdataIndicesPerFace * sizeof(uint32_t);
// Entries whose face indices have been checked once (the check walks every
// index, so it is done at most once per mesh).
constexpr size_t kCachedEntries = 8;
enum : int { kUnchecked = 0, kIndicesGood = 1, kIndicesBad = 2 };
std::atomic<int> g_indexState[kCachedEntries];

struct Mesh {
    const unsigned char* blob = nullptr;
    uint32_t size = 0;
    uint32_t numVertices = 0;
    uint32_t numFaces = 0;
};

uint32_t ReadU32(const unsigned char* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

bool IndicesInRange(const Mesh& m) {
    const unsigned char* faces = m.blob + size_t(m.numVertices) * kVertexBytes;
    const size_t count = size_t(m.numFaces) * kAdataIndicesPerFace;
    for (size_t i = 0; i < count; ++i)
        if (ReadU32(faces + i * sizeof(uint32_t)) >= m.numVertices) return false;
    return true;
}

bool IndicesChecked(size_t entry, const Mesh& m) {
    if (entry >= kCachedEntries) return IndicesInRange(m);
    int state = g_indexState[entry].load(std::memory_order_acquire);
    if (state == kUnchecked) {
        // Two threads may both check; they reach the same answer.
        state = IndicesInRange(m) ? kIndicesGood : kIndicesBad;
        g_indexState[entry].store(state, std::memory_order_release);
    }
    return state == kIndicesGood;
}

// Finds a mesh by exact name; false when the name is unknown or its entry
// does not describe a well-formed blob inside the embedded file.
bool FindMesh(const char* name, Mesh* out) {
    if (!name) return false;
    const unsigned char* file = adata_blob_begin;
    const size_t total = size_t(adata_blob_end - adata_blob_begin);
    if (total < kHeaderBytes || std::memcmp(file, kMagic, sizeof kMagic) != 0) return false;
    if (ReadU32(file + 4) != kVersion) return false;
    const size_t count = ReadU32(file + 8);
    if (count > (total - kHeaderBytes) / kEntryBytes) return false;
    for (size_t i = 0; i < count; ++i) {
        const unsigned char* e = file + kHeaderBytes + i * kEntryBytes;
        const char* entryName = reinterpret_cast<const char*>(e);
        if (!std::memchr(entryName, '\0', kNameBytes)) continue;
        if (std::strcmp(entryName, name) != 0) continue;
        Mesh m;
        m.numVertices = ReadU32(e + 16);
        m.numFaces = ReadU32(e + 20);
        const size_t offset = ReadU32(e + 24);
        m.size = ReadU32(e + 28);
        const uint64_t expected =
            uint64_t(m.numVertices) * kVertexBytes + uint64_t(m.numFaces) * kFaceBytes;
        // Blobs start 16-aligned so the floats and indices can be read in place.
        if (offset % 16 != 0 || offset > total || m.size > total - offset) return false;
        if (expected != m.size || m.size > 0x7fffffffu) return false;
        m.blob = file + offset;
        if (!IndicesChecked(i, m)) return false;
        *out = m;
        return true;
    }
    return false;
}

}  // namespace

extern "C" {

int VXA_AData_GetSize(const char* name) {
    Mesh m;
    return FindMesh(name, &m) ? int(m.size) : 0;
}

const void* VXA_AData_GetData(const char* name) {
    Mesh m;
    return FindMesh(name, &m) ? m.blob : nullptr;
}

int VXA_AData_Mesh_GetNumVertices(const char* name) {
    Mesh m;
    return FindMesh(name, &m) ? int(m.numVertices) : 0;
}

int VXA_AData_Mesh_GetNumFaces(const char* name) {
    Mesh m;
    return FindMesh(name, &m) ? int(m.numFaces) : 0;
}

const float* VXA_AData_Mesh_GetVertices(const char* name) {
    Mesh m;
    if (!FindMesh(name, &m)) return nullptr;
    return reinterpret_cast<const float*>(m.blob);
}

const unsigned int* VXA_AData_Mesh_GetFaces(const char* name) {
    Mesh m;
    if (!FindMesh(name, &m)) return nullptr;
    return reinterpret_cast<const unsigned int*>(m.blob + size_t(m.numVertices) * kVertexBytes);
}

}  // extern "C"
