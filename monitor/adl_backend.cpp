#include "monitor/adl_backend.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

#include "monitor/complaints.h"
#include "monitor/pci_id.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {

namespace {

void* ADL_API AdlAlloc(int size) { return size > 0 ? std::calloc(1, static_cast<size_t>(size)) : nullptr; }

// A fixed text field of a structure the library filled: cut at its size.
std::string Field(const char* s, size_t size) {
    size_t n = 0;
    while (n < size && s[n]) ++n;
    std::string out(s, n);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 32) c = '?';
    return out;
}

constexpr int kMaxAdapters = 256;
constexpr int kMaxLevels = 16;

}  // namespace

std::vector<std::string> AdlBackend::LibraryNames() {
    const char* v = std::getenv(kLibraryVariable);
    if (v && *v) return {v};
    return {"atiadlxx.dll", "atiadlxy.dll"};
}

AdlBackend::~AdlBackend() { Shutdown(); }

void AdlBackend::FixedNames(int pciDevice, const std::string& adlName, std::string* name, std::string* codeName) {
    const bool r9_2 = adlName.find("Radeon R9 2") != std::string::npos;
    switch (pciDevice) {
        case 0x67B0:  // Hawaii XT, sold again as Grenada XT
            *name = r9_2 ? "AMD Radeon R9 290X" : "AMD Radeon R9 390X";
            *codeName = r9_2 ? "Hawaii(GCN1.1)" : "Grenada(GCN1.1)";
            break;
        case 0x67B1:  // Hawaii Pro / Grenada Pro
            *name = r9_2 ? "AMD Radeon R9 290" : "AMD Radeon R9 390";
            *codeName = r9_2 ? "Hawaii(GCN1.1)" : "Grenada(GCN1.1)";
            break;
        case 0x6798:  // Tahiti XT: HD 7970, then R9 280X
            *name = adlName.find("Radeon HD 79") != std::string::npos ? "AMD Radeon HD 7970" : "AMD Radeon R9 280X";
            break;
        case 0x68F9:  // Cedar: HD 5450, again as HD 6350
            if (adlName.find("6350") != std::string::npos) *name = "ATI Radeon HD 6350";
            break;
        default: break;
    }
}

PerfLevel AdlBackend::ConvertLevel(const ADLODPerformanceLevel& l) {
    PerfLevel p;
    p.coreMHz = l.iEngineClock / 100.0f;
    p.memoryMHz = l.iMemoryClock / 100.0f;
    p.voltage = l.iVddc / 1000.0f;
    return p;
}

