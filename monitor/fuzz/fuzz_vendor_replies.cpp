// libFuzzer: arbitrary bytes as every reply of a vendor library, through its
// back-end and the sensor snapshot the HUD and the temperature log read. The
// first byte picks the library: the NVIDIA management library
// (monitor/fakes/fuzz_nvml.c) or the AMD display library (fuzz_adl.c), each
// loaded by path the way the program loads the real one; the rest answers
// its calls.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "monitor/adl_backend.h"
#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/nvml_backend.h"
#include "monitor/sensors.h"
#include "platform/platform.h"

namespace {

void Quiet(const char*) {}

// The snapshot's view of a back-end, as the monitor's own source gives it
// for the GPUs that back-end owns.
class BackendSource : public monitor::SensorSource {
public:
    explicit BackendSource(ProbeGPU::GpuSensorBackend& b) : b_(b) {}
    bool Temperature(int gpu, ProbeGPU::TemperatureReading* out) override { return b_.Temperature(gpu, out); }
    bool Usage(int gpu, int* load, int* memoryLoad) override { return b_.Usage(gpu, load, memoryLoad); }
    bool MemoryUsage(int gpu, int* t, int* u, int* f) override { return b_.MemoryUsage(gpu, t, u, f); }
    bool Fan(int gpu, int* value, int* isRpm) override { return b_.Fan(gpu, value, isRpm); }
    bool Voltage(int gpu, float* volts) override { return b_.Voltage(gpu, volts); }
    bool Power(int gpu, int rail, int* p, int* a) override { return b_.Power(gpu, rail, p, a); }
    bool HasExtraRails(int gpu) override { return b_.HasExtraRails(gpu); }
    bool ClockCeiling(int gpu, float* c, float* b) override { return b_.ClockCeiling(gpu, c, b); }
    bool Clocks(int gpu, ProbeGPU::ClockReading* out) override { return b_.Clocks(gpu, out); }
    bool PerfLevels(int gpu, std::vector<ProbeGPU::PerfLevel>* out) override { return b_.PerfLevels(gpu, false, out); }

private:
    ProbeGPU::GpuSensorBackend& b_;
};

using FeedFn = void (*)(const uint8_t*, size_t);

// Held open for the whole run, so the back-end's own load and unload find
// the same library with the stream already in it.
FeedFn OpenFeed(const char* library, const char* entry) {
    platform::LibHandle lib = platform::LoadLib(library);
    void* fn = platform::LibSymbol(lib, entry);
    if (!fn) std::abort();
    return reinterpret_cast<FeedFn>(fn);
}

// Every reading of every GPU the back-end lists, one index on each side of
// the list too, then three refreshes of the snapshot.
void ReadEverything(ProbeGPU::GpuSensorBackend& backend, int count) {
    for (int gpu = -1; gpu <= count; ++gpu) {
        backend.GpuName(gpu);
        backend.DriverText(gpu);
        int base = 0, boost = 0;
        backend.BaseBoostClocks(gpu, &base, &boost);
        float target = 0;
        backend.PowerTarget(gpu, &target);
        std::vector<ProbeGPU::PerfLevel> levels;
        backend.PerfLevels(gpu, true, &levels);
    }
    BackendSource source(backend);
    monitor::GpuSensorArray array(count);
    for (int gpu = 0; gpu < array.count(); ++gpu) monitor::PrimeRecord(source, gpu, array[gpu]);
    for (int refresh = 0; refresh < 3; ++refresh) monitor::RefreshSnapshot(source, &array);
    for (int gpu = 0; gpu < array.count(); ++gpu) {
        const monitor::GpuSensorSnapshot s = array.Snapshot(gpu);
        if (s.highest_temperature < s.temperature || s.highest_load < s.load) std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const FeedFn nvmlFeed = OpenFeed(ARD_FUZZ_NVML_LIBRARY, "FuzzNvmlFeed");
    static const FeedFn adlFeed = OpenFeed(ARD_FUZZ_ADL_LIBRARY, "FuzzAdlFeed");
    if (size < 1) return 0;
    monitor::SetEventSink(&Quiet);
    ProbeGPU::ResetComplaints();
    if (data[0] & 1) {
        adlFeed(data + 1, size - 1);
        ProbeGPU::AdlBackend adl;
        if (adl.Init({ARD_FUZZ_ADL_LIBRARY})) ReadEverything(adl, adl.count());
    } else {
        nvmlFeed(data + 1, size - 1);
        ProbeGPU::NvmlBackend nvml;
        if (nvml.Init(ARD_FUZZ_NVML_LIBRARY)) ReadEverything(nvml, nvml.count());
    }
    return 0;
}
