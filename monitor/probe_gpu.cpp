#include "monitor/probe_gpu.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "monitor/gpu_db.h"
#include "monitor/probe_log.h"
#include "monitor/vendor_backend.h"
#include "platform/platform.h"

namespace ProbeGPU {

Globals gGlobals;

namespace {

std::atomic<Root*> gRoot{nullptr};
ContextFactory gContextFactory = nullptr;
DisplayEnumerator gDisplayEnumerator = nullptr;

// A database row for a device ID that several boards share names the family
// ("... Series"), and a row from the PCI id lists may know only the chip
// ("NVIDIA Mobile GPU (GK107M)"); the adapter's own description, where it
// has one, says which board this is.
bool NamesAFamily(const char* s) { return NamesSeveralProducts(s); }

void CopyText(char* dst, size_t size, const std::string& s) { CopyFixed(dst, size, s.c_str()); }

}  // namespace

// ------------------------------------------------------------ rules

int ShaderCoreCount(int vendorClass, int pciDevice, int nvidiaCores, int amdUnits, int databaseUnified) {
    if (vendorClass == kVendorNvidia && nvidiaCores > 0) return nvidiaCores;
    if (vendorClass == kVendorAmd && amdUnits > 0) return amdUnits * ((pciDevice >= 0x6700 && pciDevice <= 0x671D) ? 64 : 80);
    return databaseUnified;
}

const char* Name6798(const char* adapterDescription) {
    return (adapterDescription && std::strstr(adapterDescription, "Radeon HD 7900")) ? "AMD Radeon HD 7970" : "AMD Radeon R9 280X";
}

std::string DriverDescription(const DriverFacts& f) {
    char buf[1024];
    buf[0] = '\0';
    if (f.vendorClass == kVendorNvidia && !f.nvidiaVersion.empty()) {
        if (!f.glVersion.empty())
            std::snprintf(buf, sizeof buf, "Forceware %s (%s) - GL:%s", f.nvidiaVersion.c_str(), f.nvidiaBranch.c_str(),
                          f.glVersion.c_str());
        else
            std::snprintf(buf, sizeof buf, "Forceware %s (%s)", f.nvidiaVersion.c_str(), f.nvidiaBranch.c_str());
    } else if (f.vendorClass == kVendorAmd && !f.amdCatalyst.empty()) {
        if (!f.amdAdapterName.empty() && !f.amdDriverVersion.empty())
            std::snprintf(buf, sizeof buf, "%s - Catalyst %s (%s)", f.amdAdapterName.c_str(), f.amdCatalyst.c_str(),
                          f.amdDriverVersion.c_str());
        else
            std::snprintf(buf, sizeof buf, "Catalyst %s", f.amdCatalyst.c_str());
    }
    if (buf[0]) return buf;
    if (f.genericVersion.empty()) return "unknown";
    if (!f.genericBranch.empty() && !f.glVersion.empty())
        std::snprintf(buf, sizeof buf, "%s (%s) - GL:%s", f.genericVersion.c_str(), f.genericBranch.c_str(), f.glVersion.c_str());
    else if (!f.genericBranch.empty())
        std::snprintf(buf, sizeof buf, "%s (%s)", f.genericVersion.c_str(), f.genericBranch.c_str());
    else
        std::snprintf(buf, sizeof buf, "%s", f.genericVersion.c_str());
    return buf;
}

std::string GlVersionText(const std::string& glVersion) {
    if (glVersion.empty()) return "n.a.";
    size_t p = glVersion.find("Version");
    if (p == std::string::npos) return glVersion;
    std::string rest = glVersion.substr(p + 7);
    size_t s = rest.find_first_not_of(" :");
    return s == std::string::npos ? std::string("n.a.") : rest.substr(s);
}

bool IsPhysXOnGpuValue(const std::string& hwSelection) {
    // Four bytes compared, the terminator included: "GPU " and "gpu" do not count.
    return hwSelection.size() == 3 && std::memcmp(hwSelection.c_str(), "GPU", 4) == 0;
}

int PciVendorOfGlVendor(const std::string& v) {
    if (v.find("NVIDIA") != std::string::npos) return kPciVendorNvidia;
    if (v.find("ATI Technologies") != std::string::npos || v == "AMD" || v.find("Advanced Micro Devices") != std::string::npos)
        return kPciVendorAmd;
    if (v.find("Intel") != std::string::npos) return kPciVendorIntel;
    return -1;
}

// ------------------------------------------------------------ HardwareCaps

void HardwareCaps::ChooseDisplayDevice(const DisplayDeviceRecord& d) {
    CopyText(m_display_device_id_string, sizeof m_display_device_id_string, d.id);
    CopyText(m_display_device_name, sizeof m_display_device_name, d.name);
    CopyText(m_display_device_string, sizeof m_display_device_string, d.string);
    displayDeviceKey = d.key;
    gProbeLog.Write("HardwareCaps::_readDisplayDeviceData - m_display_device_id_string: %s", m_display_device_id_string);
    gProbeLog.Write("HardwareCaps::_readDisplayDeviceData - m_display_device_name: %s", m_display_device_name);
    gProbeLog.Write("HardwareCaps::_readDisplayDeviceData - m_display_device_string: %s", m_display_device_string);
    displayDeviceFound = m_display_device_string[0] != '\0';
    ids = PciIdFields();
    if (displayDeviceFound) ids = ParsePnpIdString(m_display_device_id_string);
    vendorClass = VendorClassOf(ids.vendor);
}

void HardwareCaps::_readDisplayDeviceData(Root& root) {
    if (displayDeviceFound) return;
    m_display_device_name[0] = m_display_device_string[0] = m_display_device_id_string[0] = '\0';
    ids = PciIdFields();
    adapters.Clear();
    rowSources.clear();
    displayRow = -1;
    // The platform's view of the display devices: the first back-end that
    // lists adapters fills the table and chooses the display device.
    ListAdapters(root);
}

void HardwareCaps::_queryCPUInfo() {
    cpu = QueryCpuInfo();
    osName = OperatingSystemName();
}

void HardwareCaps::init(Root& root) {
    gProbeLog.Write("HardwareCaps::init() - START");
    _readDisplayDeviceData(root);
    tuningVoltageScale = 1.1f;
    tuningClockScale = 1.0f;
    tuningPowerScale = 1.0f;
    tuningRefreshTemperature = 1;
    tuningRefreshClocks = 1;
    tuningHistoryCapacity = 1024;
    gProbeLog.Write("HardwareCaps::init() - _queryCPUInfo()");
    _queryCPUInfo();
    gProbeLog.Write("HardwareCaps::init() - _queryCPUInfo() OK.");
    OpenStage(root, DiscoveryStage::kInventory, ContextRequest());
    gProbeLog.Write("HardwareCaps::init() - END OK.");
}

// ------------------------------------------------------------ life cycle

Root* getRoot() {
    Root* r = gRoot.load(std::memory_order_acquire);
    if (r) return r;
    r = new Root();
    r->liveObjects.push_back(r);
    gRoot.store(r, std::memory_order_release);
    r->caps.init(*r);
    return r;
}

void SetContextFactoryForTests(ContextFactory factory) { gContextFactory = factory; }
ContextFactory ContextFactoryForTests() { return gContextFactory; }
void SetDisplayEnumeratorForTests(DisplayEnumerator enumerator) { gDisplayEnumerator = enumerator; }
DisplayEnumerator DisplayEnumeratorForTests() { return gDisplayEnumerator; }

bool startup(int x, int y, int width, int height, int opt1, int opt2, int opt3) {
    gProbeLog.Write("ProbeGPU::startup()");
    Root* root = getRoot();
    if (gGlobals.started) return true;
    if (!root->window) return false;
    HardwareCaps& caps = root->caps;
    if (!root->contextUsable) {
        ContextRequest request;
        request.x = x;
        request.y = y;
        request.width = width;
        request.height = height;
        request.opt1 = opt1;
        request.opt2 = opt2;
        request.opt3 = opt3;
        if (!OpenStage(*root, DiscoveryStage::kContext, request)) return false;

        gProbeLog.Write("ProbeGPU::startup() - PhysX info");
        uint32_t physx = 0;
        if (platform::ReadRegistryDword("SOFTWARE\\AGEIA Technologies", "PhysX Version", &physx)) gGlobals.physx_version = physx;
        std::string hw;
        if (platform::ReadRegistryString("SOFTWARE\\AGEIA Technologies", "HwSelection", &hw) && hw.size() <= 511)
            gGlobals.physx_on_gpu = IsPhysXOnGpuValue(hw);
        gProbeLog.Write("ProbeGPU::startup() - PhysX info OK.");
    }
    if (!caps.displayDeviceFound) return true;
    gGlobals.started = true;
    gProbeLog.Write("ProbeGPU::startup() - scanGraphicsHardware()");
    bool result = scanGraphicsHardware();
    gProbeLog.Write("ProbeGPU::startup() - scanGraphicsHardware() OK.");
    gProbeLog.Write("ProbeGPU::startup() OK.");
    return result;
}

void FillSlotFromDatabase(GpuSlot* s) {
    int cls = VendorClassOf(s->pciVendor);
    const GpuDatabaseEntry* row = DatabaseRow(cls, DatabaseLookup(cls, s->pciDevice, s->subsystemVendor, s->subsystemDevice));
    if (!row) return;
    s->pixelUnits = row->ropUnits > 0 ? row->ropUnits : 0;
    s->textureUnits = row->textureUnits > 0 ? row->textureUnits : 0;
    s->boardPowerW = row->boardPowerW;
    if (s->name.empty()) s->name = row->fullName;
}

int MatchAdapterRow(const HardwareCaps& caps, int vendor, int device, int subsystem) {
    int fallback = -1;
    for (int r = 0; r < caps.adapters.count(); ++r) {
        PciIdFields f = ParsePnpIdString(caps.adapters.row(r).deviceId);
        if (f.vendor != vendor || f.device != device) continue;
        if (subsystem < 0 || f.subsystem == subsystem) return r;
        if (fallback < 0) fallback = r;
    }
    return fallback;
}

namespace {

// The GPU list: a vendor interface that serves the display's maker lists
// them all (Windows); otherwise one GPU per adapter row whose source is
// known (Linux), read by the back-end that claims the row; failing both, the
// display device alone, without a sensor interface.
void BuildGpuList(Root* root) {
    HardwareCaps& caps = root->caps;
    root->gpus.clear();
    ListGpus(*root, &root->gpus);
    if (!root->gpus.empty()) return;
    for (size_t r = 0; r < caps.rowSources.size() && static_cast<int>(r) < caps.adapters.count(); ++r) {
        const RowSource& src = caps.rowSources[r];
        const DisplayAdapterEntry& row = caps.adapters.row(static_cast<int>(r));
        PciIdFields f = ParsePnpIdString(row.deviceId);
        bool knownMaker = f.vendor == kPciVendorNvidia || f.vendor == kPciVendorAmd || f.vendor == kPciVendorIntel;
        if (!knownMaker && static_cast<int>(r) != caps.displayRow) continue;
        GpuSlot s;
        s.pciVendor = f.vendor;
        s.pciDevice = f.device;
        s.subsystemVendor = f.subsystemVendor();
        s.subsystemDevice = f.subsystemDevice();
        s.adapterRow = static_cast<int>(r);
        s.name = row.deviceString;
        if (!ClaimRow(*root, static_cast<int>(r), &s) && src.drm >= 0 && static_cast<size_t>(src.drm) < caps.drmDevices.size())
            s.driverVersion = caps.drmDevices[static_cast<size_t>(src.drm)].driver;  // the kernel's driver, unread
        if (static_cast<int>(r) == caps.displayRow && caps.m_display_device_string[0]) s.name = caps.m_display_device_string;
        FillSlotFromDatabase(&s);
        // The display device leads the list.
        if (static_cast<int>(r) == caps.displayRow) root->gpus.insert(root->gpus.begin(), s);
        else root->gpus.push_back(s);
    }
    if (root->gpus.empty()) {
        // One GPU without a sensor interface: the display device itself.
        GpuSlot s;
        s.name = caps.m_display_device_string;
        s.pciVendor = caps.ids.vendor;
        s.pciDevice = caps.ids.device;
        s.subsystemVendor = caps.ids.subsystemVendor();
        s.subsystemDevice = caps.ids.subsystemDevice();
        s.adapterRow = caps.displayRow;
        FillSlotFromDatabase(&s);
        root->gpus.push_back(s);
    }
}

}  // namespace

bool scanGraphicsHardware() {
    Root* root = getRoot();
    HardwareCaps& caps = root->caps;
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - START");
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 01");
    const int cls = caps.vendorClass;
    gGlobals.gpu_db_index = DatabaseLookup(cls, caps.ids.device, caps.ids.subsystemVendor(), caps.ids.subsystemDevice());
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - gGlobals.gpu_db_index: %d", gGlobals.gpu_db_index);
    const GpuDatabaseEntry* row = DatabaseRow(cls, gGlobals.gpu_db_index);
    // A row that several boards share names their family; the adapter's
    // own description says which one this is.
    if (row && (!NamesAFamily(row->fullName) || caps.m_display_device_string[0] == '\0'))
        CopyFixed(gGlobals.gpu_name, sizeof gGlobals.gpu_name, row->fullName);
    else
        CopyFixed(gGlobals.gpu_name, sizeof gGlobals.gpu_name, caps.m_display_device_string);
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 02");
    if (caps.ids.vendor == kPciVendorAmd && caps.ids.device == 0x6798)
        CopyFixed(gGlobals.gpu_name, sizeof gGlobals.gpu_name, Name6798(caps.m_display_device_string));
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 03");

    DriverFacts facts;
    facts.vendorClass = cls;
    facts.glVersion = gGlobals.gl_version_string;
    CollectDriverFacts(*root, &facts);
    CopyFixed(gGlobals.driver_description, sizeof gGlobals.driver_description, DriverDescription(facts).c_str());
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 04");

    CopyFixed(gGlobals.code_name, sizeof gGlobals.code_name, row ? row->codeName : "n.a.");
    gGlobals.unified_shaders = row ? row->unifiedShaders : 0;
    gGlobals.vertex_units = row ? row->vertexUnits : 0;
    gGlobals.pixel_units = row ? row->pixelUnits : 0;
    gGlobals.d3d_level = row ? row->d3dLevel : 0;
    gGlobals.texture_units = row ? row->textureUnits : 0;
    gGlobals.rop_units = row ? row->ropUnits : 0;
    gGlobals.board_power_w = row ? row->boardPowerW : 0;
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 05");

    // Video memory: the first back-end in the registry's order that decides
    // it (a vendor interface's own figure, the driver's, then OpenGL's).
    BuildGpuList(root);
    int memory = 0;
    DecideVideoMemory(*root, &memory);
    gGlobals.video_memory_mb = memory;
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 06");

    CopyFixed(gGlobals.gl_version_text, sizeof gGlobals.gl_version_text, GlVersionText(gGlobals.gl_version_string).c_str());
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 07");

    gGlobals.pci_vendor_id = caps.ids.vendor;
    gGlobals.pci_device_id = caps.ids.device;
    gGlobals.subsystem_vendor_id = caps.ids.subsystemVendor();
    gGlobals.subsystem_device_id = caps.ids.subsystemDevice();
    VendorApiGpuCount(*root, &gGlobals.vendor_api_gpu_count);
    gGlobals.gpu_count = std::max(1, static_cast<int>(root->gpus.size()));
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 08");

    CopyFixed(gGlobals.os_name, sizeof gGlobals.os_name, caps.osName.c_str());
    CopyFixed(gGlobals.cpu_name, sizeof gGlobals.cpu_name, caps.cpu.brandName.c_str());
    CopyFixed(gGlobals.cpu_vendor, sizeof gGlobals.cpu_vendor, caps.cpu.vendorString.c_str());
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 09");
    gGlobals.cpu_cores = caps.cpu.logicalCores;
    gGlobals.cpu_speed_mhz = caps.cpu.speedMHz;
    gGlobals.cpu_family = caps.cpu.family;
    gGlobals.cpu_model = caps.cpu.model;
    gGlobals.cpu_stepping = caps.cpu.stepping;
    gGlobals.system_memory_mb = caps.cpu.memoryMB;
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 10");
    gGlobals.dual_capability = caps.capabilities[ProbeGPUnm::kCapTessellation] && caps.capabilities[ProbeGPUnm::kCapComputeShader];
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 11");
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - live objects: %d", static_cast<int>(root->liveObjects.size()));
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 12");
    for (size_t i = 0; i < root->gpus.size(); ++i)
        gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - GPU %d: %s [%04X-%04X] via %s", static_cast<int>(i),
                        root->gpus[i].name.c_str(), root->gpus[i].pciVendor & 0xFFFF, root->gpus[i].pciDevice & 0xFFFF,
                        root->gpus[i].backend ? root->gpus[i].backend->Name() : "no sensor interface");
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - 13");
    gProbeLog.Write("ProbeGPU::scanGraphicsHardware() - END");
    return true;
}

