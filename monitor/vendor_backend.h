// How discovery sees a vendor back-end: a table of functions, one per step
// of the inventory, that each back-end's *_discovery.cpp file exports. The
// live sensor reads do not go through here: a back-end hands its
// GpuSensorBackend to the GPU slots it lists (monitor/sensor_backend.h).
//
// Discovery (probe_gpu.cpp) walks the registry (vendor_registry.cpp) in its
// order and never names a back-end; a back-end that does not exist on this
// platform is left out by the registry, not by #if blocks in discovery.
#pragma once

#include <vector>

namespace ProbeGPU {

class HardwareCaps;
struct Root;
struct GpuSlot;
struct DriverFacts;

// The platforms a back-end exists on.
enum BackendPlatform : unsigned {
    kOnWindows = 1u << 0,
    kOnLinux = 1u << 1,
};

// When a back-end is opened: while the inventory is built (HardwareCaps::init,
// before there is any OpenGL context), or at start-up, where the probe's own
// OpenGL context is made.
enum class DiscoveryStage { kInventory, kContext };

// What startup() was asked for; only the context stage uses it.
struct ContextRequest {
    int x = 0, y = 0, width = 0, height = 0;
    int opt1 = 0, opt2 = 0, opt3 = 0;
};

// Every function but open may be null: the back-end has nothing to say there.
struct VendorBackend {
    const char* name;    // "NVAPI", "ADL", "NVML", ...
    unsigned platforms;  // BackendPlatform bits
    DiscoveryStage stage;
    // The inventory stage brackets open() in the start-up log with
    // "HardwareCaps::init() - <logStep>" and "... OK." lines; null: no lines.
    const char* logStep;
    // Fills the adapter table with the display devices as this platform
    // sees them and chooses the display device; only the first back-end
    // that has it runs, before any back-end is opened.
    void (*listAdapters)(Root& root);
    // Loads the interface and lists its devices. False: the interface is not
    // there or failed. The inventory stage goes on with the next back-end;
    // the context stage stops start-up (without its facts the scan cannot run).
    bool (*open)(Root& root, const ContextRequest& request);
    // Static facts read once for the scan's driver description.
    void (*driverFacts)(const Root& root, DriverFacts* facts);
    // Appends the GPUs the interface reads as a whole list (one vendor's
    // interface serves every GPU). The first back-end that lists any wins.
    void (*listGpus)(Root& root, std::vector<GpuSlot>* gpus);
    // Fills a GPU slot of one adapter row when the interface reads that
    // row's device; false when it does not.
    bool (*claimRow)(const Root& root, int row, GpuSlot* slot);
    // The video memory figure when this back-end decides it (true, even
    // with 0); false leaves it to the next one.
    bool (*videoMemoryMB)(const Root& root, int* mb);
    // The vendor interface's GPU count when it serves the display device's
    // maker; false otherwise.
    bool (*apiGpuCount)(const Root& root, int* count);
    // The vendor's own shader core count of the first GPU, 0 when unknown.
    int (*shaderCores)(const Root& root);
    // Lets go of the interface; run for every back-end of the platform.
    void (*close)(Root& root);
};

// The back-ends of this platform in discovery order.
const std::vector<const VendorBackend*>& VendorBackends();
// All back-ends the program has, whatever the platform, in discovery order.
const std::vector<const VendorBackend*>& AllVendorBackends();
// The BackendPlatform bit of the running build.
unsigned ThisPlatform();

// Tests run discovery over a registry of their own; nullptr restores the
// program's.
void SetVendorBackendsForTests(const std::vector<const VendorBackend*>* backends);

// The walks discovery makes. Each goes through the back-ends in order.
void ListAdapters(Root& root);
// Opens the back-ends of a stage; for the context stage false as soon as one fails.
bool OpenStage(Root& root, DiscoveryStage stage, const ContextRequest& request);
void CollectDriverFacts(const Root& root, DriverFacts* facts);
void ListGpus(Root& root, std::vector<GpuSlot>* gpus);
bool ClaimRow(const Root& root, int row, GpuSlot* slot);
bool DecideVideoMemory(const Root& root, int* mb);
bool VendorApiGpuCount(const Root& root, int* count);
int VendorShaderCores(const Root& root);
// In order; the context back-end comes last in the list, so the vendor
// libraries let go before the context they may refer to is destroyed.
void CloseAll(Root& root);

}  // namespace ProbeGPU
