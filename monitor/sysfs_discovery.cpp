// The kernel's sysfs and hwmon files as discovery sees them (Linux): every
// adapter row that NVML does not read and whose driver offers something
// (amdgpu, radeon, i915, xe, and any device with a hwmon folder, such as
// an NVIDIA board under nouveau); the kernel driver's name and version and
// the kernel release for the driver description.
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "monitor/vendor_backend.h"
#include "platform/system_facts.h"

namespace ProbeGPU {
namespace {

bool Open(Root& root, const ContextRequest&) {
    HardwareCaps& caps = root.caps;
    std::vector<sysfs::DrmDevice> sensorDevices;
    for (size_t r = 0; r < caps.rowSources.size(); ++r) {
        RowSource& src = caps.rowSources[r];
        if (src.drm < 0 || src.nvml >= 0) continue;
        const sysfs::DrmDevice& d = caps.drmDevices[static_cast<size_t>(src.drm)];
        // What a driver does not offer simply fails to read; a device with
        // nothing to read has no interface.
        if (d.vendor != kPciVendorAmd && d.vendor != kPciVendorIntel && d.hwmonDir.empty()) continue;
        src.sysfs = static_cast<int>(sensorDevices.size());
        sensorDevices.push_back(d);
        gProbeLog.Write("SYSFS - GPU %d: %04X-%04X driver %s, hwmon %s", src.sysfs, d.vendor, d.device,
                        d.driver.empty() ? "?" : d.driver.c_str(), d.hwmonDir.empty() ? "none" : d.hwmonDir.c_str());
    }
    caps.sysfs.reset(new SysfsBackend(sensorDevices));
    return true;
}

// The kernel driver of the display device (with its module version where
// it has one), else the OpenGL vendor (a software renderer); the kernel
// release as the branch.
void Facts(const Root& root, DriverFacts* f) {
    const HardwareCaps& caps = root.caps;
    std::string driver;
    if (!caps.drmDevices.empty() && caps.ids.vendor >= 0) driver = caps.drmDevices[0].driver;
    if (!driver.empty()) {
        std::string version;
        if (sysfs::ReadSmallFile(sysfs::Root() + "/module/" + driver + "/version", &version, 128)) {
            while (!version.empty() && (version.back() == '\n' || version.back() == ' ')) version.pop_back();
            if (!version.empty()) driver += " " + version;
        }
        f->genericVersion = driver;
    } else {
        f->genericVersion = gGlobals.gl_vendor;
    }
    f->genericBranch = platform::KernelRelease();
}

bool Claim(const Root& root, int row, GpuSlot* s) {
    const HardwareCaps& caps = root.caps;
    int index = caps.rowSources[static_cast<size_t>(row)].sysfs;
    if (index < 0 || !caps.sysfs) return false;
    s->backend = caps.sysfs.get();
    s->backendIndex = index;
    s->driverVersion = caps.sysfs->DriverText(index);
    return true;
}

bool Memory(const Root& root, int* mb) {
    if (root.gpus.empty() || !root.caps.sysfs || root.gpus[0].backend != root.caps.sysfs.get()) return false;
    int total = 0, used = 0, freeMB = 0;
    if (!root.gpus[0].backend->MemoryUsage(root.gpus[0].backendIndex, &total, &used, &freeMB) || total <= 0) return false;
    *mb = total;
    return true;
}

bool Count(const Root& root, int* n) {
    if (!root.caps.sysfs) return false;
    *n = root.caps.sysfs->count();
    return true;
}

void Close(Root& root) { root.caps.sysfs.reset(); }

}  // namespace

extern const VendorBackend kSysfsDiscovery = {
    "SYSFS", kOnLinux, DiscoveryStage::kInventory, "SYSFS_Init()", &Open, &Facts, nullptr, &Claim, &Memory, &Count, nullptr, &Close,
};

}  // namespace ProbeGPU