bool AdlBackend::Init(const std::vector<std::string>& libraries) {
    Shutdown();
    gAdlLog.Write("AMD_Display_Library_Init - START");
    for (const std::string& name : libraries) {
        lib_ = platform::LoadLib(name.c_str());
        if (lib_) break;
    }
    if (!lib_) {
        gAdlLog.Write("AMD_Display_Library_Init - ADL library not found.");
        gAdlLog.Write("AMD_Display_Library_Init - END ERROR.");
        return false;
    }
    gAdlLog.Write("AMD_Display_Library_Init - function pointers.");
    struct Entry {
        const char* name;
        void** slot;
    };
    const Entry entries[] = {
        {"ADL_Main_Control_Create", reinterpret_cast<void**>(&mainCreate_)},
        {"ADL_Main_Control_Destroy", reinterpret_cast<void**>(&mainDestroy_)},
        {"ADL_Main_Control_Refresh", reinterpret_cast<void**>(&mainRefresh_)},
        {"ADL_Adapter_NumberOfAdapters_Get", reinterpret_cast<void**>(&numAdapters_)},
        {"ADL_Adapter_AdapterInfo_Get", reinterpret_cast<void**>(&adapterInfo_)},
        {"ADL_Adapter_Active_Get", reinterpret_cast<void**>(&adapterActive_)},
        {"ADL_Overdrive_Caps", reinterpret_cast<void**>(&overdriveCaps_)},
        {"ADL_Adapter_MemoryInfo_Get", reinterpret_cast<void**>(&memoryInfo_)},
        {"ADL_Overdrive5_Temperature_Get", reinterpret_cast<void**>(&od5Temperature_)},
        {"ADL_Overdrive5_FanSpeed_Get", reinterpret_cast<void**>(&od5Fan_)},
        {"ADL_Overdrive5_ODParameters_Get", reinterpret_cast<void**>(&od5Parameters_)},
        {"ADL_Overdrive5_ODPerformanceLevels_Get", reinterpret_cast<void**>(&od5Levels_)},
        {"ADL_Overdrive5_ODPerformanceLevels_Set", reinterpret_cast<void**>(&od5LevelsSet_)},
        {"ADL_Overdrive5_CurrentActivity_Get", reinterpret_cast<void**>(&od5Activity_)},
        {"ADL_Overdrive6_FanSpeed_Get", reinterpret_cast<void**>(&od6Fan_)},
        {"ADL_Overdrive6_ThermalController_Caps", reinterpret_cast<void**>(&od6ThermalCaps_)},
        {"ADL_Overdrive6_Temperature_Get", reinterpret_cast<void**>(&od6Temperature_)},
        {"ADL_Overdrive6_Capabilities_Get", reinterpret_cast<void**>(&od6Capabilities_)},
        {"ADL_Overdrive6_StateInfo_Get", reinterpret_cast<void**>(&od6StateInfo_)},
        {"ADL_Overdrive6_CurrentStatus_Get", reinterpret_cast<void**>(&od6Status_)},
        {"ADL_Overdrive6_PowerControl_Caps", reinterpret_cast<void**>(&od6PowerCaps_)},
        {"ADL_Overdrive6_PowerControlInfo_Get", reinterpret_cast<void**>(&od6PowerInfo_)},
        {"ADL_Overdrive6_PowerControl_Get", reinterpret_cast<void**>(&od6PowerGet_)},
        {"ADL_Overdrive6_FanSpeed_Set", reinterpret_cast<void**>(&od6FanSet_)},
        {"ADL_Overdrive6_State_Set", reinterpret_cast<void**>(&od6StateSet_)},
        {"ADL_Overdrive6_PowerControl_Set", reinterpret_cast<void**>(&od6PowerSet_)},
    };
    bool all = true;
    for (const Entry& e : entries) {
        *e.slot = platform::LibSymbol(lib_, e.name);
        if (!*e.slot) {
            gAdlLog.Write("AMD_Display_Library_Init - missing entry point %s", e.name);
            all = false;
        }
    }
    if (!all) {
        gAdlLog.Write("AMD_Display_Library_Init - function pointers error.");
        gAdlLog.Write("AMD_Display_Library_Init - END ERROR.");
        Shutdown();
        return false;
    }
    gAdlLog.Write("AMD_Display_Library_Init - ADL_Main_Control_Create()");
    int status = mainCreate_(&AdlAlloc, 1);
    if (status != ADL_OK) {
        gAdlLog.Write("AMD_Display_Library_Init - ADL_Main_Control_Create() failed (%d).", status);
        gAdlLog.Write("AMD_Display_Library_Init - END ERROR.");
        Shutdown();
        return false;
    }
    contextCreated_ = true;
    gAdlLog.Write("AMD_Display_Library_Init - ADL_Main_Control_Create() OK.");

    int n = 0;
    if (numAdapters_(&n) != ADL_OK || n < 0) n = 0;
    if (n > kMaxAdapters) {
        gAdlLog.Write("AMD_Display_Library_Init - %d adapters reported; only %d are read.", n, kMaxAdapters);
        n = kMaxAdapters;
    }
    adapterCount_ = n;
    gAdlLog.Write("AMD_Display_Library_Init -  Found: %d adapters", n);
    std::vector<AdapterInfo> infos(static_cast<size_t>(n));
    if (n > 0) {
        std::memset(infos.data(), 0, infos.size() * sizeof(AdapterInfo));
        for (AdapterInfo& a : infos) a.iSize = sizeof(AdapterInfo);
        if (adapterInfo_(infos.data(), static_cast<int>(infos.size() * sizeof(AdapterInfo))) != ADL_OK) {
            gAdlLog.Write("AMD_Display_Library_Init - ADL_Adapter_AdapterInfo_Get() failed.");
            infos.clear();
        }
    }
    std::set<int> buses;
    for (size_t i = 0; i < infos.size(); ++i) {
        const AdapterInfo& a = infos[i];
        int ai = static_cast<int>(i);
        gAdlLog.Write("AMD_Display_Library_Init -  adapter %d - vendor ID: %d", ai, a.iVendorID);
        if (a.iVendorID != kPciVendorAmd) continue;
        int active = 0;
        if (adapterActive_(a.iAdapterIndex, &active) != ADL_OK || !active) continue;
        if (!buses.insert(a.iBusNumber).second) continue;  // another output of a GPU already listed
        Gpu g;
        g.adapterIndex = a.iAdapterIndex;
        g.busNumber = a.iBusNumber;
        g.adlName = Field(a.strAdapterName, sizeof a.strAdapterName);
        g.pnpId = Field(a.strPNPString, sizeof a.strPNPString);
        PciIdFields f = ParsePnpIdString(g.pnpId.c_str());
        g.vendor = f.vendor;
        g.device = f.device;
        g.name = g.adlName;
        FixedNames(g.device, g.adlName, &g.name, &g.codeName);
        int supported = 0, enabled = 0, version = 0;
        if (overdriveCaps_(g.adapterIndex, &supported, &enabled, &version) == ADL_OK && supported && version > 0 && version < 100)
            g.overdriveVersion = version;
        gpus_.push_back(g);
        Gpu& stored = gpus_.back();
        gAdlLog.Write("AMD_Display_Library_Init -  adapter %d - AMD_Display_Library_ReadGpuTemperature()", ai);
        float t = 0.0f;
        ReadTemperature(stored, &t);
        gAdlLog.Write("AMD_Display_Library_Init -  adapter %d - AMD_Display_Library_ReadGpuTemperature() OK.", ai);
        ADLMemoryInfo mem;
        std::memset(&mem, 0, sizeof mem);
        if (memoryInfo_(g.adapterIndex, &mem) == ADL_OK && mem.iMemorySize > 0 && mem.iMemorySize < (INT64_C(1) << 50)) {
            stored.memoryMB = mem.iMemorySize >> 20;
            gAdlLog.Write("AMD_Display_Library_Init - memory info: size:%lu, bandwidth:%lu, memoryInfo.strMemoryType:%s",
                          static_cast<unsigned long>(stored.memoryMB), static_cast<unsigned long>(mem.iMemoryBandwidth),
                          Field(mem.strMemoryType, sizeof mem.strMemoryType).c_str());
        }
        gAdlLog.Write("AMD_Display_Library_Init -  GPU %d: %s%s%s%s - Overdrive %d", static_cast<int>(gpus_.size()) - 1,
                      stored.name.c_str(), stored.codeName.empty() ? "" : " (", stored.codeName.c_str(),
                      stored.codeName.empty() ? "" : ")", stored.overdriveVersion);
    }
    gAdlLog.Write("AMD_Display_Library_Init - END OK.");
    return true;
}

