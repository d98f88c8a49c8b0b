// ProbeGPU: the program's hardware inventory and sensor layer. A flat set of
// free functions over one global state: the root object (created by the
// first call that needs it) holds the HardwareCaps record and the dummy
// render window; startup() makes the dummy OpenGL context and scans the
// graphics hardware into gGlobals; the accessors read gGlobals; the per-GPU
// sensor calls forward to the vendor interface that owns each GPU. Which
// vendor interfaces there are, in which order they are opened and what each
// adds to the inventory is the back-end registry's (vendor_backend.h).
//
// Threads: startup, the scan and shutdown run on the main thread before any
// other thread uses the library and after they ended. The inventory is not
// written after the scan. The per-GPU sensor calls run on the monitor thread
// (and on the main thread for the start-up report, before the monitor
// thread starts).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "monitor/adl_backend.h"
#include "monitor/gl_probe.h"
#include "monitor/nvapi_backend.h"
#include "monitor/nvml_backend.h"
#include "monitor/pci_id.h"
#include "monitor/sensor_backend.h"
#include "monitor/sysfs.h"
#include "monitor/system_facts.h"

namespace ProbeGPU {

// Which source each adapter row came from (Linux): its DRM device, its
// NVML device, its sysfs sensor device; -1 for none.
struct RowSource {
    int drm = -1;
    int nvml = -1;
    int sysfs = -1;
};

// Windows driver facts of the chosen adapter, read from its registry key.
struct DriverKeyFacts {
    std::string driverVersion, driverDate, catalystVersion, packagingVersion;
    uint32_t memorySize = 0;
};

struct Root;

class HardwareCaps {
public:
    // --- display device (the chosen adapter)
    bool displayDeviceFound = false;
    char m_display_device_name[64] = {0};
    char m_display_device_string[256] = {0};
    char m_display_device_id_string[256] = {0};
    std::string displayDeviceKey;  // the driver's registry key (Windows)
    PciIdFields ids;               // hex fields and parsed numbers, -1 until parsed
    GpuVendorClass vendorClass = kVendorNone;
    AdapterTable adapters;
    // --- CPU and system
    CpuInfo cpu;
    std::string osName;
    // --- defaults stored before any probing (read by the sensor refresh)
    float tuningVoltageScale = 1.1f;
    float tuningClockScale = 1.0f;
    float tuningPowerScale = 1.0f;
    int tuningRefreshTemperature = 1;
    int tuningRefreshClocks = 1;
    int tuningHistoryCapacity = 1024;
    // --- capability list (from the dummy OpenGL context)
    bool capabilities[ProbeGPUnm::kCapCount] = {};
    // --- vendor interfaces
    NvapiBackend nvapi;
    AdlBackend adl;
    NvmlBackend nvml;
    std::unique_ptr<SysfsBackend> sysfs;
    std::vector<sysfs::DrmDevice> drmDevices;
    // Description came from an exact database row (not a shared one, not a
    // generic text): the OpenGL renderer may not replace it.
    bool descriptionFromDatabase = false;
    // The adapter rows' names are the database's or generic texts (the
    // kernel's view), not the driver's own: the renderer may name the board.
    bool adapterNamesGeneric = false;
    std::vector<RowSource> rowSources;  // one per adapter row where known
    int displayRow = -1;                // the display device's adapter row
    DriverKeyFacts driverKey;

