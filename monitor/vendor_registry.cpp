// The list of vendor back-ends and the walks discovery makes over it.
//
// Registration is this explicit list, not self-registering static objects:
// the monitor is a static library, and the linker drops an object file that
// nothing references, so a back-end whose only tie to the program was a
// registrar object's constructor would silently vanish from discovery. Each
// back-end file exports one descriptor, and naming it here is what pulls
// that file into every program that discovers GPUs.
#include "monitor/vendor_backend.h"

#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {

// The descriptors, one per back-end file (*_discovery.cpp).
extern const VendorBackend kNvapiDiscovery;
extern const VendorBackend kAdlDiscovery;
extern const VendorBackend kDriverKeyDiscovery;
extern const VendorBackend kNvmlDiscovery;
extern const VendorBackend kSysfsDiscovery;
extern const VendorBackend kGlFactsDiscovery;

namespace {

const std::vector<const VendorBackend*>* gTestBackends = nullptr;

const std::vector<const VendorBackend*>& Active() { return gTestBackends ? *gTestBackends : VendorBackends(); }

}  // namespace

unsigned ThisPlatform() {
#if defined(_WIN32)
    return kOnWindows;
#else
    return kOnLinux;
#endif
}

const std::vector<const VendorBackend*>& AllVendorBackends() {
    // Discovery order. Windows: NVIDIA's interface, then AMD's, then the
    // display driver's registry key. Linux: NVML, then every other device
    // through sysfs. The OpenGL facts probe opens at start-up, after them,
    // and is closed last.
    static const std::vector<const VendorBackend*> all = {&kNvapiDiscovery, &kAdlDiscovery,  &kDriverKeyDiscovery,
                                                          &kNvmlDiscovery,  &kSysfsDiscovery, &kGlFactsDiscovery};
    return all;
}

const std::vector<const VendorBackend*>& VendorBackends() {
    static const std::vector<const VendorBackend*> mine = [] {
        std::vector<const VendorBackend*> v;
        for (const VendorBackend* b : AllVendorBackends())
            if (b->platforms & ThisPlatform()) v.push_back(b);
        return v;
    }();
    return mine;
}

void SetVendorBackendsForTests(const std::vector<const VendorBackend*>* backends) { gTestBackends = backends; }

void ListAdapters(Root& root) {
    for (const VendorBackend* b : Active()) {
        if (!b->listAdapters) continue;
        b->listAdapters(root);
        return;
    }
}

bool OpenStage(Root& root, DiscoveryStage stage, const ContextRequest& request) {
    for (const VendorBackend* b : Active()) {
        if (b->stage != stage) continue;
        if (stage == DiscoveryStage::kContext) {
            if (!b->open(root, request)) return false;
            continue;
        }
        // A vendor whose library is missing or broken is not an error of the
        // inventory: the next back-end still gets its turn.
        if (b->logStep) gProbeLog.Write("HardwareCaps::init() - %s", b->logStep);
        b->open(root, request);
        if (b->logStep) gProbeLog.Write("HardwareCaps::init() - %s OK.", b->logStep);
    }
    return true;
}

void CollectDriverFacts(const Root& root, DriverFacts* facts) {
    for (const VendorBackend* b : Active())
        if (b->driverFacts) b->driverFacts(root, facts);
}

void ListGpus(Root& root, std::vector<GpuSlot>* gpus) {
    for (const VendorBackend* b : Active()) {
        if (!b->listGpus) continue;
        b->listGpus(root, gpus);
        if (!gpus->empty()) return;
    }
}

bool ClaimRow(const Root& root, int row, GpuSlot* slot) {
    for (const VendorBackend* b : Active())
        if (b->claimRow && b->claimRow(root, row, slot)) return true;
    return false;
}

bool DecideVideoMemory(const Root& root, int* mb) {
    for (const VendorBackend* b : Active())
        if (b->videoMemoryMB && b->videoMemoryMB(root, mb)) return true;
    return false;
}

bool VendorApiGpuCount(const Root& root, int* count) {
    for (const VendorBackend* b : Active())
        if (b->apiGpuCount && b->apiGpuCount(root, count)) return true;
    return false;
}

int VendorShaderCores(const Root& root) {
    for (const VendorBackend* b : Active()) {
        int n = b->shaderCores ? b->shaderCores(root) : 0;
        if (n > 0) return n;
    }
    return 0;
}

void CloseAll(Root& root) {
    for (const VendorBackend* b : Active())
        if (b->close) b->close(root);
}

}  // namespace ProbeGPU
