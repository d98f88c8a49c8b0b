// The Windows display driver's own facts, read from the registry key the
// display device names: version, date, the Catalyst and packaging versions
// of AMD's driver, and the memory size the driver found.
#include <algorithm>
#include <cctype>

#include "monitor/probe_gpu.h"
#include "monitor/vendor_backend.h"
#include "platform/platform.h"

namespace ProbeGPU {

// "\Registry\Machine\System\..." -> "System\..." under HKEY_LOCAL_MACHINE.
std::string MachineRelativeKey(const std::string& key) {
    static const char kPrefix[] = "\\registry\\machine\\";
    const size_t n = sizeof kPrefix - 1;
    if (key.size() > n) {
        std::string head = key.substr(0, n);
        std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (head == kPrefix) return key.substr(n);
    }
    return key;
}

namespace {

bool Open(Root& root, const ContextRequest&) {
    HardwareCaps& caps = root.caps;
    if (caps.displayDeviceKey.empty()) return false;
    DriverKeyFacts& d = caps.driverKey;
    std::string key = MachineRelativeKey(caps.displayDeviceKey);
    platform::ReadRegistryString(key.c_str(), "DriverVersion", &d.driverVersion);
    platform::ReadRegistryString(key.c_str(), "DriverDate", &d.driverDate);
    if (!platform::ReadRegistryString(key.c_str(), "Catalyst_Version", &d.catalystVersion))
        platform::ReadRegistryString(key.c_str(), "RadeonSoftwareVersion", &d.catalystVersion);
    platform::ReadRegistryString(key.c_str(), "ReleaseVersion", &d.packagingVersion);
    platform::ReadRegistryDword(key.c_str(), "HardwareInformation.MemorySize", &d.memorySize);
    return true;
}

void Facts(const Root& root, DriverFacts* f) {
    const DriverKeyFacts& d = root.caps.driverKey;
    f->amdCatalyst = d.catalystVersion;
    f->amdDriverVersion = d.driverVersion;
    f->genericVersion = d.driverVersion;
    f->genericBranch = d.driverDate;
}

// Every display but NVIDIA's takes the driver's figure, even none: the
// OpenGL figure of other makers is free texture memory, not a size.
bool Memory(const Root& root, int* mb) {
    if (root.caps.vendorClass == kVendorNvidia) return false;
    *mb = static_cast<int>(root.caps.driverKey.memorySize >> 20);
    return true;
}

void Close(Root& root) { root.caps.driverKey = DriverKeyFacts(); }

}  // namespace

extern const VendorBackend kDriverKeyDiscovery = {
    "DRIVER_KEY", kOnWindows, DiscoveryStage::kInventory, nullptr, &Open, &Facts, nullptr, nullptr, &Memory, nullptr, nullptr, &Close,
};

}  // namespace ProbeGPU
