// The NVAPI entry points and structures the monitor uses, declared here so
// that no SDK header is needed. NVAPI exports a single function,
// nvapi_QueryInterface, which hands out every other function by a 32-bit id.
// Structures carry a version word: their size in the low 16 bits and the
// structure version in the high 16 bits.
//
// The documented functions and layouts follow NVIDIA's public NVAPI header.
// The four power and voltage functions at the end are not in the public
// header; their ids and layouts are the ones monitoring tools have used for
// years. A driver that does not hand them out simply gives no power or
// voltage readings. The fake nvapi64.dll of the tests includes this header,
// so both sides agree on every layout.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int NvAPI_Status;
#define NVAPI_OK 0
#define NVAPI_ERROR (-1)
#define NVAPI_NVIDIA_DEVICE_NOT_FOUND (-6)
#define NVAPI_END_ENUMERATION (-7)
#define NVAPI_NOT_SUPPORTED (-104)

typedef struct NvPhysicalGpuHandle__* NvPhysicalGpuHandle;
typedef struct NvDisplayHandle__* NvDisplayHandle;
typedef char NvAPI_ShortString[64];
#define NVAPI_MAX_PHYSICAL_GPUS 64

#define NVAPI_STRUCT_VERSION(type, ver) ((uint32_t)(sizeof(type) | ((ver) << 16)))

// NvAPI_GPU_GetThermalSettings
#define NVAPI_THERMAL_TARGET_GPU 1
#define NVAPI_THERMAL_TARGET_MEMORY 2
#define NVAPI_THERMAL_TARGET_ALL 15
typedef struct {
    uint32_t version;
    uint32_t count;
    struct {
        int32_t controller;
        int32_t defaultMinTemp;
        int32_t defaultMaxTemp;
        int32_t currentTemp;
        int32_t target;
    } sensor[3];
} NV_GPU_THERMAL_SETTINGS_V2;
#define NV_GPU_THERMAL_SETTINGS_VER_2 NVAPI_STRUCT_VERSION(NV_GPU_THERMAL_SETTINGS_V2, 2)

// NvAPI_GPU_GetDynamicPstatesInfoEx: utilisation per domain
#define NVAPI_MAX_GPU_UTILIZATIONS 8
#define NVAPI_GPU_UTILIZATION_DOMAIN_GPU 0
#define NVAPI_GPU_UTILIZATION_DOMAIN_FB 1
typedef struct {
    uint32_t version;
    uint32_t flags;
    struct {
        uint32_t bIsPresent;  // bit 0
        uint32_t percentage;
    } utilization[NVAPI_MAX_GPU_UTILIZATIONS];
} NV_GPU_DYNAMIC_PSTATES_INFO_EX;
#define NV_GPU_DYNAMIC_PSTATES_INFO_EX_VER NVAPI_STRUCT_VERSION(NV_GPU_DYNAMIC_PSTATES_INFO_EX, 1)

// NvAPI_GPU_GetAllClockFrequencies: kHz per public clock domain
#define NVAPI_GPU_PUBLIC_CLOCK_GRAPHICS 0
#define NVAPI_GPU_PUBLIC_CLOCK_MEMORY 4
#define NVAPI_GPU_PUBLIC_CLOCK_PROCESSOR 7
#define NVAPI_MAX_GPU_PUBLIC_CLOCKS 32
#define NV_GPU_CLOCK_FREQUENCIES_CURRENT_FREQ 0
#define NV_GPU_CLOCK_FREQUENCIES_BASE_CLOCK 1
#define NV_GPU_CLOCK_FREQUENCIES_BOOST_CLOCK 2
typedef struct {
    uint32_t version;
    uint32_t clockType;  // bits 0-1: NV_GPU_CLOCK_FREQUENCIES_*
    struct {
        uint32_t bIsPresent;  // bit 0
        uint32_t frequency;   // kHz
    } domain[NVAPI_MAX_GPU_PUBLIC_CLOCKS];
} NV_GPU_CLOCK_FREQUENCIES_V2;
#define NV_GPU_CLOCK_FREQUENCIES_VER_2 NVAPI_STRUCT_VERSION(NV_GPU_CLOCK_FREQUENCIES_V2, 2)

