#include "monitor/nvapi_backend.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/gpu_db.h"
#include "monitor/pci_id.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {

namespace {

std::string ShortText(const NvAPI_ShortString s) {
    size_t n = 0;
    while (n < sizeof(NvAPI_ShortString) && s[n]) ++n;
    std::string out(s, n);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 32) c = '?';
    return out;
}

}  // namespace

std::string NvapiBackend::LibraryName() {
    const char* v = std::getenv(kLibraryVariable);
    if (v && *v) return v;
    return sizeof(void*) == 8 ? "nvapi64.dll" : "nvapi.dll";
}

NvapiBackend::~NvapiBackend() { Shutdown(); }

bool NvapiBackend::Init(const std::string& library, const std::string& nvcplLibrary) {
    Shutdown();
    if (!nvcplLibrary.empty()) {
        nvcpl_ = platform::LoadLib(nvcplLibrary.c_str());
        if (nvcpl_) {
            cplThermal_ = reinterpret_cast<NvCplGetThermalSettingsFn>(platform::LibSymbol(nvcpl_, "NvCplGetThermalSettings"));
            if (!cplThermal_) {
                platform::FreeLib(nvcpl_);
                nvcpl_ = nullptr;
            }
        }
    }
    platform::LibHandle lib = platform::LoadLib(library.c_str());
    if (!lib) return false;
    auto query = reinterpret_cast<nvapi_QueryInterface_fn>(platform::LibSymbol(lib, "nvapi_QueryInterface"));
    if (!query) {
        monitor::EventLine("ProbeGPU: %s has no nvapi_QueryInterface; NVIDIA sensors are not read.", library.c_str());
        platform::FreeLib(lib);
        return false;
    }
    auto q = [&](uint32_t id) { return query(id); };
    auto init = reinterpret_cast<NvAPI_Initialize_fn>(q(NVAPI_ID_Initialize));
    auto enumGpus = reinterpret_cast<NvAPI_EnumPhysicalGPUs_fn>(q(NVAPI_ID_EnumPhysicalGPUs));
    if (!init || !enumGpus) {
        monitor::EventLine("ProbeGPU: %s does not hand out NvAPI_Initialize/NvAPI_EnumPhysicalGPUs; not used.", library.c_str());
        platform::FreeLib(lib);
        return false;
    }
    NvAPI_Status s = init();
    if (s != NVAPI_OK) {
        // No NVIDIA GPU, or a broken driver: nothing to read either way.
        gProbeLog.Write("NVAPI: NvAPI_Initialize() returned %d.", s);
        platform::FreeLib(lib);
        return false;
    }
    lib_ = lib;
    unload_ = reinterpret_cast<NvAPI_Unload_fn>(q(NVAPI_ID_Unload));
    thermal_ = reinterpret_cast<NvAPI_GPU_GetThermalSettings_fn>(q(NVAPI_ID_GPU_GetThermalSettings));
    pstates_ = reinterpret_cast<NvAPI_GPU_GetDynamicPstatesInfoEx_fn>(q(NVAPI_ID_GPU_GetDynamicPstatesInfoEx));
    clocks_ = reinterpret_cast<NvAPI_GPU_GetAllClockFrequencies_fn>(q(NVAPI_ID_GPU_GetAllClockFrequencies));
    currentPstate_ = reinterpret_cast<NvAPI_GPU_GetCurrentPstate_fn>(q(NVAPI_ID_GPU_GetCurrentPstate));
    tach_ = reinterpret_cast<NvAPI_GPU_GetTachReading_fn>(q(NVAPI_ID_GPU_GetTachReading));
    memory_ = reinterpret_cast<NvAPI_GPU_GetMemoryInfo_fn>(q(NVAPI_ID_GPU_GetMemoryInfo));
    perfDecrease_ = reinterpret_cast<NvAPI_GPU_GetPerfDecreaseInfo_fn>(q(NVAPI_ID_GPU_GetPerfDecreaseInfo));
    policiesStatus_ = reinterpret_cast<NvAPI_GPU_ClientPowerPoliciesGetStatus_fn>(q(NVAPI_ID_GPU_ClientPowerPoliciesGetStatus));
    policiesInfo_ = reinterpret_cast<NvAPI_GPU_ClientPowerPoliciesGetInfo_fn>(q(NVAPI_ID_GPU_ClientPowerPoliciesGetInfo));
    topology_ = reinterpret_cast<NvAPI_GPU_ClientPowerTopologyGetStatus_fn>(q(NVAPI_ID_GPU_ClientPowerTopologyGetStatus));
    voltRails_ = reinterpret_cast<NvAPI_GPU_ClientVoltRailsGetStatus_fn>(q(NVAPI_ID_GPU_ClientVoltRailsGetStatus));
    auto version = reinterpret_cast<NvAPI_GetInterfaceVersionString_fn>(q(NVAPI_ID_GetInterfaceVersionString));
    auto driver = reinterpret_cast<NvAPI_SYS_GetDriverAndBranchVersion_fn>(q(NVAPI_ID_SYS_GetDriverAndBranchVersion));
    auto enumDisplays = reinterpret_cast<NvAPI_EnumNvidiaDisplayHandle_fn>(q(NVAPI_ID_EnumNvidiaDisplayHandle));
    auto fullName = reinterpret_cast<NvAPI_GPU_GetFullName_fn>(q(NVAPI_ID_GPU_GetFullName));
    auto pciIds = reinterpret_cast<NvAPI_GPU_GetPCIIdentifiers_fn>(q(NVAPI_ID_GPU_GetPCIIdentifiers));
    auto busId = reinterpret_cast<NvAPI_GPU_GetBusId_fn>(q(NVAPI_ID_GPU_GetBusId));
    auto cores = reinterpret_cast<NvAPI_GPU_GetGpuCoreCount_fn>(q(NVAPI_ID_GPU_GetGpuCoreCount));

    NvAPI_ShortString text;
    std::memset(text, 0, sizeof text);
    if (version && version(text) == NVAPI_OK) interfaceVersion_ = ShortText(text);
    gProbeLog.Write("NVAPI version: %s", interfaceVersion_.c_str());
    std::memset(text, 0, sizeof text);
    uint32_t drv = 0;
    if (driver && driver(&drv, text) == NVAPI_OK) {
        driverVersion_ = drv;
        branch_ = ShortText(text);
    }
    gProbeLog.Write("NVAPI - driver version: %s --- %d --- %s", branch_.c_str(), static_cast<int>(driverVersion_),
                    DriverDisplayText().c_str());

    if (enumDisplays) {
        NvDisplayHandle h = nullptr;
        // Enumerated until the first failure; the count is all that is kept.
        while (displayHandles_ < 64 && enumDisplays(static_cast<uint32_t>(displayHandles_), &h) == NVAPI_OK) ++displayHandles_;
    }
    NvPhysicalGpuHandle handles[NVAPI_MAX_PHYSICAL_GPUS];
    std::memset(handles, 0, sizeof handles);
    uint32_t n = 0;
    if (enumGpus(handles, &n) != NVAPI_OK) n = 0;
    if (n > NVAPI_MAX_PHYSICAL_GPUS) {
        monitor::EventLine("ProbeGPU: NVAPI reports %u physical GPUs, more than it can have; none are used.", n);
        n = 0;
    }
    for (uint32_t i = 0; i < n; ++i) {
        Gpu g;
        g.handle = handles[i];
        if (!g.handle) continue;
        std::memset(text, 0, sizeof text);
        if (fullName && fullName(g.handle, text) == NVAPI_OK) g.name = ShortText(text);
        uint32_t dev = 0, sub = 0, rev = 0, ext = 0;
        if (pciIds && pciIds(g.handle, &dev, &sub, &rev, &ext) == NVAPI_OK) {
            g.vendor = dev & 0xFFFFu;
            g.device = dev >> 16;
            g.subsystem = sub;
            g.revision = rev;
        }
        if (busId) busId(g.handle, &g.busId);
        uint32_t c = 0;
        if (cores && cores(g.handle, &c) == NVAPI_OK && c < 1000000) g.cores = c;
        NV_DISPLAY_DRIVER_MEMORY_INFO_V2 mem;
        std::memset(&mem, 0, sizeof mem);
        mem.version = NV_DISPLAY_DRIVER_MEMORY_INFO_VER_2;
        if (memory_ && memory_(g.handle, &mem) == NVAPI_OK) g.dedicatedKB = mem.dedicatedVideoMemory;
        gpus_.push_back(g);
        lastUsage_.emplace_back();
        int index = static_cast<int>(gpus_.size()) - 1;
        gProbeLog.Write("NVAPI - GPU %d: %s [%04X-%04X] bus %u, %u cores, %u KB", index, g.name.c_str(), g.vendor, g.device,
                        g.busId, g.cores, g.dedicatedKB);
        NV_GPU_POWER_POLICIES_INFO info;
        std::memset(&info, 0, sizeof info);
        info.version = NV_GPU_POWER_POLICIES_INFO_VER;
        NV_GPU_POWER_POLICIES_STATUS status;
        std::memset(&status, 0, sizeof status);
        status.version = NV_GPU_POWER_POLICIES_STATUS_VER;
        if (policiesInfo_ && policiesStatus_ && policiesInfo_(g.handle, &info) == NVAPI_OK &&
            policiesStatus_(g.handle, &status) == NVAPI_OK && info.count > 0) {
            // The limit in milliwatts: the board's rated power from the
            // database, scaled by the limit's percentage.
            const GpuDatabaseEntry* row = DatabaseRow(kVendorNvidia, DatabaseLookup(kVendorNvidia, static_cast<int>(g.device)));
            const long long mw = row ? static_cast<long long>(row->boardPowerW) * status.entries[0].power / 100 : 0;
            gProbeLog.Write("- GPU %d - Power limit %d - mp=%d, mW=%lld", index, static_cast<int>(status.entries[0].power / 1000),
                            static_cast<int>(info.entries[0].maxPower / 1000), mw);
        }
    }
    return true;
}

