#include "monitor/nvml_backend.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {

namespace {

template <typename Fn>
Fn Sym(platform::LibHandle lib, const char* name) {
    return reinterpret_cast<Fn>(platform::LibSymbol(lib, name));
}

// A text buffer from the library may lack its terminator.
std::string Terminated(const char* buf, size_t size) {
    size_t n = 0;
    while (n < size && buf[n]) ++n;
    std::string s(buf, n);
    for (char& c : s)
        if (static_cast<unsigned char>(c) < 32) c = '?';
    return s;
}

}  // namespace

std::string NvmlBackend::LibraryName() {
    const char* v = std::getenv(kLibraryVariable);
    return (v && *v) ? std::string(v) : std::string(kDefaultLibrary);
}

NvmlBackend::~NvmlBackend() { Shutdown(); }

std::string NvmlBackend::NormalizeBusId(const char* busId) {
    if (!busId) return std::string();
    unsigned domain = 0, bus = 0, dev = 0, fn = 0;
    int used = 0;
    if (std::sscanf(busId, "%x:%x:%x.%x%n", &domain, &bus, &dev, &fn, &used) != 4 || busId[used] != '\0') return std::string();
    if (domain > 0xFFFF || bus > 0xFF || dev > 0x1F || fn > 7) return std::string();
    char out[32];
    std::snprintf(out, sizeof out, "%04x:%02x:%02x.%x", domain, bus, dev, fn);
    return out;
}