// NvAPI_GPU_GetMemoryInfo: KB
typedef struct {
    uint32_t version;
    uint32_t dedicatedVideoMemory;
    uint32_t availableDedicatedVideoMemory;
    uint32_t systemVideoMemory;
    uint32_t sharedSystemMemory;
    uint32_t curAvailableDedicatedVideoMemory;
} NV_DISPLAY_DRIVER_MEMORY_INFO_V2;
#define NV_DISPLAY_DRIVER_MEMORY_INFO_VER_2 NVAPI_STRUCT_VERSION(NV_DISPLAY_DRIVER_MEMORY_INFO_V2, 2)

// NvAPI_GPU_GetPerfDecreaseInfo: bit mask, 0 = running at full speed
#define NV_GPU_PERF_DECREASE_NONE 0

// Not in the public header (see above). Power values are 1/1000 percent.
typedef struct {
    uint32_t version;
    uint32_t flags;
    struct {
        uint32_t unknown1;
        uint32_t unknown2;
        uint32_t power;
        uint32_t unknown3;
    } entries[4];
} NV_GPU_POWER_POLICIES_STATUS;
#define NV_GPU_POWER_POLICIES_STATUS_VER NVAPI_STRUCT_VERSION(NV_GPU_POWER_POLICIES_STATUS, 1)

typedef struct {
    uint32_t version;
    uint8_t valid;
    uint8_t count;
    uint8_t padding[2];
    struct {
        uint32_t pstate;
        uint32_t unknown1[2];
        uint32_t minPower;
        uint32_t unknown2[2];
        uint32_t defaultPower;
        uint32_t unknown3[2];
        uint32_t maxPower;
        uint32_t unknown4;
    } entries[4];
} NV_GPU_POWER_POLICIES_INFO;
#define NV_GPU_POWER_POLICIES_INFO_VER NVAPI_STRUCT_VERSION(NV_GPU_POWER_POLICIES_INFO, 1)

typedef struct {
    uint32_t version;
    uint32_t count;
    struct {
        uint32_t domain;
        uint32_t unknown1;
        uint32_t power;
        uint32_t unknown2;
    } entries[4];
} NV_GPU_POWER_TOPOLOGY_STATUS;
#define NV_GPU_POWER_TOPOLOGY_STATUS_VER NVAPI_STRUCT_VERSION(NV_GPU_POWER_TOPOLOGY_STATUS, 1)

typedef struct {
    uint32_t version;
    uint32_t flags;
    uint32_t reserved1[8];
    uint32_t valueMicrovolts;
    uint32_t reserved2[8];
} NV_GPU_VOLT_RAILS_STATUS;
#define NV_GPU_VOLT_RAILS_STATUS_VER NVAPI_STRUCT_VERSION(NV_GPU_VOLT_RAILS_STATUS, 1)

// Function ids for nvapi_QueryInterface.
#define NVAPI_ID_Initialize 0x0150E828u
#define NVAPI_ID_Unload 0xD22BDD7Eu
#define NVAPI_ID_GetInterfaceVersionString 0x01053FA5u
#define NVAPI_ID_SYS_GetDriverAndBranchVersion 0x2926AAADu
#define NVAPI_ID_EnumNvidiaDisplayHandle 0x9ABDD40Du
#define NVAPI_ID_EnumPhysicalGPUs 0xE5AC921Fu
#define NVAPI_ID_GPU_GetFullName 0xCEEE8E9Fu
#define NVAPI_ID_GPU_GetPCIIdentifiers 0x2DDFB66Eu
#define NVAPI_ID_GPU_GetBusId 0x1BE0B8E5u
#define NVAPI_ID_GPU_GetThermalSettings 0xE3640A56u
#define NVAPI_ID_GPU_GetDynamicPstatesInfoEx 0x60DED2EDu
#define NVAPI_ID_GPU_GetAllClockFrequencies 0xDCB616C3u
#define NVAPI_ID_GPU_GetCurrentPstate 0x927DA4F6u
#define NVAPI_ID_GPU_GetTachReading 0x5F608315u
#define NVAPI_ID_GPU_GetMemoryInfo 0x07F9B368u
#define NVAPI_ID_GPU_GetGpuCoreCount 0xC7026A87u
#define NVAPI_ID_GPU_GetPerfDecreaseInfo 0x7F7F4600u
#define NVAPI_ID_GPU_ClientPowerPoliciesGetStatus 0x70916171u
#define NVAPI_ID_GPU_ClientPowerPoliciesGetInfo 0x34206D86u
#define NVAPI_ID_GPU_ClientPowerTopologyGetStatus 0xEDCF624Eu
#define NVAPI_ID_GPU_ClientVoltRailsGetStatus 0x465F9BCFu