void AdlBackend::Shutdown() {
    if (lib_) {
        if (contextCreated_ && mainDestroy_) mainDestroy_();
        platform::FreeLib(lib_);
    }
    lib_ = nullptr;
    contextCreated_ = false;
    adapterCount_ = 0;
    gpus_.clear();
}

AdlBackend::Gpu* AdlBackend::G(int gpu) {
    if (!lib_ || gpu < 0 || gpu >= count()) return nullptr;
    return &gpus_[static_cast<size_t>(gpu)];
}

bool AdlBackend::Ok(int status, int gpu, const char* call) {
    if (status == ADL_OK) return true;
    char key[96];
    std::snprintf(key, sizeof key, "adl:%d:%s:%d", gpu, call, status);
    ComplainOnce(key, "ProbeGPU: ADL %s failed for GPU %d (status %d); the previous reading is kept.", call, gpu, status);
    return false;
}

namespace {
bool Nonsense(int gpu, const char* what, long long value) {
    char key[96];
    std::snprintf(key, sizeof key, "adl-range:%d:%s", gpu, what);
    ComplainOnce(key, "ProbeGPU: ADL reports %s = %lld for GPU %d, which cannot be right; ignored.", what, value, gpu);
    return false;
}
}  // namespace

bool AdlBackend::ReadTemperature(Gpu& g, float* celsius) {
    int gpu = static_cast<int>(&g - gpus_.data());
    int milli = 0;
    bool ok = false;
    if (g.overdriveVersion >= 6) ok = od6Temperature_(g.adapterIndex, &milli) == ADL_OK;
    if (!ok) {
        ADLTemperature t;
        std::memset(&t, 0, sizeof t);
        t.iSize = sizeof t;
        ok = Ok(od5Temperature_(g.adapterIndex, 0, &t), gpu, "ADL_Overdrive5_Temperature_Get");
        milli = t.iTemperature;
    }
    if (!ok) return false;
    if (milli < -50000 || milli > 200000) return Nonsense(gpu, "temperature (millidegrees)", milli);
    *celsius = milli / 1000.0f;
    return true;
}

