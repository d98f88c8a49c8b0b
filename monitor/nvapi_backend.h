// NVIDIA GPUs on Windows through NVAPI ("nvapi64.dll" in a 64-bit build,
// "nvapi.dll" in a 32-bit one, or the file named by ARDENTIUM_NVAPI_LIBRARY,
// which only tests set), with the old control-panel library "nvcpl.dll" as a
// second source of the GPU temperature where it exists.
//
// The code is portable and is compiled and unit-tested on Linux too; only
// Windows start-up loads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/nvapi_defs.h"
#include "monitor/sensor_backend.h"
#include "platform/platform.h"

namespace ProbeGPU {

class NvapiBackend : public GpuSensorBackend {
public:
    static constexpr const char* kLibraryVariable = "ARDENTIUM_NVAPI_LIBRARY";
    static std::string LibraryName();
    static constexpr const char* kNvcplLibrary = "nvcpl.dll";

    struct Gpu {
        NvPhysicalGpuHandle handle = nullptr;
        std::string name;
        uint32_t vendor = 0, device = 0, subsystem = 0, revision = 0;
        uint32_t busId = 0;
        uint32_t cores = 0;
        uint32_t dedicatedKB = 0;
    };

    NvapiBackend() = default;
    ~NvapiBackend() override;
    NvapiBackend(const NvapiBackend&) = delete;
    NvapiBackend& operator=(const NvapiBackend&) = delete;

    // Loads NVAPI, initialises it and lists the physical GPUs; logs the
    // interface and driver versions to the library log. The control-panel
    // library is looked for separately (nvcplLibrary empty: not at all).
    bool Init(const std::string& library, const std::string& nvcplLibrary);
    void Shutdown();
    bool loaded() const { return lib_ != nullptr; }
    int count() const { return static_cast<int>(gpus_.size()); }
    int displayHandleCount() const { return displayHandles_; }
    const Gpu& gpu(int i) const { return gpus_[static_cast<size_t>(i)]; }
    uint32_t driverVersion() const { return driverVersion_; }
    const std::string& branch() const { return branch_; }
    const std::string& interfaceVersion() const { return interfaceVersion_; }
    // "R353.30": the driver version as it is shown.
    std::string DriverDisplayText() const;
    // "353.30": the version text of the driver description.
    std::string DriverVersionText() const;
    bool nvcplLoaded() const { return nvcpl_ != nullptr; }

    const char* Name() const override { return "NVAPI"; }
    bool Temperature(int gpu, TemperatureReading* out) override;
    bool Usage(int gpu, int* load, int* memoryLoad) override;
    bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) override;
    bool Fan(int gpu, int* value, int* isRpm) override;
    bool Clocks(int gpu, ClockReading* out) override;
    bool Power(int gpu, int rail, int* percent, int* available) override;
    bool HasExtraRails(int gpu) override;
    bool Voltage(int gpu, float* volts) override;
    bool ClockCeiling(int gpu, float* ceilingMHz, float* boundMHz) override;
    bool BaseBoostClocks(int gpu, int* baseMHz, int* boostMHz) override;
    bool PowerTarget(int gpu, float* percent) override;
    std::string GpuName(int gpu) override;
    std::string DriverText(int gpu) override;

private:
    NvPhysicalGpuHandle Handle(int gpu) const;
    bool ClockSet(int gpu, uint32_t type, NV_GPU_CLOCK_FREQUENCIES_V2* out);
    bool Topology(int gpu, NV_GPU_POWER_TOPOLOGY_STATUS* out);
    bool Ok(NvAPI_Status s, int gpu, const char* call);

    platform::LibHandle lib_ = nullptr;
    platform::LibHandle nvcpl_ = nullptr;
    std::vector<Gpu> gpus_;
    std::vector<std::vector<int>> lastUsage_;  // per GPU, as last written to the library log
    int displayHandles_ = 0;
    uint32_t driverVersion_ = 0;
    std::string branch_;
    std::string interfaceVersion_;

    NvAPI_Unload_fn unload_ = nullptr;
    NvAPI_GPU_GetThermalSettings_fn thermal_ = nullptr;
    NvAPI_GPU_GetDynamicPstatesInfoEx_fn pstates_ = nullptr;
    NvAPI_GPU_GetAllClockFrequencies_fn clocks_ = nullptr;
    NvAPI_GPU_GetCurrentPstate_fn currentPstate_ = nullptr;
    NvAPI_GPU_GetTachReading_fn tach_ = nullptr;
    NvAPI_GPU_GetMemoryInfo_fn memory_ = nullptr;
    NvAPI_GPU_GetPerfDecreaseInfo_fn perfDecrease_ = nullptr;
    NvAPI_GPU_ClientPowerPoliciesGetStatus_fn policiesStatus_ = nullptr;
    NvAPI_GPU_ClientPowerPoliciesGetInfo_fn policiesInfo_ = nullptr;
    NvAPI_GPU_ClientPowerTopologyGetStatus_fn topology_ = nullptr;
    NvAPI_GPU_ClientVoltRailsGetStatus_fn voltRails_ = nullptr;

    // nvcpl.dll: BOOL NvCplGetThermalSettings(UINT monitor, DWORD* core, DWORD* ambient, DWORD* upperLimit)
    using NvCplGetThermalSettingsFn = int(NVAPI_STDCALL_IF_32*)(unsigned, uint32_t*, uint32_t*, uint32_t*);
    NvCplGetThermalSettingsFn cplThermal_ = nullptr;
};

}  // namespace ProbeGPU