void shutdown() {
    Root* root = gRoot.exchange(nullptr, std::memory_order_acq_rel);
    if (!root) return;
    gProbeLog.Write("ProbeGPU::shutdown()");
    // Vendor libraries first (they may refer to the driver's context), then
    // the dummy context and window: the registry lists the context last.
    root->gpus.clear();
    CloseAll(*root);
    root->liveObjects.clear();
    delete root;
    gGlobals = Globals();
}

// ------------------------------------------------------------ accessors

bool isDisplayDeviceFound() {
    Root* r = gRoot.load(std::memory_order_acquire);
    return r && r->caps.displayDeviceFound;
}
bool isStarted() { return gGlobals.started; }
int getVideoMemoryMB() { return gGlobals.video_memory_mb; }
int getPciVendorId() { return gGlobals.pci_vendor_id; }
int getPciDeviceId() { return gGlobals.pci_device_id; }
int getVendorApiGpuCount() { return gGlobals.vendor_api_gpu_count; }
int getGpuCount() { return gGlobals.gpu_count < 1 ? 1 : gGlobals.gpu_count; }
int getD3DLevel() { return gGlobals.d3d_level; }
int getTextureUnits() { return gGlobals.texture_units; }
int getRopUnits() { return gGlobals.rop_units; }

int getShaderCoreCount() {
    Root* r = gRoot.load(std::memory_order_acquire);
    int nvidiaCores = r ? VendorShaderCores(*r) : 0;
    // No interface the library loads reports AMD's unit count, so the AMD
    // branch of the rule falls through to the database.
    return ShaderCoreCount(VendorClassOf(gGlobals.pci_vendor_id), gGlobals.pci_device_id, nvidiaCores, 0,
                           gGlobals.unified_shaders);
}