bool AdlBackend::Temperature(int gpu, TemperatureReading* out) {
    Gpu* g = G(gpu);
    float t = 0.0f;
    if (!g || !ReadTemperature(*g, &t)) return false;
    TemperatureReading r;
    r.celsius = t;
    *out = r;
    return true;
}

bool AdlBackend::Usage(int gpu, int* load, int* memoryLoad) {
    Gpu* g = G(gpu);
    if (!g) return false;
    int pct = -1;
    if (g->overdriveVersion >= 6) {
        ADLOD6CurrentStatus s;
        std::memset(&s, 0, sizeof s);
        if (od6Status_(g->adapterIndex, &s) == ADL_OK) pct = s.iActivityPercent;
    }
    if (pct < 0) {
        ADLPMActivity a;
        std::memset(&a, 0, sizeof a);
        a.iSize = sizeof a;
        if (!Ok(od5Activity_(g->adapterIndex, &a), gpu, "ADL_Overdrive5_CurrentActivity_Get")) return false;
        pct = a.iActivityPercent;
    }
    if (pct < 0 || pct > 100) return Nonsense(gpu, "activity percent", pct);
    *load = pct;
    *memoryLoad = -1;
    return true;
}

bool AdlBackend::MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) {
    // ADL reports the size of the memory but not how much of it is in use.
    return false;
}

bool AdlBackend::Fan(int gpu, int* value, int* isRpm) {
    Gpu* g = G(gpu);
    if (!g) return false;
    if (g->overdriveVersion >= 6) {
        ADLOD6FanSpeedInfo f;
        std::memset(&f, 0, sizeof f);
        if (od6Fan_(g->adapterIndex, &f) == ADL_OK) {
            if ((f.iSpeedType & ADL_OD6_FANSPEED_TYPE_PERCENT) && f.iFanSpeedPercent >= 0 && f.iFanSpeedPercent <= 100) {
                *value = f.iFanSpeedPercent;
                *isRpm = 0;
                return true;
            }
            if ((f.iSpeedType & ADL_OD6_FANSPEED_TYPE_RPM) && f.iFanSpeedRPM >= 0 && f.iFanSpeedRPM <= 30000) {
                *value = f.iFanSpeedRPM;
                *isRpm = 1;
                return true;
            }
        }
    }
    for (int type : {ADL_DL_FANCTRL_SPEED_TYPE_PERCENT, ADL_DL_FANCTRL_SPEED_TYPE_RPM}) {
        ADLFanSpeedValue f;
        std::memset(&f, 0, sizeof f);
        f.iSize = sizeof f;
        f.iSpeedType = type;
        if (od5Fan_(g->adapterIndex, 0, &f) != ADL_OK) continue;
        int limit = type == ADL_DL_FANCTRL_SPEED_TYPE_PERCENT ? 100 : 30000;
        if (f.iFanSpeed < 0 || f.iFanSpeed > limit) return Nonsense(gpu, "fan speed", f.iFanSpeed);
        *value = f.iFanSpeed;
        *isRpm = type == ADL_DL_FANCTRL_SPEED_TYPE_RPM ? 1 : 0;
        return true;
    }
    return false;
}

int AdlBackend::NumPerfLevels(int gpu) {
    Gpu* g = G(gpu);
    if (!g) return 0;
    if (g->numLevels < 0) {
        g->numLevels = 0;
        ADLODParameters p;
        std::memset(&p, 0, sizeof p);
        p.iSize = sizeof p;  // 56
        if (Ok(od5Parameters_(g->adapterIndex, &p), gpu, "ADL_Overdrive5_ODParameters_Get")) {
            if (p.iNumberOfPerformanceLevels < 1 || p.iNumberOfPerformanceLevels > kMaxLevels) {
                Nonsense(gpu, "performance level count", p.iNumberOfPerformanceLevels);
            } else {
                g->numLevels = p.iNumberOfPerformanceLevels;
                g->levels.assign(static_cast<size_t>(g->numLevels), ADLODPerformanceLevel{0, 0, 0});
            }
        }
    }
    return g->numLevels;
}

