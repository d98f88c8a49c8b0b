#include "monitor/monitor_shell.h"

#include "platform/str_format.h"

#include <atomic>
#include <cstdarg>
#include <chrono>
#include <cstdio>
#include <thread>

#include "monitor/bridges.h"
#include "monitor/event_sink.h"
#include "monitor/gpu_db.h"
#include "monitor/pci_id.h"
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "platform/compiler.h"
#include "platform/platform.h"
#include "platform/str_format.h"

namespace monitor {

namespace {

// Written by the main thread only while the monitor thread does not run;
// read by the render thread and the launcher.
std::atomic<GpuSensorArray*> gArray{nullptr};
std::atomic<bool> gTemperatureSource{false};
std::atomic<bool> gNvidiaPresent{false};
std::atomic<unsigned> gPeriodMs{0};
std::atomic<bool> gGpuzEnabled{false};
std::atomic<void (*)()> gTick{nullptr};

// The monitor thread and its flags.
struct MonitorThread {
    std::thread thread;
    std::atomic<bool> stop{false};
    std::atomic<bool> done{false};
    bool running = false;
    bool stuck = false;  // did not end within two periods
};
MonitorThread gThread;

// The overclocking tool's and GPU-Z's readings, merged after each refresh.
struct Bridges {
    VthmBridge vthm;
    GpuzBridge gpuz;
    bool vthmReady = false;

    void Start(GpuSensorArray* array) {
        if (vthm.IsVthmPresent() && vthm.ConnectVthm() && vthm.CountVthmGpus()) {
            vthm.AllocateGpuArray();
            vthmReady = true;
        }
        (void)array;
    }

