// The AMD Display Library (ADL) entry points and structures the monitor
// uses, declared from the published ADL SDK so that no SDK header is needed.
// The library ("atiadlxx.dll", or "atiadlxy.dll" for 32-bit programs on
// 64-bit Windows) is loaded at run time. The fake atiadlxx.dll of the tests
// includes this header, so both sides agree on every layout. Only the Windows
// layout of AdapterInfo is declared: ADL is loaded only there.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define ADL_API __stdcall
#else
#define ADL_API
#endif

#define ADL_OK 0
#define ADL_ERR (-1)
#define ADL_MAX_PATH 256

typedef void*(ADL_API* ADL_MAIN_MALLOC_CALLBACK)(int size);

typedef struct AdapterInfo {
    int iSize;
    int iAdapterIndex;
    char strUDID[ADL_MAX_PATH];
    int iBusNumber;
    int iDeviceNumber;
    int iFunctionNumber;
    int iVendorID;
    char strAdapterName[ADL_MAX_PATH];
    char strDisplayName[ADL_MAX_PATH];
    int iPresent;
    int iExist;
    char strDriverPath[ADL_MAX_PATH];
    char strDriverPathExt[ADL_MAX_PATH];
    char strPNPString[ADL_MAX_PATH];
    int iOSDisplayIndex;
} AdapterInfo;

typedef struct ADLMemoryInfo {
    int64_t iMemorySize;  // bytes
    char strMemoryType[ADL_MAX_PATH];
    int64_t iMemoryBandwidth;  // MB/s
} ADLMemoryInfo;

typedef struct ADLTemperature {
    int iSize;
    int iTemperature;  // millidegrees Celsius
} ADLTemperature;

#define ADL_DL_FANCTRL_SPEED_TYPE_PERCENT 1
#define ADL_DL_FANCTRL_SPEED_TYPE_RPM 2
typedef struct ADLFanSpeedValue {
    int iSize;
    int iSpeedType;
    int iFanSpeed;
    int iFlags;
} ADLFanSpeedValue;

typedef struct ADLODParameterRange {
    int iMin;
    int iMax;
    int iStep;
} ADLODParameterRange;

typedef struct ADLODParameters {
    int iSize;  // 56
    int iNumberOfPerformanceLevels;
    int iActivityReportingSupported;
    int iDiscretePerformanceLevels;
    int iReserved;
    ADLODParameterRange sEngineClock;
    ADLODParameterRange sMemoryClock;
    ADLODParameterRange sVddc;
} ADLODParameters;

typedef struct ADLODPerformanceLevel {
    int iEngineClock;  // 10 kHz
    int iMemoryClock;  // 10 kHz
    int iVddc;         // mV
} ADLODPerformanceLevel;

typedef struct ADLODPerformanceLevels {
    int iSize;  // 8 + 12 per level
    int iReserved;
    ADLODPerformanceLevel aLevels[1];
} ADLODPerformanceLevels;

typedef struct ADLPMActivity {
    int iSize;
    int iEngineClock;  // 10 kHz
    int iMemoryClock;  // 10 kHz
    int iVddc;         // mV
    int iActivityPercent;
    int iCurrentPerformanceLevel;
    int iCurrentBusSpeed;
    int iCurrentBusLanes;
    int iMaximumBusLanes;
    int iReserved;
} ADLPMActivity;

#define ADL_OD6_FANSPEED_TYPE_PERCENT 0x1
#define ADL_OD6_FANSPEED_TYPE_RPM 0x2
typedef struct ADLOD6FanSpeedInfo {
    int iSpeedType;
    int iFanSpeedPercent;
    int iFanSpeedRPM;
    int iExtValue;
    int iExtMask;
} ADLOD6FanSpeedInfo;

typedef struct ADLOD6FanSpeedValue {
    int iSpeedType;
    int iFanSpeed;
    int iExtValue;
    int iExtMask;
} ADLOD6FanSpeedValue;

#define ADL_OD6_TCCAPS_FANSPEED_PERCENT_READ 0x100
#define ADL_OD6_TCCAPS_FANSPEED_RPM_READ 0x400
typedef struct ADLOD6ThermalControllerCaps {
    int iCapabilities;
    int iFanMinPercent;
    int iFanMaxPercent;
    int iFanMinRPM;
    int iFanMaxRPM;
    int iExtValue;
    int iExtMask;
} ADLOD6ThermalControllerCaps;

typedef struct ADLOD6ParameterRange {
    int iMin;
    int iMax;
    int iStep;
} ADLOD6ParameterRange;

