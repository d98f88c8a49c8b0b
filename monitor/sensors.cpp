#include "monitor/sensors.h"

#include "monitor/probe_gpu.h"
#include "monitor/pci_id.h"

namespace monitor {

namespace {
constexpr auto R = std::memory_order_relaxed;

void Raise(std::atomic<float>& high, float v) {
    if (v > high.load(R)) high.store(v, R);
}
}  // namespace

GpuSensorSnapshot GpuSensorArray::Snapshot(int i) const {
    GpuSensorSnapshot s;
    if (i < 0 || i >= count_) return s;
    const GpuSensorRecord& r = records_[static_cast<size_t>(i)];
    s.name = r.name;
    s.pci_vendor_id = r.pci_vendor_id.load(R);
    s.has_temperature = r.has_temperature.load(R);
    s.has_load = r.has_load.load(R);
    s.temperature = r.temperature.load(R);
    s.highest_temperature = r.highest_temperature.load(R);
    s.temperature_threshold = r.temperature_threshold.load(R);
    s.temperature_hotspot = r.temperature_hotspot.load(R);
    s.temperature_memory = r.temperature_memory.load(R);
    s.load = r.load.load(R);
    s.highest_load = r.highest_load.load(R);
    s.memory_load = r.memory_load.load(R);
    s.memory_total_mb = r.memory_total_mb.load(R);
    s.memory_used_mb = r.memory_used_mb.load(R);
    s.memory_free_mb = r.memory_free_mb.load(R);
    s.fan_value = r.fan_value.load(R);
    s.fan_is_rpm = r.fan_is_rpm.load(R);
    s.performance_state = r.performance_state.load(R);
    s.core_clock = r.core_clock.load(R);
    s.highest_core_clock = r.highest_core_clock.load(R);
    s.memory_clock = r.memory_clock.load(R);
    s.highest_memory_clock = r.highest_memory_clock.load(R);
    s.core_voltage = r.core_voltage.load(R);
    s.highest_core_voltage = r.highest_core_voltage.load(R);
    s.power_percent = r.power_percent.load(R);
    s.power_available = r.power_available.load(R);
    s.second_voltage = r.second_voltage.load(R);
    s.extra_rails = r.extra_rails.load(R);
    s.rail_percent[0] = r.rail_percent[0].load(R);
    s.rail_percent[1] = r.rail_percent[1].load(R);
    s.clock_ceiling = r.clock_ceiling.load(R);
    s.lowest_clock_ceiling = r.lowest_clock_ceiling.load(R);
    s.clock_bound = r.clock_bound.load(R);
    s.fill_rate[0] = r.fill_rate[0].load(R);
    s.fill_rate[1] = r.fill_rate[1].load(R);
    s.override_core_clock = r.override_core_clock.load(R);
    s.override_memory_clock = r.override_memory_clock.load(R);
    s.override_voltage = r.override_voltage.load(R);
    return s;
}

// ------------------------------------------------------------ library source

bool ProbeGpuSource::Temperature(int gpu, ProbeGPU::TemperatureReading* out) {
    return ProbeGPU::readTemperature(gpu, &out->celsius, &out->threshold, &out->hotspot, &out->memory);
}
bool ProbeGpuSource::Usage(int gpu, int* load, int* memoryLoad) { return ProbeGPU::readUsage(gpu, load, memoryLoad); }
bool ProbeGpuSource::MemoryUsage(int gpu, int* t, int* u, int* f) { return ProbeGPU::readMemoryUsage(gpu, t, u, f); }
bool ProbeGpuSource::Fan(int gpu, int* value, int* isRpm) { return ProbeGPU::readFan(gpu, value, isRpm); }
bool ProbeGpuSource::Voltage(int gpu, float* volts) { return ProbeGPU::readVoltage(gpu, volts); }
bool ProbeGpuSource::Power(int gpu, int rail, int* p, int* a) { return ProbeGPU::readPower(gpu, rail, p, a); }
bool ProbeGpuSource::HasExtraRails(int gpu) { return ProbeGPU::hasExtraPowerRails(gpu); }
bool ProbeGpuSource::ClockCeiling(int gpu, float* c, float* b) { return ProbeGPU::readClockCeiling(gpu, c, b); }
bool ProbeGpuSource::Clocks(int gpu, ProbeGPU::ClockReading* out) {
    return ProbeGPU::readClocks(gpu, &out->performanceState, &out->coreMHz, &out->memoryMHz, &out->voltage);
}
bool ProbeGpuSource::PerfLevels(int gpu, std::vector<ProbeGPU::PerfLevel>* out) {
    return ProbeGPU::getNumPerfLevels(gpu) > 0 && ProbeGPU::readPerfLevels(gpu, false, out);
}

// ------------------------------------------------------------ refresh

void PrimeRecord(SensorSource& source, int gpu, GpuSensorRecord& r) {
    r.extra_rails.store(source.HasExtraRails(gpu), R);
    float ceiling = 0, bound = 0;
    if (source.ClockCeiling(gpu, &ceiling, &bound) && bound > 0) {
        r.clock_bound.store(bound, R);
        r.clock_ceiling.store(ceiling, R);
        r.lowest_clock_ceiling.store(ceiling, R);
    }
}

namespace {

// Voltage, power, the clock ceiling and the clocks: the NVIDIA rules, which
// serve every GPU whose interface has no performance levels.
void RefreshClocksPowerVoltage(SensorSource& source, int i, GpuSensorRecord& r) {
    float v = 0;
    if (source.Voltage(i, &v) && v > 0) {
        r.second_voltage.store(v, R);
        Raise(r.highest_core_voltage, v);
    }
    int percent = 0, available = 0;
    if (source.Power(i, 0, &percent, &available)) {
        r.power_percent.store(percent, R);
        r.power_available.store(available, R);
    }
    if (r.extra_rails.load(R)) {
        for (int rail = 1; rail <= 2; ++rail) {
            int p = 0, a = 0;
            if (source.Power(i, rail, &p, &a)) r.rail_percent[rail - 1].store(p, R);
        }
    }
    if (r.clock_bound.load(R) > 0) {
        float ceiling = 0, bound = 0;
        if (source.ClockCeiling(i, &ceiling, &bound) && bound > 0) {
            r.clock_ceiling.store(ceiling, R);
            r.clock_bound.store(bound, R);
            float low = r.lowest_clock_ceiling.load(R);
            if (low <= 0 || ceiling < low) r.lowest_clock_ceiling.store(ceiling, R);
        }
    }
    ProbeGPU::ClockReading c;
    if (source.Clocks(i, &c)) {
        r.performance_state.store(c.performanceState, R);
        r.core_clock.store(c.coreMHz, R);
        r.memory_clock.store(c.memoryMHz, R);
        // A clock reading without a voltage does not wipe the last one.
        if (c.voltage > 0) r.core_voltage.store(c.voltage, R);
    }
    Raise(r.highest_core_clock, r.core_clock.load(R));
    Raise(r.highest_memory_clock, r.memory_clock.load(R));
    Raise(r.highest_core_voltage, r.core_voltage.load(R));
}

}  // namespace

void RefreshSnapshot(SensorSource& source, GpuSensorArray* array) {
    if (!array || array->count() == 0) return;
    for (int i = 0; i < array->count(); ++i) {
        GpuSensorRecord& r = (*array)[i];
        ProbeGPU::TemperatureReading t;
        if (source.Temperature(i, &t)) {
            r.temperature.store(t.celsius, R);
            r.has_temperature.store(true, R);
            r.temperature_threshold.store(t.threshold, R);
            r.temperature_hotspot.store(t.hotspot, R);
            r.temperature_memory.store(t.memory, R);
            Raise(r.highest_temperature, t.celsius);
        }
        int load = 0, second = -1;
        if (source.Usage(i, &load, &second)) {
            r.load.store(static_cast<float>(load), R);
            r.has_load.store(true, R);
            r.memory_load.store(second, R);
            Raise(r.highest_load, static_cast<float>(load));
        }
        int total = 0, used = 0, freeMB = 0;
        if (source.MemoryUsage(i, &total, &used, &freeMB)) {
            r.memory_total_mb.store(total, R);
            r.memory_used_mb.store(used, R);
            r.memory_free_mb.store(freeMB, R);
        }
        int fan = 0, rpm = 0;
        if (source.Fan(i, &fan, &rpm)) {
            r.fan_value.store(fan, R);
            r.fan_is_rpm.store(rpm, R);
        }
        std::vector<ProbeGPU::PerfLevel> levels;
        if (r.pci_vendor_id.load(R) == ProbeGPU::kPciVendorAmd && source.PerfLevels(i, &levels) && !levels.empty()) {
            // The largest of every level, not the active one.
            ProbeGPU::PerfLevel top;
            for (const ProbeGPU::PerfLevel& l : levels) {
                if (l.coreMHz > top.coreMHz) top.coreMHz = l.coreMHz;
                if (l.memoryMHz > top.memoryMHz) top.memoryMHz = l.memoryMHz;
                if (l.voltage > top.voltage) top.voltage = l.voltage;
            }
            r.core_clock.store(top.coreMHz, R);
            r.memory_clock.store(top.memoryMHz, R);
            r.core_voltage.store(top.voltage, R);
            Raise(r.highest_core_clock, top.coreMHz);
            Raise(r.highest_memory_clock, top.memoryMHz);
            Raise(r.highest_core_voltage, top.voltage);
        } else {
            RefreshClocksPowerVoltage(source, i, r);
        }
        const float core = r.core_clock.load(R);
        for (int k = 0; k < 2; ++k) r.fill_rate[k].store(static_cast<float>(r.unit_count[k].load(R)) * core * 0.001f, R);
    }
}

}  // namespace monitor