const char* getGpuName() { return gGlobals.gpu_name[0] ? gGlobals.gpu_name : "Unknown"; }
const char* getDriverDescription() { return gGlobals.driver_description; }
const char* getCodeName() { return gGlobals.code_name; }
const char* getOsName() { return gGlobals.os_name; }
const char* getCpuName() { return gGlobals.cpu_name; }
const char* getCpuVendor() { return gGlobals.cpu_vendor; }
int getCpuSpeedMHz() { return gGlobals.cpu_speed_mhz; }
int getCpuCores() { return gGlobals.cpu_cores; }
uint64_t getSystemMemoryMB() { return gGlobals.system_memory_mb; }
const char* getGlRenderer() { return gGlobals.gl_renderer; }
const char* getGlVersionString() { return gGlobals.gl_version_string; }
int getGlMajorVersion() { return gGlobals.gl_major; }
int getGlMinorVersion() { return gGlobals.gl_minor; }
int getGlMaxTextureSize() { return gGlobals.gl_max_texture_size; }
int getGlMaxViewportWidth() { return gGlobals.gl_max_viewport_width; }
int getGlMaxViewportHeight() { return gGlobals.gl_max_viewport_height; }
float getGlMaxTessLevel() { return gGlobals.gl_max_tess_level; }
bool isVista() { return gGlobals.vista; }
uint32_t getPhysXVersion() { return gGlobals.physx_version; }
bool isPhysXOnGpu() { return gGlobals.physx_on_gpu; }
bool hasComputeShaders() { return gGlobals.gl_major > 4 || (gGlobals.gl_major == 4 && gGlobals.gl_minor >= 3); }

