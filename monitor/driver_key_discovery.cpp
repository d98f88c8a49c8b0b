// The Windows display driver: the display devices the window system lists,
// and the driver's own facts, read from the registry key the display device
// names: version, date, the Catalyst and packaging versions of AMD's
// driver, and the memory size the driver found.
#include <algorithm>
#include <cctype>

#include "monitor/probe_gpu.h"
#include "monitor/vendor_backend.h"
#include "platform/platform.h"
#include "platform/system_facts.h"

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

bool EnumSystemDisplayDevice(int i, DisplayDeviceRecord* out) {
    platform::DisplayAdapterFacts a;
    if (!platform::EnumDisplayAdapter(i, &a)) return false;
    out->name = a.name;
    out->string = a.description;
    out->id = a.id;
    out->key = a.key;
    return true;
}

// The display devices as the window system lists them; the first is the
// display device.
void ListDisplayDevices(Root& root) {
    HardwareCaps& caps = root.caps;
    DisplayEnumerator scripted = DisplayEnumeratorForTests();
    EnumerateDisplayDevices(scripted ? scripted : &EnumSystemDisplayDevice, &caps.adapters);
    if (caps.adapters.count() > 0) {
        const DisplayAdapterEntry& e = caps.adapters.row(0);
        caps.displayRow = 0;
        caps.ChooseDisplayDevice(DisplayDeviceRecord{e.deviceName, e.deviceString, e.deviceId, e.deviceKey});
    }
}

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
    /* name */ "DRIVER_KEY",
    /* platforms */ kOnWindows,
    /* stage */ DiscoveryStage::kInventory,
    /* logStep */ nullptr,
    /* listAdapters */ &ListDisplayDevices,
    /* open */ &Open,
    /* driverFacts */ &Facts,
    /* listGpus */ nullptr,
    /* claimRow */ nullptr,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ nullptr,
    /* shaderCores */ nullptr,
    /* close */ &Close,
};

}  // namespace ProbeGPU