void NvapiBackend::Shutdown() {
    if (lib_) {
        if (unload_) unload_();
        platform::FreeLib(lib_);
    }
    if (nvcpl_) platform::FreeLib(nvcpl_);
    lib_ = nullptr;
    nvcpl_ = nullptr;
    cplThermal_ = nullptr;
    gpus_.clear();
    lastUsage_.clear();
    displayHandles_ = 0;
    driverVersion_ = 0;
    branch_.clear();
    interfaceVersion_.clear();
    unload_ = nullptr;
    thermal_ = nullptr;
    pstates_ = nullptr;
    clocks_ = nullptr;
    currentPstate_ = nullptr;
    tach_ = nullptr;
    memory_ = nullptr;
    perfDecrease_ = nullptr;
    policiesStatus_ = nullptr;
    policiesInfo_ = nullptr;
    topology_ = nullptr;
    voltRails_ = nullptr;
}

std::string NvapiBackend::DriverDisplayText() const {
    char buf[32];
    std::snprintf(buf, sizeof buf, "R%.2f", driverVersion_ / 100.0);
    return buf;
}

std::string NvapiBackend::DriverVersionText() const {
    if (driverVersion_ == 0) return std::string();
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f", driverVersion_ / 100.0);
    return buf;
}

NvPhysicalGpuHandle NvapiBackend::Handle(int gpu) const {
    if (!lib_ || gpu < 0 || gpu >= count()) return nullptr;
    return gpus_[static_cast<size_t>(gpu)].handle;
}