typedef struct ADLOD6Capabilities {
    int iCapabilities;
    int iSupportedStates;
    int iNumberOfPerformanceLevels;
    ADLOD6ParameterRange sEngineClockRange;
    ADLOD6ParameterRange sMemoryClockRange;
    int iExtValue;
    int iExtMask;
} ADLOD6Capabilities;

typedef struct ADLOD6PerformanceLevel {
    int iEngineClock;  // 10 kHz
    int iMemoryClock;  // 10 kHz
} ADLOD6PerformanceLevel;

#define ADL_OD6_GETSTATEINFO_DEFAULT_PERFORMANCE 0x1
#define ADL_OD6_GETSTATEINFO_CUSTOM_PERFORMANCE 0x4
typedef struct ADLOD6StateInfo {
    int iNumberOfPerformanceLevels;
    int iExtValue;
    int iExtMask;
    ADLOD6PerformanceLevel aLevels[1];
} ADLOD6StateInfo;

typedef struct ADLOD6CurrentStatus {
    int iEngineClock;  // 10 kHz
    int iMemoryClock;  // 10 kHz
    int iActivityPercent;
    int iCurrentPerformanceLevel;
    int iCurrentBusSpeed;
    int iCurrentBusLanes;
    int iMaximumBusLanes;
    int iExtValue;
    int iExtMask;
} ADLOD6CurrentStatus;

typedef struct ADLOD6PowerControlInfo {
    int iMinValue;
    int iMaxValue;
    int iStepValue;
    int iExtValue;
    int iExtMask;
} ADLOD6PowerControlInfo;

typedef int(ADL_API* ADL_Main_Control_Create_fn)(ADL_MAIN_MALLOC_CALLBACK, int);
typedef int(ADL_API* ADL_Main_Control_Destroy_fn)(void);
typedef int(ADL_API* ADL_Main_Control_Refresh_fn)(void);
typedef int(ADL_API* ADL_Adapter_NumberOfAdapters_Get_fn)(int*);
typedef int(ADL_API* ADL_Adapter_AdapterInfo_Get_fn)(AdapterInfo*, int);
typedef int(ADL_API* ADL_Adapter_Active_Get_fn)(int, int*);
typedef int(ADL_API* ADL_Overdrive_Caps_fn)(int, int*, int*, int*);
typedef int(ADL_API* ADL_Adapter_MemoryInfo_Get_fn)(int, ADLMemoryInfo*);
typedef int(ADL_API* ADL_Overdrive5_Temperature_Get_fn)(int, int, ADLTemperature*);
typedef int(ADL_API* ADL_Overdrive5_FanSpeed_Get_fn)(int, int, ADLFanSpeedValue*);
typedef int(ADL_API* ADL_Overdrive5_ODParameters_Get_fn)(int, ADLODParameters*);
typedef int(ADL_API* ADL_Overdrive5_ODPerformanceLevels_Get_fn)(int, int, ADLODPerformanceLevels*);
typedef int(ADL_API* ADL_Overdrive5_ODPerformanceLevels_Set_fn)(int, ADLODPerformanceLevels*);
typedef int(ADL_API* ADL_Overdrive5_CurrentActivity_Get_fn)(int, ADLPMActivity*);
typedef int(ADL_API* ADL_Overdrive6_FanSpeed_Get_fn)(int, ADLOD6FanSpeedInfo*);
typedef int(ADL_API* ADL_Overdrive6_ThermalController_Caps_fn)(int, ADLOD6ThermalControllerCaps*);
typedef int(ADL_API* ADL_Overdrive6_Temperature_Get_fn)(int, int*);
typedef int(ADL_API* ADL_Overdrive6_Capabilities_Get_fn)(int, ADLOD6Capabilities*);
typedef int(ADL_API* ADL_Overdrive6_StateInfo_Get_fn)(int, int, ADLOD6StateInfo*);
typedef int(ADL_API* ADL_Overdrive6_CurrentStatus_Get_fn)(int, ADLOD6CurrentStatus*);
typedef int(ADL_API* ADL_Overdrive6_PowerControl_Caps_fn)(int, int*);
typedef int(ADL_API* ADL_Overdrive6_PowerControlInfo_Get_fn)(int, ADLOD6PowerControlInfo*);
typedef int(ADL_API* ADL_Overdrive6_PowerControl_Get_fn)(int, int*, int*);
typedef int(ADL_API* ADL_Overdrive6_FanSpeed_Set_fn)(int, ADLOD6FanSpeedValue*);
typedef int(ADL_API* ADL_Overdrive6_State_Set_fn)(int, int, ADLOD6StateInfo*);
typedef int(ADL_API* ADL_Overdrive6_PowerControl_Set_fn)(int, int);

#ifdef __cplusplus
}
#endif