bool getAmdDriverFacts(std::string* version, std::string* packaging, std::string* date) {
    Root* r = gRoot.load(std::memory_order_acquire);
    if (!r || r->caps.driverKey.catalystVersion.empty()) return false;
    *version = r->caps.driverKey.catalystVersion;
    *packaging = r->caps.driverKey.packagingVersion;
    *date = r->caps.driverKey.driverDate;
    return true;
}

const HardwareCaps* getHardwareCaps() {
    Root* r = gRoot.load(std::memory_order_acquire);
    return r ? &r->caps : nullptr;
}

// ------------------------------------------------------------ per GPU

const GpuSlot* getGpu(int gpu) {
    Root* r = gRoot.load(std::memory_order_acquire);
    if (!r || gpu < 0 || gpu >= static_cast<int>(r->gpus.size())) return nullptr;
    return &r->gpus[static_cast<size_t>(gpu)];
}

namespace {
GpuSensorBackend* Backend(int gpu, int* index) {
    const GpuSlot* s = getGpu(gpu);
    if (!s || !s->backend) return nullptr;
    *index = s->backendIndex;
    return s->backend;
}
}  // namespace

bool readTemperature(int gpu, float* celsius, int* threshold, int* hotspot, int* memory) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    TemperatureReading t;
    if (!b || !b->Temperature(i, &t)) return false;
    *celsius = t.celsius;
    if (threshold) *threshold = t.threshold;
    if (hotspot) *hotspot = t.hotspot;
    if (memory) *memory = t.memory;
    return true;
}