    void Merge(GpuSensorArray* array) {
        if (vthmReady && vthm.ReadVthm()) {
            for (int i = 0; i < array->count() && i < vthm.gpuCount(); ++i) {
                (*array)[i].override_core_clock.store(vthm.Value(i, vthm::kCoreClock), std::memory_order_relaxed);
                (*array)[i].override_memory_clock.store(vthm.Value(i, vthm::kMemoryClock), std::memory_order_relaxed);
            }
        }
        if (gGpuzEnabled.load(std::memory_order_relaxed)) {
            const ProbeGPU::GpuSlot* slot = ProbeGPU::getGpu(0);
            const bool gpu0Read = slot && slot->backend;
            if (MergeGpuzReadings(gpuz, array, gpu0Read)) {
                if (!gpuzSeen) EventLine("GPU-Z bridge: GPU 1's clocks and voltage now come from GPU-Z.");
                gpuzSeen = true;
                if (array->count() > 0 && (*array)[0].has_temperature.load(std::memory_order_relaxed))
                    gTemperatureSource.store(true);
            }
        }
    }
    bool gpuzSeen = false;
};

void ThreadMain(GpuSensorArray* array, unsigned periodMs) {
    platform::NameThisThread("monitor");
    ProbeGpuSource source;
    Bridges bridges;
    bridges.Start(array);
    while (!gThread.stop.load(std::memory_order_acquire)) {
        RefreshSnapshot(source, array);
        if (!gTemperatureSource.load(std::memory_order_relaxed)) {
            for (int i = 0; i < array->count(); ++i)
                if ((*array)[i].highest_temperature.load(std::memory_order_relaxed) > 0) gTemperatureSource.store(true);
        }
        bridges.Merge(array);
        if (void (*tick)() = gTick.load(std::memory_order_acquire)) tick();
        // Sleeps the period in short slices so that a stop request is seen
        // soon; the flag is what ends the loop.
        auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(periodMs);
        while (!gThread.stop.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(periodMs < 20 ? periodMs : 20));
    }
    gThread.done.store(true, std::memory_order_release);
}

}  // namespace

// ------------------------------------------------------------ start-up

bool MonitorStartup(int x, int y, int width, int height, int opt1, int opt2, int opt3) {
    if (!ProbeGPU::gProbeLog.enabled()) ProbeGPU::gProbeLog.Enable();
    if (!ProbeGPU::gAdlLog.enabled()) ProbeGPU::gAdlLog.Enable();
    return ProbeGPU::startup(x, y, width, height, opt1, opt2, opt3);
}

bool GraphicsDriversFound() { return ProbeGPU::isDisplayDeviceFound(); }

std::string AmdDriverText(const std::string& version, const std::string& packaging, const std::string& date) {
    std::string s = "Catalyst " + version;
    if (!packaging.empty()) s += " - " + packaging;
    s += " (" + date + ")";
    return s;
}

std::vector<std::string> BuildStartupReport(SensorSource& source) {
    std::vector<std::string> out;
    const int vendor = ProbeGPU::getPciVendorId();
    const int device = ProbeGPU::getPciDeviceId();
    out.push_back(StrFormat("Main graphics card device ID: %.4X-%.4X", static_cast<unsigned>(vendor) & 0xFFFFu,
                         static_cast<unsigned>(device) & 0xFFFFu));
    out.push_back(StrFormat("Main OpenGL graphics card: %s", ProbeGPU::getGlRenderer()));
    out.push_back(StrFormat("OpenGL: version %d.%d detected.", ProbeGPU::getGlMajorVersion(), ProbeGPU::getGlMinorVersion()));
    out.push_back(StrFormat("Max texture size supported (OpenGL): %dx%d", ProbeGPU::getGlMaxTextureSize(),
                         ProbeGPU::getGlMaxTextureSize()));
    out.push_back(StrFormat("Max viewport size: %d px", ProbeGPU::getGlMaxViewportWidth()));
    out.push_back(StrFormat("Max tessellation level: %.1f", ProbeGPU::getGlMaxTessLevel()));
    out.push_back(StrFormat("Main graphics drivers: %s", ProbeGPU::getDriverDescription()));
    out.push_back(StrFormat("CPU: %s", ProbeGPU::getCpuName()));
    out.push_back(StrFormat("CPU speed: %d MHz", ProbeGPU::getCpuSpeedMHz()));
    out.push_back(StrFormat("System memory: %s", StrFormat("%d MB", static_cast<int>(ProbeGPU::getSystemMemoryMB())).c_str()));
    out.push_back(StrFormat("OS: %s", ProbeGPU::getOsName()));
    out.push_back("Detecting GPUs...");
    const int count = ProbeGPU::getGpuCount();
    out.push_back(StrFormat("Found %d GPU(s).", count));

    // The sensor array: one record per GPU, made before the monitor thread exists.
    FreeSensorArray();
    GpuSensorArray* array = new GpuSensorArray(count);
    bool nvidia = false;
    std::string amdVersion, amdPackaging, amdDate;
    const bool amdFacts = ProbeGPU::getAmdDriverFacts(&amdVersion, &amdPackaging, &amdDate);
    for (int i = 0; i < count; ++i) {
        const ProbeGPU::GpuSlot* slot = ProbeGPU::getGpu(i);
        GpuSensorRecord& r = (*array)[i];
        const int gpuVendor = slot ? slot->pciVendor : vendor;
        r.name = slot && !slot->name.empty() ? slot->name : ProbeGPU::getGpuName();
        r.pci_vendor_id.store(gpuVendor, std::memory_order_relaxed);
        r.unit_count[0].store(slot ? slot->pixelUnits : 0, std::memory_order_relaxed);
        r.unit_count[1].store(slot ? slot->textureUnits : 0, std::memory_order_relaxed);
        if (gpuVendor == ProbeGPU::kPciVendorNvidia) nvidia = true;
        PrimeRecord(source, i, r);

        out.push_back(StrFormat("- GPU %d: %s", i + 1, r.name.c_str()));
        ProbeGPU::TemperatureReading t;
        if (source.Temperature(i, &t)) {
            out.push_back(StrFormat("  - GPU temperature: %d", static_cast<int>(t.celsius)));
            gTemperatureSource.store(true);
        }
        int load = 0, memLoad = -1;
        if (source.Usage(i, &load, &memLoad)) out.push_back(StrFormat("  - GPU load: %d %%", load));
        int fan = 0, rpm = 0;
        if (source.Fan(i, &fan, &rpm)) out.push_back(rpm ? StrFormat("  - Fan speed: %d RPM", fan) : StrFormat("  - Fan speed: %d %%", fan));
        ProbeGPU::ClockReading c;
        const bool clocks = source.Clocks(i, &c);
        if (clocks)
            out.push_back(StrFormat("  - Current values of true clock speeds: %d MHz (GPU) and %d MHz (memory)",
                                 static_cast<int>(c.coreMHz), static_cast<int>(c.memoryMHz)));
        if (gpuVendor == ProbeGPU::kPciVendorNvidia) {
            int base = 0, boost = 0;
            if (ProbeGPU::readBaseBoostClocks(i, &base, &boost) && boost > 0)
                out.push_back(StrFormat("  - GTX 600 series - GPU base clock: %dMHz - GPU boost clock: %dMHz", base, boost));
            float target = 0;
            if (ProbeGPU::readPowerTarget(i, &target)) {
                const int tdp = slot ? slot->boardPowerW : 0;
                out.push_back(StrFormat("  - GTX 600 series - GPU power target: %.1f %% TDP (%dW)", target,
                                     static_cast<int>(tdp * target / 100.0f + 0.5f)));
            }
        }
        float volts = 0;
        if (source.Voltage(i, &volts) && volts > 0) out.push_back(StrFormat("  - Current GPU voltage (VDDC): %.3f V", volts));
        std::vector<ProbeGPU::PerfLevel> levels;
        if (gpuVendor == ProbeGPU::kPciVendorAmd && source.PerfLevels(i, &levels)) {
            for (size_t l = 0; l < levels.size(); ++l)
                out.push_back(StrFormat("  - PState %d - GPU clock: %d MHz - memory clock: %d MHz - GPU voltage: %.3fV",
                                     static_cast<int>(l), static_cast<int>(levels[l].coreMHz), static_cast<int>(levels[l].memoryMHz),
                                     levels[l].voltage));
        } else if (clocks && c.performanceState >= 0) {
            out.push_back(StrFormat("  - PState %d - GPU clock: %d MHz - memory clock: %d MHz - GPU voltage: %.3fV",
                                 c.performanceState, static_cast<int>(c.coreMHz), static_cast<int>(c.memoryMHz),
                                 c.voltage > 0 ? c.voltage : volts));
        }
        std::string driver;
        if (gpuVendor == ProbeGPU::kPciVendorAmd && amdFacts) driver = AmdDriverText(amdVersion, amdPackaging, amdDate);
        else if (slot) driver = slot->driverVersion;
        if (!driver.empty()) out.push_back(StrFormat("  - Graphics driver: %s", driver.c_str()));
        if (slot) {
            if (const char* model = ProbeGPU::MakerBoardModelName(slot->subsystemVendor, slot->subsystemDevice))
                out.push_back(StrFormat("  - VXA model name: %s", model));
        }
    }
    gNvidiaPresent.store(nvidia);
    // A first refresh, so that a reader that comes before the monitor
    // thread's first period finds readings rather than zeros.
    RefreshSnapshot(source, array);
    gArray.store(array, std::memory_order_release);
    return out;
}

void WriteStartupReport() {
    ProbeGpuSource source;
    for (const std::string& line : BuildStartupReport(source)) EventLine("%s", line.c_str());
}

// ------------------------------------------------------------ monitor thread

void SetMonitorTickCallback(void (*callback)()) { gTick.store(callback, std::memory_order_release); }

bool StartMonitorThread(unsigned periodMs) {
    GpuSensorArray* array = gArray.load(std::memory_order_acquire);
    if (!array || periodMs == 0 || gThread.running) return false;
    gThread.stop.store(false);
    gThread.done.store(false);
    gThread.stuck = false;
    gPeriodMs.store(periodMs);
    gThread.thread = std::thread(&ThreadMain, array, periodMs);
    gThread.running = true;
    return true;
}

bool StopMonitorThread() {
    if (!gThread.running) return true;
    gThread.stop.store(true, std::memory_order_release);
    const unsigned period = gPeriodMs.load();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(2ull * period);
    while (!gThread.done.load(std::memory_order_acquire) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    gThread.running = false;
    if (gThread.done.load(std::memory_order_acquire)) {
        gThread.thread.join();
        return true;
    }
    // A vendor call that never returns: the thread keeps its array and the
    // library it is inside; both are left alone.
    gThread.thread.detach();
    gThread.stuck = true;
    EventLine("ProbeGPU: the monitor thread did not stop within %u ms; its sensors are left as they are.", 2 * period);
    return false;
}

void FreeSensorArray() {
    if (gThread.running || gThread.stuck) return;
    GpuSensorArray* array = gArray.exchange(nullptr, std::memory_order_acq_rel);
    delete array;
    gTemperatureSource.store(false);
}

void MonitorShutdown() {
    if (gThread.running || gThread.stuck) return;
    ProbeGPU::shutdown();
    ProbeGPU::gProbeLog.Disable();
    ProbeGPU::gAdlLog.Disable();
    gPeriodMs.store(0);
}

void EnableGpuzBridge(bool on) {
    gGpuzEnabled.store(on);
    if (on) EventLine("GPU-Z bridge: on; GPU-Z's readings are used while it runs.");
}

bool GpuzBridgeEnabled() { return gGpuzEnabled.load(); }

bool MergeGpuzReadings(GpuzBridge& gpuz, GpuSensorArray* array, bool gpu0HasSensorInterface) {
    if (!array || array->count() == 0 || !gpuz.OpenGpuzMemory()) return false;
    GpuSensorRecord& r = (*array)[0];
    bool any = false;
    double v = 0;
    // Values outside what any GPU reports are a block being rewritten or
    // garbage, and are passed over.
    if (gpuz.SensorValue(gpuz::kCoreClock, &v) && v > 0 && v < 20000) {
        r.override_core_clock.store(static_cast<float>(v));
        any = true;
    }
    if (gpuz.SensorValue(gpuz::kMemoryClock, &v) && v > 0 && v < 50000) {
        r.override_memory_clock.store(static_cast<float>(v));
        any = true;
    }
    if (gpuz.SensorValue(gpuz::kVddc, &v) && v > 0 && v < 3) {
        r.override_voltage.store(static_cast<float>(v));
        any = true;
    }
    // The GPU's own interface is trusted first for the temperature.
    if (!gpu0HasSensorInterface && gpuz.SensorValue(gpuz::kTemperature, &v) && v > -50 && v < 200) {
        const float t = static_cast<float>(v);
        r.temperature.store(t);
        r.has_temperature.store(true);
        if (t > r.highest_temperature.load()) r.highest_temperature.store(t);
        any = true;
    }
    return any;
}

// ------------------------------------------------------------ read side

const GpuSensorArray* SensorArray() { return gArray.load(std::memory_order_acquire); }

int SensorGpuCount() {
    const GpuSensorArray* a = SensorArray();
    return a ? a->count() : 0;
}

bool ReadGpuSensors(int gpu, GpuSensorSnapshot* out) {
    const GpuSensorArray* a = SensorArray();
    if (!a || gpu < 0 || gpu >= a->count()) return false;
    *out = a->Snapshot(gpu);
    return true;
}

bool GpuTemperatureSourcePresent() { return gTemperatureSource.load() && SensorArray() != nullptr; }

float FirstGpuTemperature() {
    const GpuSensorArray* a = SensorArray();
    return a && a->count() > 0 ? (*a)[0].temperature.load(std::memory_order_relaxed) : 0.0f;
}

bool NvidiaBoardPresent() { return gNvidiaPresent.load(); }
unsigned MonitorPeriodMs() { return gPeriodMs.load(); }

std::string AdapterText() {
    if (ProbeGPU::gGlobals.gpu_name[0]) return ProbeGPU::gGlobals.gpu_name;
    if (ProbeGPU::gGlobals.gl_renderer[0]) return ProbeGPU::gGlobals.gl_renderer;
    return "Unknown";
}

std::string RendererText() { return ProbeGPU::gGlobals.gl_renderer[0] ? ProbeGPU::gGlobals.gl_renderer : "Unknown"; }
std::string DriverText() { return ProbeGPU::getDriverDescription(); }

float ScoreGpuClockMHz() {
    GpuSensorSnapshot s;
    return ReadGpuSensors(0, &s) ? s.shown_core_clock() : 0.0f;
}

float ScoreMemoryClockMHz() {
    GpuSensorSnapshot s;
    return ReadGpuSensors(0, &s) ? s.shown_memory_clock() : 0.0f;
}

// The simulation's GPU path runs on OpenGL 4.3 compute shaders on any vendor,
// so the GPU can take it wherever the probe's context offers them; the vendor
// SDK's own "GPU" selection in the registry still counts where it is set.
bool GpuPhysXAvailable() { return ProbeGPU::isPhysXOnGpu() || ProbeGPU::hasComputeShaders(); }
uint32_t PhysXVersion() { return ProbeGPU::getPhysXVersion(); }

}  // namespace monitor