bool NvapiBackend::Ok(NvAPI_Status s, int gpu, const char* call) {
    if (s == NVAPI_OK) return true;
    if (s != NVAPI_NOT_SUPPORTED) {
        char key[96];
        std::snprintf(key, sizeof key, "nvapi:%d:%s:%d", gpu, call, s);
        ComplainOnce(key, "ProbeGPU: NVAPI %s failed for GPU %d (status %d); the previous reading is kept.", call, gpu, s);
    }
    return false;
}

namespace {
bool Nonsense(int gpu, const char* what, long long value) {
    char key[96];
    std::snprintf(key, sizeof key, "nvapi-range:%d:%s", gpu, what);
    ComplainOnce(key, "ProbeGPU: NVAPI reports %s = %lld for GPU %d, which cannot be right; ignored.", what, value, gpu);
    return false;
}
}  // namespace

bool NvapiBackend::Temperature(int gpu, TemperatureReading* out) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h) return false;
    if (thermal_) {
        NV_GPU_THERMAL_SETTINGS_V2 t;
        std::memset(&t, 0, sizeof t);
        t.version = NV_GPU_THERMAL_SETTINGS_VER_2;
        if (Ok(thermal_(h, NVAPI_THERMAL_TARGET_ALL, &t), gpu, "NvAPI_GPU_GetThermalSettings")) {
            if (t.count > 3) return Nonsense(gpu, "thermal sensor count", t.count);
            TemperatureReading r;
            bool found = false;
            for (uint32_t i = 0; i < t.count; ++i) {
                const auto& s = t.sensor[i];
                if (s.currentTemp < -50 || s.currentTemp > 200) return Nonsense(gpu, "temperature", s.currentTemp);
                if (s.target == NVAPI_THERMAL_TARGET_GPU && !found) {
                    r.celsius = static_cast<float>(s.currentTemp);
                    if (s.defaultMaxTemp > 0 && s.defaultMaxTemp <= 200) r.threshold = s.defaultMaxTemp;
                    found = true;
                } else if (s.target == NVAPI_THERMAL_TARGET_MEMORY) {
                    r.memory = s.currentTemp;
                }
            }
            if (found) {
                *out = r;
                return true;
            }
        }
    }
    // The control-panel library knows the core temperature of the GPU on a
    // given monitor; older drivers answer there when NVAPI does not.
    if (cplThermal_) {
        uint32_t core = 0, ambient = 0, upper = 0;
        if (cplThermal_(static_cast<unsigned>(gpu), &core, &ambient, &upper) && core <= 200) {
            TemperatureReading r;
            r.celsius = static_cast<float>(core);
            if (upper > 0 && upper <= 200) r.threshold = static_cast<int>(upper);
            *out = r;
            return true;
        }
    }
    return false;
}