#if defined(_WIN32) && !defined(_WIN64)
#define NVAPI_CALL __cdecl
#define NVAPI_STDCALL_IF_32 __stdcall
#else
#define NVAPI_CALL
#define NVAPI_STDCALL_IF_32
#endif

typedef void*(NVAPI_CALL* nvapi_QueryInterface_fn)(uint32_t id);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_Initialize_fn)(void);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_Unload_fn)(void);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GetInterfaceVersionString_fn)(NvAPI_ShortString text);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_SYS_GetDriverAndBranchVersion_fn)(uint32_t* driverVersion, NvAPI_ShortString branch);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_EnumNvidiaDisplayHandle_fn)(uint32_t index, NvDisplayHandle* handle);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_EnumPhysicalGPUs_fn)(NvPhysicalGpuHandle handles[NVAPI_MAX_PHYSICAL_GPUS],
                                                            uint32_t* count);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetFullName_fn)(NvPhysicalGpuHandle gpu, NvAPI_ShortString name);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetPCIIdentifiers_fn)(NvPhysicalGpuHandle gpu, uint32_t* deviceId,
                                                                 uint32_t* subSystemId, uint32_t* revisionId,
                                                                 uint32_t* extDeviceId);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetBusId_fn)(NvPhysicalGpuHandle gpu, uint32_t* busId);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetThermalSettings_fn)(NvPhysicalGpuHandle gpu, uint32_t sensorIndex,
                                                                  NV_GPU_THERMAL_SETTINGS_V2* settings);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetDynamicPstatesInfoEx_fn)(NvPhysicalGpuHandle gpu,
                                                                       NV_GPU_DYNAMIC_PSTATES_INFO_EX* info);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetAllClockFrequencies_fn)(NvPhysicalGpuHandle gpu,
                                                                      NV_GPU_CLOCK_FREQUENCIES_V2* clocks);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetCurrentPstate_fn)(NvPhysicalGpuHandle gpu, int32_t* pstate);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetTachReading_fn)(NvPhysicalGpuHandle gpu, uint32_t* rpm);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetMemoryInfo_fn)(NvPhysicalGpuHandle gpu, NV_DISPLAY_DRIVER_MEMORY_INFO_V2* info);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetGpuCoreCount_fn)(NvPhysicalGpuHandle gpu, uint32_t* count);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_GetPerfDecreaseInfo_fn)(NvPhysicalGpuHandle gpu, uint32_t* info);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_ClientPowerPoliciesGetStatus_fn)(NvPhysicalGpuHandle gpu,
                                                                            NV_GPU_POWER_POLICIES_STATUS* status);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_ClientPowerPoliciesGetInfo_fn)(NvPhysicalGpuHandle gpu,
                                                                          NV_GPU_POWER_POLICIES_INFO* info);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_ClientPowerTopologyGetStatus_fn)(NvPhysicalGpuHandle gpu,
                                                                            NV_GPU_POWER_TOPOLOGY_STATUS* status);
typedef NvAPI_Status(NVAPI_CALL* NvAPI_GPU_ClientVoltRailsGetStatus_fn)(NvPhysicalGpuHandle gpu,
                                                                        NV_GPU_VOLT_RAILS_STATUS* status);

#ifdef __cplusplus
}
#endif
