// The built-in GPU database: one constant table per vendor class 1-4
// (NVIDIA, AMD, S3, Intel). The rows are generated at build time from the
// CSV files in data/gpudb/ by monitor/gen_gpudb.py.
#pragma once

#include <cstdint>

namespace ProbeGPU {

struct GpuDatabaseEntry {
    uint32_t deviceId;       // 0xFFFFFFFF: a row that is never matched; 0 ends a table
    uint32_t subId;          // 0: any board; else subsystem vendor << 16 | subsystem device of one board
    const char* codeName;    // "GM204"
    const char* shortName;   // "GTX 980", may be empty
    const char* fullName;    // "NVIDIA GeForce GTX 980"
    int32_t d3dLevel;        // Direct3D feature level x 10 (110 = 11_0)
    int32_t unifiedShaders;  // 0 for parts before unified shaders
    int32_t vertexUnits;     // parts before unified shaders
    int32_t pixelUnits;      // parts before unified shaders
    int32_t textureUnits;    // -1 unknown
    int32_t ropUnits;        // -1 unknown
    int32_t boardPowerW;     // 0 unknown
};

constexpr uint32_t kNeverMatchedId = 0xFFFFFFFFu;

// The table of a vendor class (1-4) and its row count (without the closing
// row); nullptr and 0 for other classes.
const GpuDatabaseEntry* DatabaseTable(int vendorClass, int* rows);

// The row of a device: the row of its board (device ID and subsystem IDs)
// when the table has one, else the first row of the device ID for any board;
// its index, or -1. Subsystem IDs below 0 mean unknown.
int DatabaseLookup(int vendorClass, int pciDeviceId, int subsystemVendorId = -1, int subsystemDeviceId = -1);

// The row at an index returned by DatabaseLookup; nullptr for -1 or out of range.
const GpuDatabaseEntry* DatabaseRow(int vendorClass, int index);

// Whether a row's name stands for several products: a family ("AMD Radeon
// RX 6800 Series") or the maker's brand with only the chip or platform in
// brackets ("NVIDIA Mobile GPU (GK107M)", "Intel Graphics (Lunar Lake)").
// A name the system gives the adapter is more precise than such a row.
bool NamesSeveralProducts(const char* fullName);

// The maker's own board models, found by the PCI subsystem device ID of
// boards whose subsystem vendor is the maker's.
constexpr int kMakerPciVendorId = 0x1F96;
struct BoardModel {
    uint32_t subsystemDeviceId;
    const char* modelName;
};
const BoardModel* MakerBoardModels(int* count);
// The model name, or nullptr when the subsystem vendor is not the maker's or
// the board is not in the list.
const char* MakerBoardModelName(int subsystemVendorId, int subsystemDeviceId);

// Generated tables (gpu_db_tables.cpp).
namespace gpudb {
extern const GpuDatabaseEntry kNvidia[];
extern const int kNvidiaRows;
extern const GpuDatabaseEntry kAmd[];
extern const int kAmdRows;
extern const GpuDatabaseEntry kS3[];
extern const int kS3Rows;
extern const GpuDatabaseEntry kIntel[];
extern const int kIntelRows;
extern const BoardModel kMakerBoards[];
extern const int kMakerBoardCount;
}  // namespace gpudb

}  // namespace ProbeGPU
