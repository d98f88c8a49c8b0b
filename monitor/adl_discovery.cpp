// AMD's Windows interface as discovery sees it: the whole GPU list of an
// AMD display, the first adapter's name for the driver description, and
// the first GPU's video memory.
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "monitor/vendor_backend.h"

namespace ProbeGPU {
namespace {

bool Open(Root& root, const ContextRequest&) {
    AdlBackend& adl = root.caps.adl;
    gProbeLog.Write("ATI_Init() START");
    bool ok = adl.Init(AdlBackend::LibraryNames());
    gProbeLog.Write("AtiMultiGPUAdapters = %d", adl.count());
    gProbeLog.Write("ATI_Init() END OK.");
    return ok;
}

void Facts(const Root& root, DriverFacts* f) {
    f->amdAdapterName = root.caps.adl.count() > 0 ? root.caps.adl.gpu(0).name : std::string();
}

void List(Root& root, std::vector<GpuSlot>* gpus) {
    HardwareCaps& caps = root.caps;
    if (caps.vendorClass != kVendorAmd) return;
    for (int i = 0; i < caps.adl.count(); ++i) {
        const AdlBackend::Gpu& g = caps.adl.gpu(i);
        PciIdFields f = ParsePnpIdString(g.pnpId.c_str());
        GpuSlot s;
        s.name = g.name;
        s.pciVendor = g.vendor;
        s.pciDevice = g.device;
        s.subsystemVendor = f.subsystemVendor();
        s.subsystemDevice = f.subsystemDevice();
        s.backend = &caps.adl;
        s.backendIndex = i;
        s.adapterRow = MatchAdapterRow(caps, g.vendor, g.device, f.subsystem);
        // The driver's own version text: its registry key's Catalyst version.
        s.driverVersion = caps.driverKey.catalystVersion;
        FillSlotFromDatabase(&s);
        gpus->push_back(s);
    }
}

// AMD's own figure; without one the driver key's figure follows.
bool Memory(const Root& root, int* mb) {
    if (root.caps.vendorClass != kVendorAmd || root.caps.adl.count() == 0) return false;
    int m = static_cast<int>(root.caps.adl.gpu(0).memoryMB);
    if (m <= 0) return false;
    *mb = m;
    return true;
}

bool Count(const Root& root, int* n) {
    if (root.caps.vendorClass != kVendorAmd) return false;
    *n = root.caps.adl.count();
    return true;
}

void Close(Root& root) { root.caps.adl.Shutdown(); }

}  // namespace

extern const VendorBackend kAdlDiscovery = {
    /* name */ "ADL",
    /* platforms */ kOnWindows,
    /* stage */ DiscoveryStage::kInventory,
    /* logStep */ "ATI_Init()",
    /* listAdapters */ nullptr,
    /* open */ &Open,
    /* driverFacts */ &Facts,
    /* listGpus */ &List,
    /* claimRow */ nullptr,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ &Count,
    /* shaderCores */ nullptr,
    /* close */ &Close,
};

}  // namespace ProbeGPU