bool NvapiBackend::Usage(int gpu, int* load, int* memoryLoad) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !pstates_) return false;
    NV_GPU_DYNAMIC_PSTATES_INFO_EX info;
    std::memset(&info, 0, sizeof info);
    info.version = NV_GPU_DYNAMIC_PSTATES_INFO_EX_VER;
    if (!Ok(pstates_(h, &info), gpu, "NvAPI_GPU_GetDynamicPstatesInfoEx")) return false;
    for (int i = 0; i < NVAPI_MAX_GPU_UTILIZATIONS; ++i)
        if ((info.utilization[i].bIsPresent & 1) && info.utilization[i].percentage > 100)
            return Nonsense(gpu, "utilisation", info.utilization[i].percentage);
    if (!(info.utilization[NVAPI_GPU_UTILIZATION_DOMAIN_GPU].bIsPresent & 1)) return false;
    // Written when the figures change, not at every refresh.
    std::vector<int> now;
    for (int i = 0; i < NVAPI_MAX_GPU_UTILIZATIONS; ++i)
        now.push_back((info.utilization[i].bIsPresent & 1) ? static_cast<int>(info.utilization[i].percentage) : -1);
    std::vector<int>& last = lastUsage_[static_cast<size_t>(gpu)];
    if (now != last) {
        last = now;
        gProbeLog.Write("*********************** GPU Usages *********************");
        for (int i = 0; i < NVAPI_MAX_GPU_UTILIZATIONS; ++i)
            if (now[static_cast<size_t>(i)] >= 0) gProbeLog.Write("Usage[%d] = %d", i, now[static_cast<size_t>(i)]);
    }
    *load = static_cast<int>(info.utilization[NVAPI_GPU_UTILIZATION_DOMAIN_GPU].percentage);
    *memoryLoad = (info.utilization[NVAPI_GPU_UTILIZATION_DOMAIN_FB].bIsPresent & 1)
                      ? static_cast<int>(info.utilization[NVAPI_GPU_UTILIZATION_DOMAIN_FB].percentage)
                      : -1;
    return true;
}

