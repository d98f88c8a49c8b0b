// AMD GPUs on Windows through the AMD Display Library: "atiadlxx.dll", else
// "atiadlxy.dll" (or the file named by ARDENTIUM_ADL_LIBRARY, which only
// tests set), with the Overdrive 5 functions and the Overdrive 6 path of
// newer parts. Its own trace goes to the AMD log ("adl.log").
//
// The code is portable and its conversions are unit-tested on Linux too;
// only Windows start-up loads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "monitor/adl_defs.h"
#include "monitor/sensor_backend.h"
#include "platform/platform.h"

namespace ProbeGPU {

class AdlBackend : public GpuSensorBackend {
public:
    static constexpr const char* kLibraryVariable = "ARDENTIUM_ADL_LIBRARY";
    // The files to try, in order.
    static std::vector<std::string> LibraryNames();

    struct Gpu {
        int adapterIndex = -1;  // ADL's index of the GPU's first active adapter
        int busNumber = -1;
        std::string adlName;    // as ADL names it
        std::string name;       // after the fixed names below
        std::string codeName;   // "" unless a fixed code name applies
        std::string pnpId;
        int vendor = -1, device = -1;
        int overdriveVersion = 0;  // 5, 6, ... 0 when Overdrive is not supported
        int64_t memoryMB = 0;
        // Overdrive 5 levels, allocated on the first read (one per level).
        std::vector<ADLODPerformanceLevel> levels;
        int numLevels = -1;  // -1: not asked yet
    };

    AdlBackend() = default;
    ~AdlBackend() override;
    AdlBackend(const AdlBackend&) = delete;
    AdlBackend& operator=(const AdlBackend&) = delete;

    // AMD_Display_Library_Init: loads the first library that exists,
    // resolves every entry point, creates the ADL context and lists the
    // active adapters, one GPU per bus. Every step is logged to the AMD log.
    bool Init(const std::vector<std::string>& libraries);
    void Shutdown();
    bool loaded() const { return lib_ != nullptr; }
    int count() const { return static_cast<int>(gpus_.size()); }
    int adapterCount() const { return adapterCount_; }
    const Gpu& gpu(int i) const { return gpus_[static_cast<size_t>(i)]; }

    // The fixed names and code names of some parts whose PCI device ID is
    // shared by two generations, told apart by ADL's adapter name.
    static void FixedNames(int pciDevice, const std::string& adlName, std::string* name, std::string* codeName);
    // One Overdrive 5 level in the snapshot's units: 10 kHz -> MHz, mV -> V.
    static PerfLevel ConvertLevel(const ADLODPerformanceLevel& l);

    const char* Name() const override { return "ADL"; }
    bool Temperature(int gpu, TemperatureReading* out) override;
    bool Usage(int gpu, int* load, int* memoryLoad) override;
    bool MemoryUsage(int gpu, int* totalMB, int* usedMB, int* freeMB) override;
    bool Fan(int gpu, int* value, int* isRpm) override;
    int NumPerfLevels(int gpu) override;
    bool PerfLevels(int gpu, bool defaults, std::vector<PerfLevel>* out) override;
    bool Clocks(int gpu, ClockReading* out) override;
    bool PowerTarget(int gpu, float* percent) override;
    std::string GpuName(int gpu) override;

private:
    Gpu* G(int gpu);
    bool ReadTemperature(Gpu& g, float* celsius);
    bool Ok(int status, int gpu, const char* call);

    platform::LibHandle lib_ = nullptr;
    bool contextCreated_ = false;
    int adapterCount_ = 0;
    std::vector<Gpu> gpus_;

    ADL_Main_Control_Create_fn mainCreate_ = nullptr;
    ADL_Main_Control_Destroy_fn mainDestroy_ = nullptr;
    ADL_Main_Control_Refresh_fn mainRefresh_ = nullptr;
    ADL_Adapter_NumberOfAdapters_Get_fn numAdapters_ = nullptr;
    ADL_Adapter_AdapterInfo_Get_fn adapterInfo_ = nullptr;
    ADL_Adapter_Active_Get_fn adapterActive_ = nullptr;
    ADL_Overdrive_Caps_fn overdriveCaps_ = nullptr;
    ADL_Adapter_MemoryInfo_Get_fn memoryInfo_ = nullptr;
    ADL_Overdrive5_Temperature_Get_fn od5Temperature_ = nullptr;
    ADL_Overdrive5_FanSpeed_Get_fn od5Fan_ = nullptr;
    ADL_Overdrive5_ODParameters_Get_fn od5Parameters_ = nullptr;
    ADL_Overdrive5_ODPerformanceLevels_Get_fn od5Levels_ = nullptr;
    ADL_Overdrive5_ODPerformanceLevels_Set_fn od5LevelsSet_ = nullptr;
    ADL_Overdrive5_CurrentActivity_Get_fn od5Activity_ = nullptr;
    ADL_Overdrive6_FanSpeed_Get_fn od6Fan_ = nullptr;
    ADL_Overdrive6_ThermalController_Caps_fn od6ThermalCaps_ = nullptr;
    ADL_Overdrive6_Temperature_Get_fn od6Temperature_ = nullptr;
    ADL_Overdrive6_Capabilities_Get_fn od6Capabilities_ = nullptr;
    ADL_Overdrive6_StateInfo_Get_fn od6StateInfo_ = nullptr;
    ADL_Overdrive6_CurrentStatus_Get_fn od6Status_ = nullptr;
    ADL_Overdrive6_PowerControl_Caps_fn od6PowerCaps_ = nullptr;
    ADL_Overdrive6_PowerControlInfo_Get_fn od6PowerInfo_ = nullptr;
    ADL_Overdrive6_PowerControl_Get_fn od6PowerGet_ = nullptr;
    // Resolved with the rest because a library without them is not the
    // library this code was written against; the monitor never calls them
    // (it only reads, it never changes a card's settings).
    ADL_Overdrive6_FanSpeed_Set_fn od6FanSet_ = nullptr;
    ADL_Overdrive6_State_Set_fn od6StateSet_ = nullptr;
    ADL_Overdrive6_PowerControl_Set_fn od6PowerSet_ = nullptr;
};

}  // namespace ProbeGPU
