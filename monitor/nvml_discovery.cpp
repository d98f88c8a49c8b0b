// NVML as discovery sees it (Linux): each NVIDIA device joins the adapter
// row of its PCI slot (or gets a row of its own, a compute board the kernel
// shows no display device for), names it where the database cannot, and
// reads the rows it joined.
#include "monitor/gpu_db.h"
#include "monitor/probe_gpu.h"
#include "monitor/vendor_backend.h"

namespace ProbeGPU {
namespace {

bool Open(Root& root, const ContextRequest&) {
    HardwareCaps& caps = root.caps;
    NvmlBackend& nvml = caps.nvml;
    if (!nvml.Init(NvmlBackend::LibraryName())) return false;
    for (int i = 0; i < nvml.count(); ++i) {
        const NvmlBackend::Device& nd = nvml.device(i);
        int row = -1;
        for (size_t r = 0; r < caps.rowSources.size(); ++r) {
            const RowSource& src = caps.rowSources[r];
            if (src.drm < 0 || src.nvml >= 0) continue;
            const sysfs::DrmDevice& d = caps.drmDevices[static_cast<size_t>(src.drm)];
            bool sameSlot = !nd.pciSlot.empty() && !d.pciSlot.empty() && nd.pciSlot == d.pciSlot;
            bool sameIds = (nd.pciSlot.empty() || d.pciSlot.empty()) && d.vendor == nd.vendor && d.device == nd.device;
            if (sameSlot || sameIds) {
                row = static_cast<int>(r);
                break;
            }
        }
        if (row < 0) {
            DisplayDeviceRecord rec{"nvml" + std::to_string(i), nd.name,
                                    FormatPnpIdString(nd.vendor, nd.device, nd.subsystemVendor, nd.subsystemDevice, 0), ""};
            int before = caps.adapters.count();
            caps.adapters.Append(rec);
            if (caps.adapters.count() == before) continue;
            caps.rowSources.push_back(RowSource());
            row = caps.adapters.count() - 1;
        } else {
            // NVML's own name beats a generic text.
            int cls = VendorClassOf(static_cast<int>(nd.vendor));
            const GpuDatabaseEntry* db = DatabaseRow(cls, DatabaseLookup(cls, static_cast<int>(nd.device), static_cast<int>(nd.subsystemVendor),
                                                                            static_cast<int>(nd.subsystemDevice)));
            if ((!db || NamesSeveralProducts(db->fullName)) && !nd.name.empty())
                CopyFixed(caps.adapters.mutableRow(row).deviceString, 128, nd.name.c_str());
        }
        caps.rowSources[static_cast<size_t>(row)].nvml = i;
    }
    if (!caps.displayDeviceFound && caps.adapters.count() > 0) {
        const DisplayAdapterEntry& e = caps.adapters.row(0);
        caps.displayRow = 0;
        caps.ChooseDisplayDevice(DisplayDeviceRecord{e.deviceName, e.deviceString, e.deviceId, e.deviceKey});
    } else if (caps.displayDeviceFound && caps.displayRow >= 0 && !caps.descriptionFromDatabase) {
        CopyFixed(caps.m_display_device_string, sizeof caps.m_display_device_string, caps.adapters.row(caps.displayRow).deviceString);
    }
    return true;
}

void Facts(const Root& root, DriverFacts* f) { f->nvidiaVersion = root.caps.nvml.driverVersion(); }

bool Claim(const Root& root, int row, GpuSlot* s) {
    const HardwareCaps& caps = root.caps;
    int index = caps.rowSources[static_cast<size_t>(row)].nvml;
    if (index < 0) return false;
    s->backend = const_cast<NvmlBackend*>(&caps.nvml);
    s->backendIndex = index;
    if (!caps.nvml.device(index).name.empty()) s->name = caps.nvml.device(index).name;
    s->driverVersion = caps.nvml.driverVersion();
    return true;
}

// The live figure of the first GPU where NVML reads it.
bool Memory(const Root& root, int* mb) {
    if (root.gpus.empty() || root.gpus[0].backend != &root.caps.nvml) return false;
    int total = 0, used = 0, freeMB = 0;
    if (!root.gpus[0].backend->MemoryUsage(root.gpus[0].backendIndex, &total, &used, &freeMB) || total <= 0) return false;
    *mb = total;
    return true;
}

bool Count(const Root& root, int* n) {
    if (root.caps.vendorClass != kVendorNvidia) return false;
    *n = root.caps.nvml.count();
    return true;
}

int Cores(const Root& root) { return root.caps.nvml.count() > 0 ? static_cast<int>(root.caps.nvml.device(0).cores) : 0; }

void Close(Root& root) { root.caps.nvml.Shutdown(); }

}  // namespace

extern const VendorBackend kNvmlDiscovery = {
    /* name */ "NVML",
    /* platforms */ kOnLinux,
    /* stage */ DiscoveryStage::kInventory,
    /* logStep */ "NVML_Init()",
    /* listAdapters */ nullptr,
    /* open */ &Open,
    /* driverFacts */ &Facts,
    /* listGpus */ nullptr,
    /* claimRow */ &Claim,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ &Count,
    /* shaderCores */ &Cores,
    /* close */ &Close,
};

}  // namespace ProbeGPU