bool NvapiBackend::MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !memory_) return false;
    NV_DISPLAY_DRIVER_MEMORY_INFO_V2 m;
    std::memset(&m, 0, sizeof m);
    m.version = NV_DISPLAY_DRIVER_MEMORY_INFO_VER_2;
    if (!Ok(memory_(h, &m), gpu, "NvAPI_GPU_GetMemoryInfo")) return false;
    if (m.dedicatedVideoMemory == 0 || m.curAvailableDedicatedVideoMemory > m.dedicatedVideoMemory)
        return Nonsense(gpu, "available video memory KB", m.curAvailableDedicatedVideoMemory);
    *totalMB = static_cast<int>(m.dedicatedVideoMemory >> 10);
    *freeMB = static_cast<int>(m.curAvailableDedicatedVideoMemory >> 10);
    *usedMB = *totalMB - *freeMB;
    return true;
}

bool NvapiBackend::Fan(int gpu, int* value, int* isRpm) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !tach_) return false;
    uint32_t rpm = 0;
    if (!Ok(tach_(h, &rpm), gpu, "NvAPI_GPU_GetTachReading")) return false;
    if (rpm > 30000) return Nonsense(gpu, "fan RPM", rpm);
    *value = static_cast<int>(rpm);
    *isRpm = 1;
    return true;
}

bool NvapiBackend::ClockSet(int gpu, uint32_t type, NV_GPU_CLOCK_FREQUENCIES_V2* out) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !clocks_) return false;
    std::memset(out, 0, sizeof *out);
    out->version = NV_GPU_CLOCK_FREQUENCIES_VER_2;
    out->clockType = type;
    if (!Ok(clocks_(h, out), gpu, "NvAPI_GPU_GetAllClockFrequencies")) return false;
    for (int d : {NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS, NVAPI_GPU_PUBLIC_CLOCK_MEMORY})
        if ((out->domain[d].bIsPresent & 1) && out->domain[d].frequency > 50000000u)
            return Nonsense(gpu, "clock kHz", out->domain[d].frequency);
    return true;
}

bool NvapiBackend::Clocks(int gpu, ClockReading* out) {
    NV_GPU_CLOCK_FREQUENCIES_V2 f;
    if (!ClockSet(gpu, NV_GPU_CLOCK_FREQUENCIES_CURRENT_FREQ, &f)) return false;
    if (!(f.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].bIsPresent & 1)) return false;
    ClockReading r;
    r.coreMHz = f.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].frequency / 1000.0f;
    if (f.domain[NVAPI_GPU_PUBLIC_CLOCK_MEMORY].bIsPresent & 1)
        r.memoryMHz = f.domain[NVAPI_GPU_PUBLIC_CLOCK_MEMORY].frequency / 1000.0f;
    int32_t p = -1;
    if (currentPstate_ && currentPstate_(Handle(gpu), &p) == NVAPI_OK && p >= 0 && p <= 15) r.performanceState = p;
    float v = 0.0f;
    if (Voltage(gpu, &v)) r.voltage = v;
    *out = r;
    return true;
}

