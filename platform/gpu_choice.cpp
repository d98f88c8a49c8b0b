#include "platform/gpu_choice.h"

namespace platform {

namespace {
GpuChoice gChoice;
}

void SetGpuChoice(const GpuChoice& choice) { gChoice = choice; }
const GpuChoice& CurrentGpuChoice() { return gChoice; }

int PickAdapter(const GpuChoice& choice, const std::vector<AdapterIdentity>& adapters) {
    if (choice.pciVendor >= 0 && choice.pciDevice >= 0) {
        int seen = 0;
        for (size_t i = 0; i < adapters.size(); ++i) {
            if (adapters[i].pciVendor != choice.pciVendor || adapters[i].pciDevice != choice.pciDevice) continue;
            if (seen++ == choice.sameBefore) return static_cast<int>(i);
        }
        return -1;
    }
    int software = -1, softwareCount = 0;
    for (size_t i = 0; i < adapters.size(); ++i)
        if (adapters[i].software) {
            software = static_cast<int>(i);
            ++softwareCount;
        }
    if (softwareCount == 1) return software;
    if (softwareCount == 0 && adapters.size() == 1) return 0;
    return -1;
}

}  // namespace platform
