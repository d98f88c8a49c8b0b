#include "monitor/gpu_db.h"

#include <algorithm>
#include <string>

namespace ProbeGPU {

const GpuDatabaseEntry* DatabaseTable(int vendorClass, int* rows) {
    const GpuDatabaseEntry* t = nullptr;
    int n = 0;
    switch (vendorClass) {
        case 1: t = gpudb::kNvidia; n = gpudb::kNvidiaRows; break;
        case 2: t = gpudb::kAmd; n = gpudb::kAmdRows; break;
        case 3: t = gpudb::kS3; n = gpudb::kS3Rows; break;
        case 4: t = gpudb::kIntel; n = gpudb::kIntelRows; break;
        default: break;
    }
    if (rows) *rows = n;
    return t;
}

int DatabaseLookup(int vendorClass, int pciDeviceId, int subsystemVendorId, int subsystemDeviceId) {
    if (pciDeviceId <= 0) return -1;
    int rows = 0;
    const GpuDatabaseEntry* t = DatabaseTable(vendorClass, &rows);
    if (!t) return -1;
    const bool board = subsystemVendorId > 0 && subsystemVendorId <= 0xFFFF && subsystemDeviceId >= 0 &&
                       subsystemDeviceId <= 0xFFFF;
    const uint32_t sub = board ? (static_cast<uint32_t>(subsystemVendorId) << 16) | static_cast<uint32_t>(subsystemDeviceId) : 0;
    int any = -1;
    for (int i = 0; i < rows && t[i].deviceId != 0; ++i) {
        if (t[i].deviceId != static_cast<uint32_t>(pciDeviceId)) continue;
        if (board && t[i].subId == sub) return i;
        if (t[i].subId == 0 && any < 0) any = i;
    }
    return any;
}

const GpuDatabaseEntry* DatabaseRow(int vendorClass, int index) {
    int rows = 0;
    const GpuDatabaseEntry* t = DatabaseTable(vendorClass, &rows);
    if (!t || index < 0 || index >= rows) return nullptr;
    return &t[index];
}

bool NamesSeveralProducts(const char* fullName) {
    if (!fullName) return false;
    const std::string name(fullName);
    const size_t n = name.size();
    if (n >= 7 && name.compare(n - 7, 7, " Series") == 0) return true;
    // "Brand (chip)": no model number before the bracket. "Intel GMA 3100 (G33)"
    // and "Intel Iris Plus Graphics G7 (Ice Lake)" name one product each.
    const size_t open = name.rfind(" (");
    if (n == 0 || name[n - 1] != ')' || open == std::string::npos) return false;
    return std::none_of(name.begin(), name.begin() + static_cast<long>(open), [](char c) { return c >= '0' && c <= '9'; });
}

const BoardModel* MakerBoardModels(int* count) {
    if (count) *count = gpudb::kMakerBoardCount;
    return gpudb::kMakerBoards;
}

const char* MakerBoardModelName(int subsystemVendorId, int subsystemDeviceId) {
    if (subsystemVendorId != kMakerPciVendorId || subsystemDeviceId < 0) return nullptr;
    for (int i = 0; i < gpudb::kMakerBoardCount; ++i) {
        if (gpudb::kMakerBoards[i].subsystemDeviceId == static_cast<uint32_t>(subsystemDeviceId))
            return gpudb::kMakerBoards[i].modelName;
    }
    return nullptr;
}

}  // namespace ProbeGPU
