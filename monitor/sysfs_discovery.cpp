// The kernel's sysfs and hwmon files as discovery sees them (Linux): every
// adapter row that NVML does not read and whose driver offers something
// (amdgpu, radeon, i915, xe, and any device with a hwmon folder, such as
// an NVIDIA board under nouveau); the kernel driver's name and version and
// the kernel release for the driver description.
#include <algorithm>
#include <cstdio>

#include "monitor/gpu_db.h"
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "monitor/vendor_backend.h"
#include "platform/system_facts.h"

namespace ProbeGPU {
namespace {

// The display devices as the kernel lists them under class/drm.
void ListDrmDevices(Root& root) {
    HardwareCaps& caps = root.caps;
    caps.adapterNamesGeneric = true;
    caps.drmDevices = sysfs::EnumerateDrmDevices(sysfs::Root());
    // The display device is a GPU of a maker with sensors (the boot VGA
    // device first), not the management controller's frame buffer of a
    // server; failing that, the first device.
    auto known = [](const sysfs::DrmDevice& d) {
        return d.vendor == kPciVendorNvidia || d.vendor == kPciVendorAmd || d.vendor == kPciVendorIntel;
    };
    auto bootVga = [](const sysfs::DrmDevice& d) {
        int64_t v = 0;
        return sysfs::ReadDecimal(d.deviceDir + "/boot_vga", &v) && v == 1;
    };
    size_t chosen = 0;
    bool haveChoice = false;
    for (int pass = 0; pass < 2 && !haveChoice; ++pass)
        for (size_t i = 0; i < caps.drmDevices.size() && !haveChoice; ++i)
            if (known(caps.drmDevices[i]) && (pass == 1 || bootVga(caps.drmDevices[i]))) {
                chosen = i;
                haveChoice = true;
            }
    if (haveChoice && chosen != 0) std::rotate(caps.drmDevices.begin(), caps.drmDevices.begin() + static_cast<long>(chosen),
                                               caps.drmDevices.begin() + static_cast<long>(chosen) + 1);
    for (size_t i = 0; i < caps.drmDevices.size() && caps.adapters.count() < AdapterTable::kMaxRows; ++i) {
        const sysfs::DrmDevice& d = caps.drmDevices[i];
        int cls = VendorClassOf(static_cast<int>(d.vendor));
        const GpuDatabaseEntry* row = DatabaseRow(cls, DatabaseLookup(cls, static_cast<int>(d.device), static_cast<int>(d.subsystemVendor),
                                                                          static_cast<int>(d.subsystemDevice)));
        char generic[64];
        std::snprintf(generic, sizeof generic, "PCI display device %04X:%04X", d.vendor, d.device);
        DisplayDeviceRecord rec{"card" + std::to_string(d.card), row ? row->fullName : generic, d.pnpId(), d.deviceDir};
        // One row per device: identical boards are separate GPUs here.
        size_t before = static_cast<size_t>(caps.adapters.count());
        caps.adapters.Append(rec);
        if (static_cast<size_t>(caps.adapters.count()) > before) {
            RowSource src;
            src.drm = static_cast<int>(i);
            caps.rowSources.push_back(src);
        }
    }
    if (caps.adapters.count() > 0) {
        const DisplayAdapterEntry& e = caps.adapters.row(0);
        caps.displayRow = 0;
        int cls = VendorClassOf(static_cast<int>(caps.drmDevices[0].vendor));
        const GpuDatabaseEntry* row = DatabaseRow(
            cls, DatabaseLookup(cls, static_cast<int>(caps.drmDevices[0].device), static_cast<int>(caps.drmDevices[0].subsystemVendor),
                                static_cast<int>(caps.drmDevices[0].subsystemDevice)));
        caps.descriptionFromDatabase = row && !NamesSeveralProducts(row->fullName);
        caps.ChooseDisplayDevice(DisplayDeviceRecord{e.deviceName, e.deviceString, e.deviceId, e.deviceKey});
    }
}

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
    /* name */ "SYSFS",
    /* platforms */ kOnLinux,
    /* stage */ DiscoveryStage::kInventory,
    /* logStep */ "SYSFS_Init()",
    /* listAdapters */ &ListDrmDevices,
    /* open */ &Open,
    /* driverFacts */ &Facts,
    /* listGpus */ nullptr,
    /* claimRow */ &Claim,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ &Count,
    /* shaderCores */ nullptr,
    /* close */ &Close,
};

}  // namespace ProbeGPU
