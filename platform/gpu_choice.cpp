#include "platform/gpu_choice.h"

#include <cctype>
#include <cstdlib>

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

namespace {

std::string Upper(const std::string& s) {
    std::string u = s;
    for (char& c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return u;
}

// The four hex digits after `key` (such as "VEN_"), or -1.
int HexField(const std::string& upper, const char* key) {
    const size_t at = upper.find(key);
    if (at == std::string::npos) return -1;
    const size_t start = at + std::char_traits<char>::length(key);
    if (upper.size() < start + 4) return -1;
    int v = 0;
    for (size_t i = start; i < start + 4; ++i) {
        const char c = upper[i];
        if (!std::isxdigit(static_cast<unsigned char>(c))) return -1;
        v = v * 16 + (c <= '9' ? c - '0' : c - 'A' + 10);
    }
    return v;
}

}  // namespace

bool ParsePciDeviceId(const std::string& deviceId, int* vendor, int* device) {
    const std::string u = Upper(deviceId);
    if (u.compare(0, 4, "PCI\\") != 0) return false;
    const int v = HexField(u, "VEN_"), d = HexField(u, "DEV_");
    if (v < 0 || d < 0) return false;
    *vendor = v;
    *device = d;
    return true;
}

std::vector<AdapterIdentity> IdentifyAffinityGpus(const std::vector<std::vector<std::string>>& gpuDisplays,
                                                  const std::vector<DisplayDeviceRow>& displays) {
    std::vector<AdapterIdentity> out(gpuDisplays.size());
    for (size_t g = 0; g < gpuDisplays.size(); ++g) {
        bool found = false;
        for (const std::string& name : gpuDisplays[g]) {
            for (const DisplayDeviceRow& row : displays) {
                int v = -1, d = -1;
                if (Upper(row.name) != Upper(name) || !ParsePciDeviceId(row.deviceId, &v, &d)) continue;
                out[g].pciVendor = v;
                out[g].pciDevice = d;
                found = true;
                break;
            }
            if (found) break;
        }
    }
    return out;
}

int PickByRendererName(const GpuChoice& choice, const std::vector<std::string>& renderers) {
    auto key = [](const std::string& s) {
        const size_t b = s.find_first_not_of(" \t");
        const size_t e = s.find_last_not_of(" \t");
        return b == std::string::npos ? std::string() : Upper(s.substr(b, e - b + 1));
    };
    const std::string wanted = key(choice.name);
    if (wanted.empty()) return -1;
    int seen = 0;
    for (size_t i = 0; i < renderers.size(); ++i)
        if (key(renderers[i]) == wanted && seen++ == choice.sameBefore) return static_cast<int>(i);
    return -1;
}

}  // namespace platform