bool AdlBackend::PerfLevels(int gpu, bool defaults, std::vector<PerfLevel>* out) {
    Gpu* g = G(gpu);
    if (!g) return false;
    const int n = NumPerfLevels(gpu);
    if (n <= 0) return false;
    // The structure holds one level; the buffer is sized for all of them and
    // its size word tells the library how many fit.
    const size_t bytes = 8 + 12 * static_cast<size_t>(n);
    std::vector<int32_t> buffer(bytes / 4 + 1, 0);
    auto* levels = reinterpret_cast<ADLODPerformanceLevels*>(buffer.data());
    levels->iSize = static_cast<int>(bytes);
    if (!Ok(od5Levels_(g->adapterIndex, defaults ? 1 : 0, levels), gpu, "ADL_Overdrive5_ODPerformanceLevels_Get")) return false;
    gAdlLog.Write("AMD_Display_Library_ReadPerfLevels( %s ) - %s", g->name.c_str(), defaults ? "DEFAULT" : "CURRENT");
    std::vector<PerfLevel> result;
    for (int i = 0; i < n; ++i) {
        const ADLODPerformanceLevel& l = levels->aLevels[i];
        if (l.iEngineClock < 0 || l.iEngineClock > 2000000 || l.iMemoryClock < 0 || l.iMemoryClock > 5000000 || l.iVddc < 0 ||
            l.iVddc > 3000)
            return Nonsense(gpu, "performance level engine clock", l.iEngineClock);
        g->levels[static_cast<size_t>(i)] = l;
        PerfLevel p = ConvertLevel(l);
        gAdlLog.Write("--> gpu clock=%.1fMHz - mem clock=%.1fMHz - vddc=%.3fV", p.coreMHz, p.memoryMHz, p.voltage);
        result.push_back(p);
    }
    *out = result;
    return true;
}

bool AdlBackend::Clocks(int gpu, ClockReading* out) {
    Gpu* g = G(gpu);
    if (!g) return false;
    ClockReading r;
    if (g->overdriveVersion >= 6) {
        ADLOD6CurrentStatus s;
        std::memset(&s, 0, sizeof s);
        if (od6Status_(g->adapterIndex, &s) == ADL_OK && s.iEngineClock >= 0 && s.iEngineClock <= 2000000 &&
            s.iMemoryClock >= 0 && s.iMemoryClock <= 5000000) {
            r.coreMHz = s.iEngineClock / 100.0f;
            r.memoryMHz = s.iMemoryClock / 100.0f;
            r.performanceState = s.iCurrentPerformanceLevel;
            *out = r;
            return true;
        }
    }
    ADLPMActivity a;
    std::memset(&a, 0, sizeof a);
    a.iSize = sizeof a;
    if (!Ok(od5Activity_(g->adapterIndex, &a), gpu, "ADL_Overdrive5_CurrentActivity_Get")) return false;
    if (a.iEngineClock < 0 || a.iEngineClock > 2000000 || a.iMemoryClock < 0 || a.iMemoryClock > 5000000 || a.iVddc < 0 ||
        a.iVddc > 3000)
        return Nonsense(gpu, "current engine clock (10 kHz)", a.iEngineClock);
    r.coreMHz = a.iEngineClock / 100.0f;
    r.memoryMHz = a.iMemoryClock / 100.0f;
    r.voltage = a.iVddc / 1000.0f;
    r.performanceState = a.iCurrentPerformanceLevel;
    *out = r;
    return true;
}

bool AdlBackend::PowerTarget(int gpu, float* percent) {
    Gpu* g = G(gpu);
    if (!g || g->overdriveVersion < 6) return false;
    int supported = 0;
    if (od6PowerCaps_(g->adapterIndex, &supported) != ADL_OK || !supported) return false;
    int current = 0, def = 0;
    if (od6PowerGet_(g->adapterIndex, &current, &def) != ADL_OK) return false;
    // The power control is an adjustment of the board limit in percent.
    if (current < -100 || current > 100) return Nonsense(gpu, "power control %", current);
    *percent = 100.0f + static_cast<float>(current);
    return true;
}

std::string AdlBackend::GpuName(int gpu) {
    Gpu* g = G(gpu);
    return g ? g->name : std::string();
}

}  // namespace ProbeGPU