bool NvmlBackend::Init(const std::string& library) {
    Shutdown();
    platform::LibHandle lib = platform::LoadLib(library.c_str());
    if (!lib) {
        gProbeLog.Write("NVML: %s not found.", library.c_str());
        return false;
    }
    auto init = Sym<nvmlInit_v2_fn>(lib, "nvmlInit_v2");
    auto getCount = Sym<nvmlDeviceGetCount_v2_fn>(lib, "nvmlDeviceGetCount_v2");
    auto getHandle = Sym<nvmlDeviceGetHandleByIndex_v2_fn>(lib, "nvmlDeviceGetHandleByIndex_v2");
    auto getPci = Sym<nvmlDeviceGetPciInfo_v3_fn>(lib, "nvmlDeviceGetPciInfo_v3");
    if (!getPci) getPci = Sym<nvmlDeviceGetPciInfo_v3_fn>(lib, "nvmlDeviceGetPciInfo_v2");  // same layout
    shutdown_ = Sym<nvmlShutdown_fn>(lib, "nvmlShutdown");
    getName_ = Sym<nvmlDeviceGetName_fn>(lib, "nvmlDeviceGetName");
    getTemperature_ = Sym<nvmlDeviceGetTemperature_fn>(lib, "nvmlDeviceGetTemperature");
    getTemperatureThreshold_ = Sym<nvmlDeviceGetTemperatureThreshold_fn>(lib, "nvmlDeviceGetTemperatureThreshold");
    getUtilization_ = Sym<nvmlDeviceGetUtilizationRates_fn>(lib, "nvmlDeviceGetUtilizationRates");
    getMemoryInfo_ = Sym<nvmlDeviceGetMemoryInfo_fn>(lib, "nvmlDeviceGetMemoryInfo");
    getFanSpeed_ = Sym<nvmlDeviceGetFanSpeed_fn>(lib, "nvmlDeviceGetFanSpeed");
    getClockInfo_ = Sym<nvmlDeviceGetClockInfo_fn>(lib, "nvmlDeviceGetClockInfo");
    getMaxClockInfo_ = Sym<nvmlDeviceGetMaxClockInfo_fn>(lib, "nvmlDeviceGetMaxClockInfo");
    getPerformanceState_ = Sym<nvmlDeviceGetPerformanceState_fn>(lib, "nvmlDeviceGetPerformanceState");
    getPowerUsage_ = Sym<nvmlDeviceGetPowerUsage_fn>(lib, "nvmlDeviceGetPowerUsage");
    getEnforcedPowerLimit_ = Sym<nvmlDeviceGetEnforcedPowerLimit_fn>(lib, "nvmlDeviceGetEnforcedPowerLimit");
    getDefaultPowerLimit_ = Sym<nvmlDeviceGetPowerManagementDefaultLimit_fn>(lib, "nvmlDeviceGetPowerManagementDefaultLimit");
    getPowerLimitConstraints_ =
        Sym<nvmlDeviceGetPowerManagementLimitConstraints_fn>(lib, "nvmlDeviceGetPowerManagementLimitConstraints");
    getThrottleReasons_ = Sym<nvmlDeviceGetCurrentClocksThrottleReasons_fn>(lib, "nvmlDeviceGetCurrentClocksThrottleReasons");
    getDefaultAppClock_ = Sym<nvmlDeviceGetDefaultApplicationsClock_fn>(lib, "nvmlDeviceGetDefaultApplicationsClock");
    auto getDriver = Sym<nvmlSystemGetDriverVersion_fn>(lib, "nvmlSystemGetDriverVersion");
    auto getVersion = Sym<nvmlSystemGetNVMLVersion_fn>(lib, "nvmlSystemGetNVMLVersion");
    auto getCores = Sym<nvmlDeviceGetNumGpuCores_fn>(lib, "nvmlDeviceGetNumGpuCores");

    if (!init || !getCount || !getHandle || !getPci || !shutdown_) {
        gProbeLog.Write("NVML: %s lacks its entry points; not used.", library.c_str());
        monitor::EventLine("ProbeGPU: %s is not a usable NVML library (entry points missing).", library.c_str());
        platform::FreeLib(lib);
        shutdown_ = nullptr;
        return false;
    }
    nvmlReturn_t r = init();
    if (r != NVML_SUCCESS) {
        gProbeLog.Write("NVML: nvmlInit_v2() failed (%d).", r);
        monitor::EventLine("ProbeGPU: NVML did not initialise (error %d); NVIDIA sensors are not read.", r);
        platform::FreeLib(lib);
        shutdown_ = nullptr;
        return false;
    }
    lib_ = lib;
    char text[NVML_SYSTEM_DRIVER_VERSION_BUFFER_SIZE] = {0};
    if (getVersion && getVersion(text, sizeof text) == NVML_SUCCESS) nvmlVersion_ = Terminated(text, sizeof text);
    std::memset(text, 0, sizeof text);
    if (getDriver && getDriver(text, sizeof text) == NVML_SUCCESS) driverVersion_ = Terminated(text, sizeof text);
    gProbeLog.Write("NVML version: %s", nvmlVersion_.c_str());
    gProbeLog.Write("NVML - driver version: %s", driverVersion_.c_str());

    unsigned n = 0;
    if (getCount(&n) != NVML_SUCCESS) n = 0;
    if (n > 64) {
        monitor::EventLine("ProbeGPU: NVML reports %u GPUs; only the first 64 are read.", n);
        n = 64;
    }
    for (unsigned i = 0; i < n; ++i) {
        Device d;
        if (getHandle(i, &d.handle) != NVML_SUCCESS || !d.handle) {
            gProbeLog.Write("NVML - GPU %u: no handle; skipped.", i);
            continue;
        }
        nvmlPciInfo_t pci;
        std::memset(&pci, 0, sizeof pci);
        if (getPci(d.handle, &pci) == NVML_SUCCESS) {
            d.vendor = pci.pciDeviceId & 0xFFFFu;
            d.device = pci.pciDeviceId >> 16;
            d.subsystemVendor = pci.pciSubSystemId & 0xFFFFu;
            d.subsystemDevice = pci.pciSubSystemId >> 16;
            char bus[sizeof pci.busId + 1] = {0};
            std::memcpy(bus, pci.busId, sizeof pci.busId);
            d.pciSlot = NormalizeBusId(bus);
        }
        char name[NVML_DEVICE_NAME_V2_BUFFER_SIZE] = {0};
        if (getName_ && getName_(d.handle, name, sizeof name) == NVML_SUCCESS) d.name = Terminated(name, sizeof name);
        unsigned cores = 0;
        if (getCores && getCores(d.handle, &cores) == NVML_SUCCESS && cores < 1000000) d.cores = cores;
        gProbeLog.Write("NVML - GPU %u: %s [%04X-%04X] bus %s", i, d.name.c_str(), d.vendor, d.device,
                        d.pciSlot.empty() ? "?" : d.pciSlot.c_str());
        devices_.push_back(d);
        lastUsage_.emplace_back();
        int gpu = static_cast<int>(devices_.size()) - 1;
        unsigned enforced = 0, def = 0, minL = 0, maxL = 0;
        if (getEnforcedPowerLimit_ && getDefaultPowerLimit_ && getEnforcedPowerLimit_(d.handle, &enforced) == NVML_SUCCESS &&
            getDefaultPowerLimit_(d.handle, &def) == NVML_SUCCESS && def > 0) {
            int mp = 100;
            if (getPowerLimitConstraints_ && getPowerLimitConstraints_(d.handle, &minL, &maxL) == NVML_SUCCESS && maxL > 0)
                mp = static_cast<int>((static_cast<uint64_t>(maxL) * 100 + def / 2) / def);
            gProbeLog.Write("- GPU %d - Power limit %d - mp=%d, mW=%u", gpu,
                            static_cast<int>((static_cast<uint64_t>(enforced) * 100 + def / 2) / def), mp, enforced);
        }
    }
    return true;
}