    // Runs when the root is built: display device, defaults, CPU, then the
    // inventory stage of the vendor back-ends (vendor_backend.h) in the
    // registry's order; each step bracketed in the log.
    void init(Root& root);
    // Runs once; skipped when the device was already found. The adapter
    // table comes from the back-end that lists adapters on this platform.
    void _readDisplayDeviceData(Root& root);
    void _queryCPUInfo();
    // Takes a display device as the chosen one and parses its ID string.
    void ChooseDisplayDevice(const DisplayDeviceRecord& d);
};

// One GPU of the library's list and the vendor interface that reads it.
struct GpuSlot {
    std::string name;
    int pciVendor = -1, pciDevice = -1, subsystemVendor = -1, subsystemDevice = -1;
    GpuSensorBackend* backend = nullptr;
    int backendIndex = -1;
    int adapterRow = -1;       // row of the adapter table, -1 when not matched
    int pixelUnits = 0;        // ROPs, from the database
    int textureUnits = 0;      // TMUs, from the database
    int boardPowerW = 0;       // from the database
    std::string driverVersion; // the vendor interface's driver text
};

struct Globals {
    int gpu_db_index = -1;
    char gpu_name[256] = {0};
    char driver_description[512] = "unknown";
    char code_name[64] = "n.a.";
    int unified_shaders = 0, vertex_units = 0, pixel_units = 0, d3d_level = 0, texture_units = 0, rop_units = 0;
    int board_power_w = 0;
    bool dual_capability = false;
    int video_memory_mb = 0;
    int pci_vendor_id = -1, pci_device_id = -1;
    int subsystem_vendor_id = -1, subsystem_device_id = -1;
    int gpu_count = 1;
    int vendor_api_gpu_count = 0;
    char os_name[256] = {0};
    char cpu_name[128] = {0};
    char cpu_vendor[16] = {0};
    int cpu_cores = 1, cpu_speed_mhz = 0, cpu_family = 0, cpu_model = 0, cpu_stepping = 0;
    uint64_t system_memory_mb = 0;
    // From the render window: renderer and version texts, and the six
    // figures of its capability block.
    char gl_renderer[256] = {0};
    char gl_vendor[128] = {0};
    char gl_version_string[256] = {0};
    char gl_version_text[256] = "n.a.";
    int gl_major = 0, gl_minor = 0;
    int gl_max_texture_size = 0, gl_max_viewport_width = 0, gl_max_viewport_height = 0, gl_max_3d_texture_size = 0,
        gl_max_texture_units = 0, gl_max_samples = 0;
    float gl_max_tess_level = 0.0f;
    bool vista = false;
    uint32_t physx_version = 0;
    bool physx_on_gpu = false;
    bool started = false;
};

extern Globals gGlobals;

// ------------------------------------------------------------ life cycle

struct Root {
    HardwareCaps caps;
    std::unique_ptr<ProbeGPUnm::RenderWindow> window{new ProbeGPUnm::RenderWindow()};
    bool contextUsable = false;
    std::vector<GpuSlot> gpus;
    std::vector<const void*> liveObjects;
};

// The root, created (and HardwareCaps initialised) on the first call.
Root* getRoot();

bool startup(int x, int y, int width, int height, int opt1, int opt2, int opt3);
bool scanGraphicsHardware();
void shutdown();

// Tests replace the dummy context with a scripted one; nullptr restores it.
using ContextFactory = bool (*)(int x, int y, int width, int height, int opt1, int opt2, int opt3,
                                ProbeGPUnm::GlCaps* caps);
void SetContextFactoryForTests(ContextFactory factory);
// The factory tests set, nullptr when the real context is made.
ContextFactory ContextFactoryForTests();
// Windows: tests replace EnumDisplayDevicesA (the same contract: false past
// the last device); nullptr restores it. Linux reads the kernel's view.
using DisplayEnumerator = bool (*)(int index, DisplayDeviceRecord* out);
void SetDisplayEnumeratorForTests(DisplayEnumerator enumerator);
DisplayEnumerator DisplayEnumeratorForTests();

// ------------------------------------------------------------ inventory

bool isDisplayDeviceFound();
bool isStarted();
int getVideoMemoryMB();
int getPciVendorId();
int getPciDeviceId();
int getVendorApiGpuCount();
int getGpuCount();
int getShaderCoreCount();
int getD3DLevel();
int getTextureUnits();
int getRopUnits();
const char* getGpuName();
const char* getDriverDescription();
const char* getCodeName();
const char* getOsName();
const char* getCpuName();
const char* getCpuVendor();
int getCpuSpeedMHz();
int getCpuCores();
uint64_t getSystemMemoryMB();
const char* getGlRenderer();
const char* getGlVersionString();
int getGlMajorVersion();
int getGlMinorVersion();
int getGlMaxTextureSize();
int getGlMaxViewportWidth();
int getGlMaxViewportHeight();
float getGlMaxTessLevel();
bool isVista();
uint32_t getPhysXVersion();
bool isPhysXOnGpu();
// Whether the probe's OpenGL context offers compute shaders (OpenGL 4.3).
bool hasComputeShaders();
const HardwareCaps* getHardwareCaps();
// The AMD driver's version, packaging version and date as its registry key
// holds them (Windows); false where there are none.
bool getAmdDriverFacts(std::string* version, std::string* packaging, std::string* date);

// ------------------------------------------------------------ per GPU

const GpuSlot* getGpu(int gpu);
bool readTemperature(int gpu, float* celsius, int* threshold, int* hotspot, int* memory);
bool readUsage(int gpu, int* load, int* memoryLoad);
bool readMemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB);
bool readFan(int gpu, int* value, int* isRpm);
int getNumPerfLevels(int gpu);
bool readPerfLevels(int gpu, bool defaults, std::vector<PerfLevel>* levels);
bool readClocks(int gpu, int* pstate, float* coreMHz, float* memoryMHz, float* voltage);
bool readPower(int gpu, int rail, int* percent, int* available);
bool hasExtraPowerRails(int gpu);
bool readVoltage(int gpu, float* volts);
bool readClockCeiling(int gpu, float* ceilingMHz, float* boundMHz);
bool readBaseBoostClocks(int gpu, int* baseMHz, int* boostMHz);
bool readPowerTarget(int gpu, float* percent);

// ------------------------------------------------------------ back-ends

// Shared by the back-ends that list GPUs: a slot's units, power and missing
// name from the database; the adapter row of a device (-1 for none).
void FillSlotFromDatabase(GpuSlot* s);
int MatchAdapterRow(const HardwareCaps& caps, int vendor, int device, int subsystem);

// ------------------------------------------------------------ rules

// The shader core count: NVIDIA's own count when it has one; AMD's unit
// count x 64 (device IDs 0x6700-0x671D, VLIW4) or x 80 when it has one;
// otherwise the database's unified shader count.
int ShaderCoreCount(int vendorClass, int pciDevice, int nvidiaCores, int amdUnits, int databaseUnified);
// Device 0x6798 of vendor 0x1002 is named by its adapter description.
const char* Name6798(const char* adapterDescription);
// The driver description of the scan.
struct DriverFacts {
    int vendorClass = 0;
    std::string nvidiaVersion, nvidiaBranch;      // "353.30", "r352_00"
    std::string amdAdapterName, amdCatalyst, amdDriverVersion;
    std::string genericVersion, genericBranch;
    std::string glVersion;
};
std::string DriverDescription(const DriverFacts& f);
// The OpenGL version text of the scan: what follows the word "Version", the
// whole text otherwise, "n.a." when there is none.
std::string GlVersionText(const std::string& glVersion);
// HwSelection must be exactly "GPU".
bool IsPhysXOnGpuValue(const std::string& hwSelection);
// The PCI vendor an OpenGL vendor text stands for, -1 when it names none
// (a software renderer).
int PciVendorOfGlVendor(const std::string& glVendor);

}  // namespace ProbeGPU