bool NvapiBackend::Topology(int gpu, NV_GPU_POWER_TOPOLOGY_STATUS* out) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !topology_) return false;
    std::memset(out, 0, sizeof *out);
    out->version = NV_GPU_POWER_TOPOLOGY_STATUS_VER;
    if (!Ok(topology_(h, out), gpu, "ClientPowerTopologyGetStatus")) return false;
    if (out->count > 4) return Nonsense(gpu, "power topology entries", out->count);
    return true;
}

bool NvapiBackend::Power(int gpu, int rail, int* percent, int* available) {
    NV_GPU_POWER_TOPOLOGY_STATUS t;
    if (rail < 0 || rail > 2 || !Topology(gpu, &t)) return false;
    if (static_cast<uint32_t>(rail) >= t.count) return false;
    uint32_t milli = t.entries[rail].power;
    if (milli > 1000000u) return Nonsense(gpu, "power (1/1000 %)", milli);
    *percent = static_cast<int>(milli / 1000);
    *available = 1;
    return true;
}

bool NvapiBackend::HasExtraRails(int gpu) {
    NV_GPU_POWER_TOPOLOGY_STATUS t;
    return Topology(gpu, &t) && t.count > 1;
}

bool NvapiBackend::Voltage(int gpu, float* volts) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !voltRails_) return false;
    NV_GPU_VOLT_RAILS_STATUS s;
    std::memset(&s, 0, sizeof s);
    s.version = NV_GPU_VOLT_RAILS_STATUS_VER;
    if (!Ok(voltRails_(h, &s), gpu, "ClientVoltRailsGetStatus")) return false;
    if (s.valueMicrovolts > 3000000u) return Nonsense(gpu, "voltage uV", s.valueMicrovolts);
    *volts = s.valueMicrovolts / 1000000.0f;
    return true;
}

bool NvapiBackend::BaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) {
    NV_GPU_CLOCK_FREQUENCIES_V2 base, boost;
    if (!ClockSet(gpu, NV_GPU_CLOCK_FREQUENCIES_BASE_CLOCK, &base)) return false;
    if (!(base.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].bIsPresent & 1)) return false;
    *baseMHz = static_cast<int>(base.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].frequency / 1000);
    *boostMHz = 0;
    if (ClockSet(gpu, NV_GPU_CLOCK_FREQUENCIES_BOOST_CLOCK, &boost) &&
        (boost.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].bIsPresent & 1))
        *boostMHz = static_cast<int>(boost.domain[NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS].frequency / 1000);
    return true;
}

bool NvapiBackend::ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !perfDecrease_) return false;
    int base = 0, boost = 0;
    if (!BaseBoostClocks(gpu, &base, &boost)) return false;
    int bound = boost > 0 ? boost : base;
    if (bound <= 0) return false;
    uint32_t decrease = 0;
    if (perfDecrease_(h, &decrease) != NVAPI_OK) return false;
    ClockReading now;
    if (!Clocks(gpu, &now)) return false;
    *boundMHz = static_cast<float>(bound);
    *ceilingMHz = decrease == NV_GPU_PERF_DECREASE_NONE ? static_cast<float>(bound)
                                                         : (now.coreMHz < bound ? now.coreMHz : static_cast<float>(bound));
    return true;
}

bool NvapiBackend::PowerTarget(int gpu, float* percent) {
    NvPhysicalGpuHandle h = Handle(gpu);
    if (!h || !policiesStatus_) return false;
    NV_GPU_POWER_POLICIES_STATUS s;
    std::memset(&s, 0, sizeof s);
    s.version = NV_GPU_POWER_POLICIES_STATUS_VER;
    if (!Ok(policiesStatus_(h, &s), gpu, "ClientPowerPoliciesGetStatus")) return false;
    if (s.entries[0].power == 0 || s.entries[0].power > 1000000u) return false;
    *percent = s.entries[0].power / 1000.0f;
    return true;
}

std::string NvapiBackend::GpuName(int gpu) { return Handle(gpu) ? gpus_[static_cast<size_t>(gpu)].name : std::string(); }

std::string NvapiBackend::DriverText(int gpu) { return DriverDisplayText(); }

}  // namespace ProbeGPU