void NvmlBackend::Shutdown() {
    if (lib_) {
        if (shutdown_) shutdown_();
        platform::FreeLib(lib_);
    }
    lib_ = nullptr;
    devices_.clear();
    lastUsage_.clear();
    driverVersion_.clear();
    nvmlVersion_.clear();
}

nvmlDevice_t NvmlBackend::Handle(int gpu) const {
    if (!lib_ || gpu < 0 || gpu >= count()) return nullptr;
    return devices_[static_cast<size_t>(gpu)].handle;
}

bool NvmlBackend::Ok(nvmlReturn_t r, int gpu, const char* call) {
    if (r == NVML_SUCCESS) return true;
    if (r != NVML_ERROR_NOT_SUPPORTED) {
        char key[96];
        std::snprintf(key, sizeof key, "nvml:%d:%s:%d", gpu, call, r);
        ComplainOnce(key, "ProbeGPU: NVML %s failed for GPU %d (error %d); the previous reading is kept.", call, gpu, r);
    }
    return false;
}

namespace {
bool Nonsense(int gpu, const char* what, long long value) {
    char key[96];
    std::snprintf(key, sizeof key, "nvml-range:%d:%s", gpu, what);
    ComplainOnce(key, "ProbeGPU: NVML reports %s = %lld for GPU %d, which cannot be right; ignored.", what, value, gpu);
    return false;
}
}  // namespace

bool NvmlBackend::Temperature(int gpu, TemperatureReading* out) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getTemperature_) return false;
    unsigned t = 0;
    if (!Ok(getTemperature_(h, NVML_TEMPERATURE_GPU, &t), gpu, "nvmlDeviceGetTemperature")) return false;
    if (t > 200) return Nonsense(gpu, "temperature", t);
    TemperatureReading r;
    r.celsius = static_cast<float>(t);
    unsigned slow = 0;
    if (getTemperatureThreshold_ && getTemperatureThreshold_(h, NVML_TEMPERATURE_THRESHOLD_SLOWDOWN, &slow) == NVML_SUCCESS &&
        slow > 0 && slow <= 200)
        r.threshold = static_cast<int>(slow);
    *out = r;
    return true;
}

bool NvmlBackend::Usage(int gpu, int* load, int* memoryLoad) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getUtilization_) return false;
    nvmlUtilization_t u = {0, 0};
    if (!Ok(getUtilization_(h, &u), gpu, "nvmlDeviceGetUtilizationRates")) return false;
    if (u.gpu > 100) return Nonsense(gpu, "GPU utilisation", u.gpu);
    if (u.memory > 100) return Nonsense(gpu, "memory utilisation", u.memory);
    *load = static_cast<int>(u.gpu);
    *memoryLoad = static_cast<int>(u.memory);
    // Written when the figures change, not at every refresh.
    std::vector<int>& last = lastUsage_[static_cast<size_t>(gpu)];
    if (last.size() != 2 || last[0] != *load || last[1] != *memoryLoad) {
        last = {*load, *memoryLoad};
        gProbeLog.Write("*********************** GPU Usages *********************");
        gProbeLog.Write("Usage[%d] = %d", 0, *load);
        gProbeLog.Write("Usage[%d] = %d", 1, *memoryLoad);
    }
    return true;
}

bool NvmlBackend::MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getMemoryInfo_) return false;
    nvmlMemory_t m = {0, 0, 0};
    if (!Ok(getMemoryInfo_(h, &m), gpu, "nvmlDeviceGetMemoryInfo")) return false;
    if (m.total == 0 || m.used > m.total || m.total > (1ull << 50)) return Nonsense(gpu, "memory total", static_cast<long long>(m.total));
    *totalMB = static_cast<int>(m.total >> 20);
    *usedMB = static_cast<int>(m.used >> 20);
    *freeMB = static_cast<int>((m.total - m.used) >> 20);
    return true;
}

bool NvmlBackend::Fan(int gpu, int* value, int* isRpm) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getFanSpeed_) return false;
    unsigned s = 0;
    if (!Ok(getFanSpeed_(h, &s), gpu, "nvmlDeviceGetFanSpeed")) return false;
    // NVML documents that the percentage may pass 100 on some boards.
    if (s > 150) return Nonsense(gpu, "fan speed %", s);
    *value = static_cast<int>(s);
    *isRpm = 0;
    return true;
}