bool readUsage(int gpu, int* load, int* memoryLoad) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    int l = 0, m = -1;
    if (!b || !b->Usage(i, &l, &m)) return false;
    *load = l;
    if (memoryLoad) *memoryLoad = m;
    return true;
}

bool readMemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->MemoryUsage(i, totalMB, usedMB, freeMB);
}

bool readFan(int gpu, int* value, int* isRpm) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->Fan(i, value, isRpm);
}

int getNumPerfLevels(int gpu) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b ? b->NumPerfLevels(i) : 0;
}

bool readPerfLevels(int gpu, bool defaults, std::vector<PerfLevel>* levels) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->PerfLevels(i, defaults, levels);
}

bool readClocks(int gpu, int* pstate, float* coreMHz, float* memoryMHz, float* voltage) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    ClockReading c;
    if (!b || !b->Clocks(i, &c)) return false;
    *pstate = c.performanceState;
    *coreMHz = c.coreMHz;
    *memoryMHz = c.memoryMHz;
    *voltage = c.voltage;
    return true;
}

bool readPower(int gpu, int rail, int* percent, int* available) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->Power(i, rail, percent, available);
}

bool hasExtraPowerRails(int gpu) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->HasExtraRails(i);
}

bool readVoltage(int gpu, float* volts) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->Voltage(i, volts);
}

bool readClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->ClockCeiling(i, ceilingMHz, boundMHz);
}

bool readBaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->BaseBoostClocks(i, baseMHz, boostMHz);
}

bool readPowerTarget(int gpu, float* percent) {
    int i = 0;
    GpuSensorBackend* b = Backend(gpu, &i);
    return b && b->PowerTarget(i, percent);
}

}  // namespace ProbeGPU
