/* A stand-in for NVIDIA's nvapi64.dll for the Windows build's tests under
 * Wine. It hands out, through nvapi_QueryInterface, the functions the
 * monitor asks for, answering from the script named by
 * ARDENTIUM_FAKE_NVAPI_SCRIPT (see fake_script.h):
 *
 *   gpus=2, driver=35330, branch=r352_00, version=NVidia Complete Version 1.10
 *   gpuN.name, gpuN.device, gpuN.subsystem (hex, subsystem device << 16 | vendor),
 *   gpuN.temp, gpuN.temp_step, gpuN.maxtemp, gpuN.load, gpuN.fbload,
 *   gpuN.clock, gpuN.memclock, gpuN.baseclock, gpuN.boostclock (MHz),
 *   gpuN.pstate, gpuN.rpm, gpuN.power (1/1000 %), gpuN.rails (1-4),
 *   gpuN.target (1/1000 %), gpuN.uv (microvolts), gpuN.kb (dedicated KB),
 *   gpuN.freekb, gpuN.cores, gpuN.decrease (perf decrease bit mask)
 *   fail=NvAPI_GPU_GetThermalSettings,...   calls that return NVAPI_ERROR
 *   missing=volt                             hands out no voltage function
 */
#include <stdint.h>

#include "monitor/fakes/fake_script.h"
#include "monitor/nvapi_defs.h"

#define EXPORT __declspec(dllexport)
#define VAR "ARDENTIUM_FAKE_NVAPI_SCRIPT"

static int initialised;
static long tempReads[8];

static int Gpus(void) {
    FakeLoad(VAR);
    long n = FakeInt("gpus", 1);
    return n < 0 ? 0 : (n > 8 ? 8 : (int)n);
}

/* Handles are 1-based indices in disguise. */
static int Index(NvPhysicalGpuHandle h) {
    size_t i = (size_t)h;
    if (!initialised || i < 1 || i > (size_t)Gpus()) return -1;
    return (int)i - 1;
}

#define GPU_OR_FAIL(h, fn)                      \
    int g = Index(h);                           \
    if (g < 0) return NVAPI_ERROR;              \
    if (FakeFails(fn)) return NVAPI_ERROR;

static void Copy(NvAPI_ShortString out, const char* text) { snprintf(out, sizeof(NvAPI_ShortString), "%s", text); }

static NvAPI_Status Initialize(void) {
    FakeLoad(VAR);
    if (FakeFails("NvAPI_Initialize")) return NVAPI_NVIDIA_DEVICE_NOT_FOUND;
    initialised = 1;
    return NVAPI_OK;
}

static NvAPI_Status Unload(void) {
    initialised = 0;
    return NVAPI_OK;
}

static NvAPI_Status GetInterfaceVersionString(NvAPI_ShortString s) {
    FakeLoad(VAR);
    const char* v = FakeGet("version");
    Copy(s, v ? v : "NVidia Complete Version 1.10");
    return NVAPI_OK;
}

static NvAPI_Status GetDriverAndBranchVersion(uint32_t* version, NvAPI_ShortString branch) {
    FakeLoad(VAR);
    *version = (uint32_t)FakeInt("driver", 35330);
    const char* b = FakeGet("branch");
    Copy(branch, b ? b : "r352_00");
    return NVAPI_OK;
}

static NvAPI_Status EnumNvidiaDisplayHandle(uint32_t index, NvDisplayHandle* h) {
    if (!initialised || index >= (uint32_t)Gpus()) return NVAPI_END_ENUMERATION;
    *h = (NvDisplayHandle)(size_t)(index + 1);
    return NVAPI_OK;
}

static NvAPI_Status EnumPhysicalGPUs(NvPhysicalGpuHandle handles[NVAPI_MAX_PHYSICAL_GPUS], uint32_t* count) {
    if (!initialised) return NVAPI_ERROR;
    if (FakeFails("NvAPI_EnumPhysicalGPUs")) return NVAPI_ERROR;
    int n = Gpus();
    for (int i = 0; i < n; ++i) handles[i] = (NvPhysicalGpuHandle)(size_t)(i + 1);
    *count = (uint32_t)FakeInt("report_gpus", n);
    return NVAPI_OK;
}

static NvAPI_Status GetFullName(NvPhysicalGpuHandle h, NvAPI_ShortString name) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetFullName");
    Copy(name, FakeGpuText(g, "name", "GeForce GTX 980"));
    return NVAPI_OK;
}

static NvAPI_Status GetPCIIdentifiers(NvPhysicalGpuHandle h, uint32_t* dev, uint32_t* sub, uint32_t* rev, uint32_t* ext) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetPCIIdentifiers");
    *dev = ((uint32_t)FakeGpuInt(g, "device", 0x13C0) << 16) | 0x10DEu;
    *sub = (uint32_t)FakeGpuInt(g, "subsystem", 0x11111F96);
    *rev = 0xA1;
    *ext = *dev;
    return NVAPI_OK;
}

