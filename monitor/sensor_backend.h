// One vendor interface that reads live sensors of the GPUs it owns. The
// library keeps one GPU list; each entry names its backend and the index the
// backend knows it by. Every read returns false and leaves its outputs alone
// when the value is not offered, the call fails, or the value is nonsense.
#pragma once

#include <string>
#include <vector>

namespace ProbeGPU {

struct TemperatureReading {
    float celsius = 0.0f;
    // The three further values that come with the temperature: the slowdown
    // threshold, the hot-spot (junction) temperature and the memory
    // temperature, each in degrees Celsius, -1 when not offered.
    int threshold = -1;
    int hotspot = -1;
    int memory = -1;
};

struct ClockReading {
    int performanceState = -1;  // P-state number (0 = fastest), -1 unknown
    float coreMHz = 0.0f;
    float memoryMHz = 0.0f;
    float voltage = 0.0f;  // 0 when the same call gives none
};

struct PerfLevel {
    float coreMHz = 0.0f;
    float memoryMHz = 0.0f;
    float voltage = 0.0f;
};

class GpuSensorBackend {
public:
    virtual ~GpuSensorBackend() = default;
    virtual const char* Name() const = 0;

    virtual bool Temperature(int gpu, TemperatureReading* out) { return false; }
    // GPU load in percent, and the memory-controller load in percent (-1 when not offered).
    virtual bool Usage(int gpu, int* load, int* memoryLoad) { return false; }
    // Video memory in MB: total, used, free.
    virtual bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) { return false; }
    // Fan speed and its unit: isRpm 0 for percent, 1 for RPM.
    virtual bool Fan(int gpu, int* value, int* isRpm) { return false; }
    // Performance levels (AMD Overdrive): how many, and all of them at once,
    // the current or the default ones.
    virtual int NumPerfLevels(int gpu) { return 0; }
    virtual bool PerfLevels(int gpu, bool defaults, std::vector<PerfLevel>* out) { return false; }
    virtual bool Clocks(int gpu, ClockReading* out) { return false; }
    // Power in percent of the board limit; rail 0 is the main one.
    virtual bool Power(int gpu, int rail, int* percent, int* available) { return false; }
    virtual bool HasExtraRails(int gpu) { return false; }
    virtual bool Voltage(int gpu, float* volts) { return false; }
    // The clock ceiling the GPU runs under right now (MHz) and its bound, the
    // highest clock it may reach; bound - ceiling is how far it throttles.
    virtual bool ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) { return false; }
    // Base and boost clocks in MHz (boost 0 when there is none).
    virtual bool BaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) { return false; }
    // Power target in percent of the board's rated power.
    virtual bool PowerTarget(int gpu, float* percent) { return false; }
    virtual std::string GpuName(int gpu) { return std::string(); }
    virtual std::string DriverText(int gpu) { return std::string(); }
};

}  // namespace ProbeGPU
