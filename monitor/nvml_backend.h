// NVIDIA GPUs on Linux through NVML, loaded at run time from
// "libnvidia-ml.so.1" (or the file named by ARDENTIUM_NVML_LIBRARY, which
// only tests set). A missing library means no NVIDIA sensors; a library that
// fails or answers nonsense leaves the previous readings in place.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/nvml_defs.h"
#include "monitor/sensor_backend.h"
#include "platform/platform.h"

namespace ProbeGPU {

class NvmlBackend : public GpuSensorBackend {
public:
    static constexpr const char* kLibraryVariable = "ARDENTIUM_NVML_LIBRARY";
    static constexpr const char* kDefaultLibrary = "libnvidia-ml.so.1";
    // The file to load: the test override when set, else the system's library.
    static std::string LibraryName();

    struct Device {
        nvmlDevice_t handle = nullptr;
        std::string name;
        uint32_t vendor = 0, device = 0, subsystemVendor = 0, subsystemDevice = 0;
        std::string pciSlot;  // "0000:01:00.0", as the kernel writes it
        unsigned cores = 0;
    };

    NvmlBackend() = default;
    ~NvmlBackend() override;
    NvmlBackend(const NvmlBackend&) = delete;
    NvmlBackend& operator=(const NvmlBackend&) = delete;

    // Loads the library, initialises it and lists its GPUs. False (and
    // nothing held) when the library is missing, lacks an entry point, or
    // fails to initialise.
    bool Init(const std::string& library);
    void Shutdown();
    bool loaded() const { return lib_ != nullptr; }
    int count() const { return static_cast<int>(devices_.size()); }
    const Device& device(int i) const { return devices_[static_cast<size_t>(i)]; }
    const std::string& driverVersion() const { return driverVersion_; }
    const std::string& nvmlVersion() const { return nvmlVersion_; }

    const char* Name() const override { return "NVML"; }
    bool Temperature(int gpu, TemperatureReading* out) override;
    bool Usage(int gpu, int* load, int* memoryLoad) override;
    bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) override;
    bool Fan(int gpu, int* value, int* isRpm) override;
    bool Clocks(int gpu, ClockReading* out) override;
    bool Power(int gpu, int rail, int* percent, int* available) override;
    bool ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) override;
    bool BaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) override;
    bool PowerTarget(int gpu, float* percent) override;
    std::string GpuName(int gpu) override;
    std::string DriverText(int gpu) override;

    // "0000:01:00.0" from NVML's "00000000:01:00.0"; "" when it is not a bus ID.
    static std::string NormalizeBusId(const char* busId);

private:
    nvmlDevice_t Handle(int gpu) const;
    bool Ok(nvmlReturn_t r, int gpu, const char* call);

    platform::LibHandle lib_ = nullptr;
    std::vector<Device> devices_;
    std::vector<std::vector<int>> lastUsage_;  // per GPU, as last written to the library log
    std::string driverVersion_;
    std::string nvmlVersion_;

    nvmlShutdown_fn shutdown_ = nullptr;
    nvmlDeviceGetName_fn getName_ = nullptr;
    nvmlDeviceGetTemperature_fn getTemperature_ = nullptr;
    nvmlDeviceGetTemperatureThreshold_fn getTemperatureThreshold_ = nullptr;
    nvmlDeviceGetUtilizationRates_fn getUtilization_ = nullptr;
    nvmlDeviceGetMemoryInfo_fn getMemoryInfo_ = nullptr;
    nvmlDeviceGetFanSpeed_fn getFanSpeed_ = nullptr;
    nvmlDeviceGetClockInfo_fn getClockInfo_ = nullptr;
    nvmlDeviceGetMaxClockInfo_fn getMaxClockInfo_ = nullptr;
    nvmlDeviceGetPerformanceState_fn getPerformanceState_ = nullptr;
    nvmlDeviceGetPowerUsage_fn getPowerUsage_ = nullptr;
    nvmlDeviceGetEnforcedPowerLimit_fn getEnforcedPowerLimit_ = nullptr;
    nvmlDeviceGetPowerManagementDefaultLimit_fn getDefaultPowerLimit_ = nullptr;
    nvmlDeviceGetPowerManagementLimitConstraints_fn getPowerLimitConstraints_ = nullptr;
    nvmlDeviceGetCurrentClocksThrottleReasons_fn getThrottleReasons_ = nullptr;
    nvmlDeviceGetDefaultApplicationsClock_fn getDefaultAppClock_ = nullptr;
};

}  // namespace ProbeGPU
