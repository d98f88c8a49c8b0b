// NVIDIA's Windows interface as discovery sees it: the whole GPU list of an
// NVIDIA display, their driver version and branch, video memory and shader
// cores of the first GPU.
#include "monitor/probe_gpu.h"
#include "monitor/vendor_backend.h"

namespace ProbeGPU {
namespace {

bool Open(Root& root, const ContextRequest&) {
    return root.caps.nvapi.Init(NvapiBackend::LibraryName(), NvapiBackend::kNvcplLibrary);
}

void Facts(const Root& root, DriverFacts* f) {
    f->nvidiaVersion = root.caps.nvapi.DriverVersionText();
    f->nvidiaBranch = root.caps.nvapi.branch();
}

void List(Root& root, std::vector<GpuSlot>* gpus) {
    HardwareCaps& caps = root.caps;
    if (caps.vendorClass != kVendorNvidia) return;
    for (int i = 0; i < caps.nvapi.count(); ++i) {
        const NvapiBackend::Gpu& g = caps.nvapi.gpu(i);
        GpuSlot s;
        s.name = g.name;
        s.pciVendor = static_cast<int>(g.vendor);
        s.pciDevice = static_cast<int>(g.device);
        s.subsystemVendor = static_cast<int>(g.subsystem & 0xFFFF);
        s.subsystemDevice = static_cast<int>(g.subsystem >> 16);
        s.backend = &caps.nvapi;
        s.backendIndex = i;
        s.adapterRow = MatchAdapterRow(caps, s.pciVendor, s.pciDevice, static_cast<int>(g.subsystem));
        s.driverVersion = caps.nvapi.DriverDisplayText();
        FillSlotFromDatabase(&s);
        gpus->push_back(s);
    }
}

// NVIDIA's own figure; without one the OpenGL context's figure follows.
bool Memory(const Root& root, int* mb) {
    if (root.caps.vendorClass != kVendorNvidia || root.caps.nvapi.count() == 0) return false;
    int m = static_cast<int>(root.caps.nvapi.gpu(0).dedicatedKB >> 10);
    if (m <= 0) return false;
    *mb = m;
    return true;
}

bool Count(const Root& root, int* n) {
    if (root.caps.vendorClass != kVendorNvidia) return false;
    *n = root.caps.nvapi.count();
    return true;
}

int Cores(const Root& root) { return root.caps.nvapi.count() > 0 ? static_cast<int>(root.caps.nvapi.gpu(0).cores) : 0; }

void Close(Root& root) { root.caps.nvapi.Shutdown(); }

}  // namespace

extern const VendorBackend kNvapiDiscovery = {
    /* name */ "NVAPI",
    /* platforms */ kOnWindows,
    /* stage */ DiscoveryStage::kInventory,
    /* logStep */ "NVAPI_Init()",
    /* listAdapters */ nullptr,
    /* open */ &Open,
    /* driverFacts */ &Facts,
    /* listGpus */ &List,
    /* claimRow */ nullptr,
    /* videoMemoryMB */ &Memory,
    /* apiGpuCount */ &Count,
    /* shaderCores */ &Cores,
    /* close */ &Close,
};

}  // namespace ProbeGPU
