// The GPU sensor snapshot: one record per GPU, written by the monitor thread
// field by field and read by the render thread and the launcher without a
// lock (each field is a single atomic word; a reader may see a mix of old
// and new fields within one record, which the HUD accepts).
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "monitor/sensor_backend.h"

namespace monitor {

struct GpuSensorRecord {
    // Written once when the array is made, before the monitor thread starts.
    std::string name;
    std::atomic<int> pci_vendor_id{0};
    std::atomic<int> unit_count[2] = {{0}, {0}};  // ROPs, texture units

    // Whether some interface (or a bridge) has supplied the temperature and
    // the load: a reading none supplies is shown as "n.a.", never as 0.
    std::atomic<bool> has_temperature{false};
    std::atomic<bool> has_load{false};
    std::atomic<float> temperature{0.0f};
    std::atomic<float> highest_temperature{0.0f};
    std::atomic<int> temperature_threshold{-1};  // the three further temperature outputs
    std::atomic<int> temperature_hotspot{-1};
    std::atomic<int> temperature_memory{-1};
    std::atomic<float> load{0.0f};
    std::atomic<float> highest_load{0.0f};
    std::atomic<int> memory_load{-1};  // the second usage value
    std::atomic<int> memory_total_mb{0}, memory_used_mb{0}, memory_free_mb{0};
    std::atomic<int> fan_value{0};
    std::atomic<int> fan_is_rpm{0};
    std::atomic<int> performance_state{-1};
    std::atomic<float> core_clock{0.0f}, highest_core_clock{0.0f};
    std::atomic<float> memory_clock{0.0f}, highest_memory_clock{0.0f};
    std::atomic<float> core_voltage{0.0f}, highest_core_voltage{0.0f};
    std::atomic<int> power_percent{0};
    std::atomic<int> power_available{0};
    std::atomic<float> second_voltage{0.0f};
    std::atomic<bool> extra_rails{false};
    std::atomic<int> rail_percent[2] = {{0}, {0}};
    // The clock ceiling (MHz), its lowest value, and its bound; the HUD's
    // throttling figure is bound - ceiling.
    std::atomic<float> clock_ceiling{0.0f}, lowest_clock_ceiling{0.0f}, clock_bound{0.0f};
    std::atomic<float> fill_rate[2] = {{0.0f}, {0.0f}};  // Gpixel/s, Gtexel/s
    // Readings from an external monitor (the overclocking tool, GPU-Z) that
    // the HUD prefers when positive.
    std::atomic<float> override_core_clock{0.0f}, override_memory_clock{0.0f}, override_voltage{0.0f};
};

// A plain copy of one record for readers.
struct GpuSensorSnapshot {
    std::string name;
    int pci_vendor_id = 0;
    bool has_temperature = false, has_load = false;
    float temperature = 0, highest_temperature = 0;
    int temperature_threshold = -1, temperature_hotspot = -1, temperature_memory = -1;
    float load = 0, highest_load = 0;
    int memory_load = -1;
    int memory_total_mb = 0, memory_used_mb = 0, memory_free_mb = 0;
    int fan_value = 0, fan_is_rpm = 0;
    int performance_state = -1;
    float core_clock = 0, highest_core_clock = 0, memory_clock = 0, highest_memory_clock = 0;
    float core_voltage = 0, highest_core_voltage = 0;
    int power_percent = 0, power_available = 0;
    float second_voltage = 0;
    bool extra_rails = false;
    int rail_percent[2] = {0, 0};
    float clock_ceiling = 0, lowest_clock_ceiling = 0, clock_bound = 0;
    float fill_rate[2] = {0, 0};
    float override_core_clock = 0, override_memory_clock = 0, override_voltage = 0;
    // What the HUD shows: the override when positive, else the reading.
    float shown_core_clock() const { return override_core_clock > 0 ? override_core_clock : core_clock; }
    float shown_memory_clock() const { return override_memory_clock > 0 ? override_memory_clock : memory_clock; }
    float shown_voltage() const { return override_voltage > 0 ? override_voltage : core_voltage; }
    // MHz below the bound the GPU is held at; 0 when not throttled or unknown.
    float throttling_mhz() const { return clock_bound > 0 && clock_ceiling > 0 && clock_bound > clock_ceiling ? clock_bound - clock_ceiling : 0; }
};

class GpuSensorArray {
public:
    explicit GpuSensorArray(int count) : count_(count > 0 ? count : 0), records_(new GpuSensorRecord[static_cast<size_t>(count_)]) {}
    int count() const { return count_; }
    GpuSensorRecord& operator[](int i) { return records_[static_cast<size_t>(i)]; }
    const GpuSensorRecord& operator[](int i) const { return records_[static_cast<size_t>(i)]; }
    GpuSensorSnapshot Snapshot(int i) const;

private:
    int count_;
    std::unique_ptr<GpuSensorRecord[]> records_;
};

// What the refresh reads, per GPU index. The monitor reads the library
// (ProbeGpuSource); tests script it.
class SensorSource {
public:
    virtual ~SensorSource() = default;
    virtual bool Temperature(int gpu, ProbeGPU::TemperatureReading* out) = 0;
    virtual bool Usage(int gpu, int* load, int* memoryLoad) = 0;
    virtual bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) = 0;
    virtual bool Fan(int gpu, int* value, int* isRpm) = 0;
    virtual bool Voltage(int gpu, float* volts) = 0;
    virtual bool Power(int gpu, int rail, int* percent, int* available) = 0;
    virtual bool HasExtraRails(int gpu) = 0;
    virtual bool ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) = 0;
    virtual bool Clocks(int gpu, ProbeGPU::ClockReading* out) = 0;
    virtual bool PerfLevels(int gpu, std::vector<ProbeGPU::PerfLevel>* out) = 0;
};

class ProbeGpuSource : public SensorSource {
public:
    bool Temperature(int gpu, ProbeGPU::TemperatureReading* out) override;
    bool Usage(int gpu, int* load, int* memoryLoad) override;
    bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) override;
    bool Fan(int gpu, int* value, int* isRpm) override;
    bool Voltage(int gpu, float* volts) override;
    bool Power(int gpu, int rail, int* percent, int* available) override;
    bool HasExtraRails(int gpu) override;
    bool ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) override;
    bool Clocks(int gpu, ProbeGPU::ClockReading* out) override;
    bool PerfLevels(int gpu, std::vector<ProbeGPU::PerfLevel>* out) override;
};

// The first readings made when the array is allocated: the extra-rails flag
// and the bound of the clock ceiling, which decide what later refreshes read.
void PrimeRecord(SensorSource& source, int gpu, GpuSensorRecord& r);

// One refresh of every record, in the order and with the rules of the
// sensor snapshot: failed reads leave old values; high-water marks only rise.
void RefreshSnapshot(SensorSource& source, GpuSensorArray* array);

}  // namespace monitor