static NvAPI_Status GetBusId(NvPhysicalGpuHandle h, uint32_t* bus) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetBusId");
    *bus = (uint32_t)(g + 1);
    return NVAPI_OK;
}

static NvAPI_Status GetThermalSettings(NvPhysicalGpuHandle h, uint32_t index, NV_GPU_THERMAL_SETTINGS_V2* t) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetThermalSettings");
    if (t->version != NV_GPU_THERMAL_SETTINGS_VER_2) return NVAPI_ERROR;
    (void)index;
    t->count = (uint32_t)FakeGpuInt(g, "sensors", 1);
    t->sensor[0].controller = 1;
    t->sensor[0].defaultMinTemp = 0;
    t->sensor[0].defaultMaxTemp = (int32_t)FakeGpuInt(g, "maxtemp", 95);
    t->sensor[0].currentTemp = (int32_t)(FakeGpuInt(g, "temp", 60) + FakeGpuInt(g, "temp_step", 0) * tempReads[g]++);
    t->sensor[0].target = NVAPI_THERMAL_TARGET_GPU;
    return NVAPI_OK;
}

static NvAPI_Status GetDynamicPstatesInfoEx(NvPhysicalGpuHandle h, NV_GPU_DYNAMIC_PSTATES_INFO_EX* p) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetDynamicPstatesInfoEx");
    if (p->version != NV_GPU_DYNAMIC_PSTATES_INFO_EX_VER) return NVAPI_ERROR;
    p->flags = 1;
    p->utilization[0].bIsPresent = 1;
    p->utilization[0].percentage = (uint32_t)FakeGpuInt(g, "load", 97);
    p->utilization[1].bIsPresent = 1;
    p->utilization[1].percentage = (uint32_t)FakeGpuInt(g, "fbload", 35);
    p->utilization[2].bIsPresent = 1;
    p->utilization[2].percentage = 0;
    return NVAPI_OK;
}

static NvAPI_Status GetAllClockFrequencies(NvPhysicalGpuHandle h, NV_GPU_CLOCK_FREQUENCIES_V2* c) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetAllClockFrequencies");
    if (c->version != NV_GPU_CLOCK_FREQUENCIES_VER_2) return NVAPI_ERROR;
    uint32_t type = c->clockType & 3;
    long core = type == NV_GPU_CLOCK_FREQUENCIES_BASE_CLOCK    ? FakeGpuInt(g, "baseclock", 1126)
                : type == NV_GPU_CLOCK_FREQUENCIES_BOOST_CLOCK ? FakeGpuInt(g, "boostclock", 1216)
                                                               : FakeGpuInt(g, "clock", 1215);
    c->domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].bIsPresent = 1;
    c->domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].frequency = (uint32_t)core * 1000u;
    c->domain[NVAPI_GPU_PUBLIC_CLOCK_MEMORY].bIsPresent = 1;
    c->domain[NVAPI_GPU_PUBLIC_CLOCK_MEMORY].frequency = (uint32_t)FakeGpuInt(g, "memclock", 3505) * 1000u;
    return NVAPI_OK;
}

static NvAPI_Status GetCurrentPstate(NvPhysicalGpuHandle h, int32_t* p) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetCurrentPstate");
    *p = (int32_t)FakeGpuInt(g, "pstate", 0);
    return NVAPI_OK;
}

static NvAPI_Status GetTachReading(NvPhysicalGpuHandle h, uint32_t* rpm) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetTachReading");
    *rpm = (uint32_t)FakeGpuInt(g, "rpm", 1650);
    return NVAPI_OK;
}

static NvAPI_Status GetMemoryInfo(NvPhysicalGpuHandle h, NV_DISPLAY_DRIVER_MEMORY_INFO_V2* m) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetMemoryInfo");
    if (m->version != NV_DISPLAY_DRIVER_MEMORY_INFO_VER_2) return NVAPI_ERROR;
    m->dedicatedVideoMemory = (uint32_t)FakeGpuInt(g, "kb", 4194304);
    m->availableDedicatedVideoMemory = m->dedicatedVideoMemory;
    m->curAvailableDedicatedVideoMemory = (uint32_t)FakeGpuInt(g, "freekb", 3145728);
    return NVAPI_OK;
}

static NvAPI_Status GetGpuCoreCount(NvPhysicalGpuHandle h, uint32_t* n) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetGpuCoreCount");
    *n = (uint32_t)FakeGpuInt(g, "cores", 2048);
    return NVAPI_OK;
}

static NvAPI_Status GetPerfDecreaseInfo(NvPhysicalGpuHandle h, uint32_t* info) {
    GPU_OR_FAIL(h, "NvAPI_GPU_GetPerfDecreaseInfo");
    *info = (uint32_t)FakeGpuInt(g, "decrease", 0);
    return NVAPI_OK;
}

