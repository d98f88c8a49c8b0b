// libFuzzer: arbitrary bytes as every reply of the NVIDIA management library,
// through the NVML back-end and the sensor snapshot the HUD and the
// temperature log read. The library is monitor/fakes/fuzz_nvml.c, loaded the
// way the program loads the real one.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <vector>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/nvml_backend.h"
#include "monitor/sensors.h"

namespace {

void Quiet(const char*) {}

// The snapshot's view of the back-end, as the monitor's own source gives it
// for a GPU that NVML owns.
class NvmlSource : public monitor::SensorSource {
public:
    explicit NvmlSource(ProbeGPU::NvmlBackend& nvml) : nvml_(nvml) {}
    bool Temperature(int gpu, ProbeGPU::TemperatureReading* out) override { return nvml_.Temperature(gpu, out); }
    bool Usage(int gpu, int* load, int* memoryLoad) override { return nvml_.Usage(gpu, load, memoryLoad); }
    bool MemoryUsage(int gpu, int* t, int* u, int* f) override { return nvml_.MemoryUsage(gpu, t, u, f); }
    bool Fan(int gpu, int* value, int* isRpm) override { return nvml_.Fan(gpu, value, isRpm); }
    bool Voltage(int gpu, float* volts) override { return nvml_.Voltage(gpu, volts); }
    bool Power(int gpu, int rail, int* p, int* a) override { return nvml_.Power(gpu, rail, p, a); }
    bool HasExtraRails(int gpu) override { return nvml_.HasExtraRails(gpu); }
    bool ClockCeiling(int gpu, float* c, float* b) override { return nvml_.ClockCeiling(gpu, c, b); }
    bool Clocks(int gpu, ProbeGPU::ClockReading* out) override { return nvml_.Clocks(gpu, out); }
    bool PerfLevels(int gpu, std::vector<ProbeGPU::PerfLevel>* out) override {
        return nvml_.PerfLevels(gpu, false, out);
    }

private:
    ProbeGPU::NvmlBackend& nvml_;
};

using FeedFn = void (*)(const uint8_t*, size_t);

FeedFn Feed() {
    // Held open for the whole run, so the back-end's own load and unload
    // find the same library with the stream already in it.
    static FeedFn feed = [] {
        void* lib = dlopen(ARD_FUZZ_NVML_LIBRARY, RTLD_NOW);
        void* fn = lib ? dlsym(lib, "FuzzNvmlFeed") : nullptr;
        if (!fn) std::abort();
        return reinterpret_cast<FeedFn>(fn);
    }();
    return feed;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    monitor::SetEventSink(&Quiet);
    ProbeGPU::ResetComplaints();
    Feed()(data, size);
    ProbeGPU::NvmlBackend nvml;
    if (!nvml.Init(ARD_FUZZ_NVML_LIBRARY)) return 0;
    for (int gpu = -1; gpu <= nvml.count(); ++gpu) {  // one index on each side of the list too
        nvml.GpuName(gpu);
        nvml.DriverText(gpu);
        int base = 0, boost = 0;
        nvml.BaseBoostClocks(gpu, &base, &boost);
        float target = 0;
        nvml.PowerTarget(gpu, &target);
    }
    NvmlSource source(nvml);
    monitor::GpuSensorArray array(nvml.count());
    for (int gpu = 0; gpu < array.count(); ++gpu) monitor::PrimeRecord(source, gpu, array[gpu]);
    for (int refresh = 0; refresh < 3; ++refresh) monitor::RefreshSnapshot(source, &array);
    for (int gpu = 0; gpu < array.count(); ++gpu) {
        const monitor::GpuSensorSnapshot s = array.Snapshot(gpu);
        if (s.highest_temperature < s.temperature || s.highest_load < s.load) std::abort();
    }
    return 0;
}