bool NvmlBackend::Clocks(int gpu, ClockReading* out) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getClockInfo_) return false;
    unsigned core = 0, mem = 0;
    if (!Ok(getClockInfo_(h, NVML_CLOCK_GRAPHICS, &core), gpu, "nvmlDeviceGetClockInfo")) return false;
    if (!Ok(getClockInfo_(h, NVML_CLOCK_MEM, &mem), gpu, "nvmlDeviceGetClockInfo")) return false;
    if (core > 20000) return Nonsense(gpu, "graphics clock MHz", core);
    if (mem > 50000) return Nonsense(gpu, "memory clock MHz", mem);
    ClockReading r;
    r.coreMHz = static_cast<float>(core);
    r.memoryMHz = static_cast<float>(mem);
    int p = NVML_PSTATE_UNKNOWN;
    if (getPerformanceState_ && getPerformanceState_(h, &p) == NVML_SUCCESS && p >= 0 && p <= 15) r.performanceState = p;
    *out = r;
    return true;
}

bool NvmlBackend::Power(int gpu, int rail, int* percent, int* available) {
    nvmlDevice_t h = Handle(gpu);
    if (rail != 0 || !h || !getPowerUsage_ || !getEnforcedPowerLimit_) return false;
    unsigned mw = 0, limit = 0;
    if (!Ok(getPowerUsage_(h, &mw), gpu, "nvmlDeviceGetPowerUsage")) return false;
    if (!Ok(getEnforcedPowerLimit_(h, &limit), gpu, "nvmlDeviceGetEnforcedPowerLimit")) return false;
    if (limit == 0) return Nonsense(gpu, "enforced power limit mW", 0);
    uint64_t pct = (static_cast<uint64_t>(mw) * 100 + limit / 2) / limit;
    if (pct > 1000) return Nonsense(gpu, "power draw mW", mw);
    *percent = static_cast<int>(pct);
    *available = 1;
    return true;
}

bool NvmlBackend::ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getThrottleReasons_ || !getMaxClockInfo_ || !getClockInfo_) return false;
    unsigned maxClock = 0, core = 0;
    unsigned long long reasons = 0;
    if (getMaxClockInfo_(h, NVML_CLOCK_GRAPHICS, &maxClock) != NVML_SUCCESS || maxClock == 0 || maxClock > 20000) return false;
    if (getThrottleReasons_(h, &reasons) != NVML_SUCCESS) return false;
    if (getClockInfo_(h, NVML_CLOCK_GRAPHICS, &core) != NVML_SUCCESS || core > 20000) return false;
    // An idle GPU or one held by an application clock setting is not
    // throttled; any other reason caps it at the clock it runs now.
    const unsigned long long benign = NVML_THROTTLE_REASON_GPU_IDLE | NVML_THROTTLE_REASON_APPLICATIONS_CLOCKS_SETTING;
    *boundMHz = static_cast<float>(maxClock);
    *ceilingMHz = (reasons & ~benign) ? static_cast<float>(core < maxClock ? core : maxClock) : static_cast<float>(maxClock);
    return true;
}

bool NvmlBackend::BaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getDefaultAppClock_ || !getMaxClockInfo_) return false;
    unsigned base = 0, boost = 0;
    if (getDefaultAppClock_(h, NVML_CLOCK_GRAPHICS, &base) != NVML_SUCCESS || base == 0 || base > 20000) return false;
    if (getMaxClockInfo_(h, NVML_CLOCK_GRAPHICS, &boost) != NVML_SUCCESS || boost > 20000) return false;
    *baseMHz = static_cast<int>(base);
    *boostMHz = static_cast<int>(boost > base ? boost : 0);
    return true;
}

bool NvmlBackend::PowerTarget(int gpu, float* percent) {
    nvmlDevice_t h = Handle(gpu);
    if (!h || !getEnforcedPowerLimit_ || !getDefaultPowerLimit_) return false;
    unsigned enforced = 0, def = 0;
    if (getEnforcedPowerLimit_(h, &enforced) != NVML_SUCCESS || getDefaultPowerLimit_(h, &def) != NVML_SUCCESS || def == 0)
        return false;
    double pct = 100.0 * enforced / def;
    if (pct > 1000.0) return false;
    *percent = static_cast<float>(pct);
    return true;
}

std::string NvmlBackend::GpuName(int gpu) {
    if (!Handle(gpu)) return std::string();
    return devices_[static_cast<size_t>(gpu)].name;
}

std::string NvmlBackend::DriverText(int gpu) { return driverVersion_; }

}  // namespace ProbeGPU