static NvAPI_Status PoliciesGetStatus(NvPhysicalGpuHandle h, NV_GPU_POWER_POLICIES_STATUS* s) {
    GPU_OR_FAIL(h, "ClientPowerPoliciesGetStatus");
    if (s->version != NV_GPU_POWER_POLICIES_STATUS_VER) return NVAPI_ERROR;
    s->flags = 1;
    s->entries[0].power = (uint32_t)FakeGpuInt(g, "target", 100000);
    return NVAPI_OK;
}

static NvAPI_Status PoliciesGetInfo(NvPhysicalGpuHandle h, NV_GPU_POWER_POLICIES_INFO* s) {
    GPU_OR_FAIL(h, "ClientPowerPoliciesGetInfo");
    if (s->version != NV_GPU_POWER_POLICIES_INFO_VER) return NVAPI_ERROR;
    s->valid = 1;
    s->count = 1;
    s->entries[0].minPower = 50000;
    s->entries[0].defaultPower = 100000;
    s->entries[0].maxPower = (uint32_t)FakeGpuInt(g, "maxtarget", 125000);
    return NVAPI_OK;
}

static NvAPI_Status TopologyGetStatus(NvPhysicalGpuHandle h, NV_GPU_POWER_TOPOLOGY_STATUS* s) {
    GPU_OR_FAIL(h, "ClientPowerTopologyGetStatus");
    if (s->version != NV_GPU_POWER_TOPOLOGY_STATUS_VER) return NVAPI_ERROR;
    s->count = (uint32_t)FakeGpuInt(g, "rails", 1);
    for (uint32_t i = 0; i < 4; ++i) s->entries[i].power = (uint32_t)FakeGpuInt(g, "power", 87500) - i * 10000u;
    return NVAPI_OK;
}

static NvAPI_Status VoltRailsGetStatus(NvPhysicalGpuHandle h, NV_GPU_VOLT_RAILS_STATUS* s) {
    GPU_OR_FAIL(h, "ClientVoltRailsGetStatus");
    if (s->version != NV_GPU_VOLT_RAILS_STATUS_VER) return NVAPI_ERROR;
    s->valueMicrovolts = (uint32_t)FakeGpuInt(g, "uv", 1187000);
    return NVAPI_OK;
}

EXPORT void* nvapi_QueryInterface(uint32_t id) {
    FakeLoad(VAR);
    const char* missing = FakeGet("missing");
    switch (id) {
        case NVAPI_ID_Initialize: return (void*)&Initialize;
        case NVAPI_ID_Unload: return (void*)&Unload;
        case NVAPI_ID_GetInterfaceVersionString: return (void*)&GetInterfaceVersionString;
        case NVAPI_ID_SYS_GetDriverAndBranchVersion: return (void*)&GetDriverAndBranchVersion;
        case NVAPI_ID_EnumNvidiaDisplayHandle: return (void*)&EnumNvidiaDisplayHandle;
        case NVAPI_ID_EnumPhysicalGPUs: return (void*)&EnumPhysicalGPUs;
        case NVAPI_ID_GPU_GetFullName: return (void*)&GetFullName;
        case NVAPI_ID_GPU_GetPCIIdentifiers: return (void*)&GetPCIIdentifiers;
        case NVAPI_ID_GPU_GetBusId: return (void*)&GetBusId;
        case NVAPI_ID_GPU_GetThermalSettings: return (void*)&GetThermalSettings;
        case NVAPI_ID_GPU_GetDynamicPstatesInfoEx: return (void*)&GetDynamicPstatesInfoEx;
        case NVAPI_ID_GPU_GetAllClockFrequencies: return (void*)&GetAllClockFrequencies;
        case NVAPI_ID_GPU_GetCurrentPstate: return (void*)&GetCurrentPstate;
        case NVAPI_ID_GPU_GetTachReading: return (void*)&GetTachReading;
        case NVAPI_ID_GPU_GetMemoryInfo: return (void*)&GetMemoryInfo;
        case NVAPI_ID_GPU_GetGpuCoreCount: return (void*)&GetGpuCoreCount;
        case NVAPI_ID_GPU_GetPerfDecreaseInfo: return (void*)&GetPerfDecreaseInfo;
        case NVAPI_ID_GPU_ClientPowerPoliciesGetStatus: return (void*)&PoliciesGetStatus;
        case NVAPI_ID_GPU_ClientPowerPoliciesGetInfo: return (void*)&PoliciesGetInfo;
        case NVAPI_ID_GPU_ClientPowerTopologyGetStatus: return (void*)&TopologyGetStatus;
        case NVAPI_ID_GPU_ClientVoltRailsGetStatus:
            return (missing && strstr(missing, "volt")) ? NULL : (void*)&VoltRailsGetStatus;
        default: return NULL;
    }
}
