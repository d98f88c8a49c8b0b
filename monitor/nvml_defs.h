// The few NVIDIA Management Library (NVML) entry points and structures the
// monitor uses, declared from NVML's published API so that no SDK header is
// needed. The library itself ("libnvidia-ml.so.1") is loaded at run time.
// The fake library of the tests (monitor/fakes/fake_nvml.c) includes this
// header too, so both sides agree on every layout.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef int nvmlReturn_t;
#define NVML_SUCCESS 0
#define NVML_ERROR_UNINITIALIZED 1
#define NVML_ERROR_INVALID_ARGUMENT 2
#define NVML_ERROR_NOT_SUPPORTED 3
#define NVML_ERROR_NOT_FOUND 6
#define NVML_ERROR_GPU_IS_LOST 15
#define NVML_ERROR_UNKNOWN 999

typedef struct nvmlDevice_st* nvmlDevice_t;

#define NVML_DEVICE_PCI_BUS_ID_BUFFER_SIZE 32
#define NVML_DEVICE_PCI_BUS_ID_BUFFER_V2_SIZE 16
typedef struct nvmlPciInfo_st {
    char busIdLegacy[NVML_DEVICE_PCI_BUS_ID_BUFFER_V2_SIZE];
    unsigned int domain;
    unsigned int bus;
    unsigned int device;
    unsigned int pciDeviceId;     /* (device ID << 16) | vendor ID */
    unsigned int pciSubSystemId;  /* (subsystem device ID << 16) | subsystem vendor ID */
    char busId[NVML_DEVICE_PCI_BUS_ID_BUFFER_SIZE];
} nvmlPciInfo_t;

typedef struct nvmlUtilization_st {
    unsigned int gpu;     /* percent */
    unsigned int memory;  /* percent */
} nvmlUtilization_t;

typedef struct nvmlMemory_st {
    unsigned long long total;  /* bytes */
    unsigned long long free;
    unsigned long long used;
} nvmlMemory_t;

/* nvmlTemperatureSensors_t */
#define NVML_TEMPERATURE_GPU 0
/* nvmlTemperatureThresholds_t */
#define NVML_TEMPERATURE_THRESHOLD_SHUTDOWN 0
#define NVML_TEMPERATURE_THRESHOLD_SLOWDOWN 1
/* nvmlClockType_t */
#define NVML_CLOCK_GRAPHICS 0
#define NVML_CLOCK_SM 1
#define NVML_CLOCK_MEM 2
/* nvmlPstates_t: 0 (fastest) to 15, 32 unknown */
#define NVML_PSTATE_UNKNOWN 32
/* Clock throttle reasons */
#define NVML_THROTTLE_REASON_GPU_IDLE 0x1ULL
#define NVML_THROTTLE_REASON_APPLICATIONS_CLOCKS_SETTING 0x2ULL

#define NVML_SYSTEM_DRIVER_VERSION_BUFFER_SIZE 80
#define NVML_DEVICE_NAME_BUFFER_SIZE 64
#define NVML_DEVICE_NAME_V2_BUFFER_SIZE 96

typedef nvmlReturn_t (*nvmlInit_v2_fn)(void);
typedef nvmlReturn_t (*nvmlShutdown_fn)(void);
typedef nvmlReturn_t (*nvmlSystemGetDriverVersion_fn)(char* version, unsigned int length);
typedef nvmlReturn_t (*nvmlSystemGetNVMLVersion_fn)(char* version, unsigned int length);
typedef nvmlReturn_t (*nvmlDeviceGetCount_v2_fn)(unsigned int* count);
typedef nvmlReturn_t (*nvmlDeviceGetHandleByIndex_v2_fn)(unsigned int index, nvmlDevice_t* device);
typedef nvmlReturn_t (*nvmlDeviceGetName_fn)(nvmlDevice_t device, char* name, unsigned int length);
typedef nvmlReturn_t (*nvmlDeviceGetPciInfo_v3_fn)(nvmlDevice_t device, nvmlPciInfo_t* pci);
typedef nvmlReturn_t (*nvmlDeviceGetTemperature_fn)(nvmlDevice_t device, int sensor, unsigned int* temp);
typedef nvmlReturn_t (*nvmlDeviceGetTemperatureThreshold_fn)(nvmlDevice_t device, int threshold, unsigned int* temp);
typedef nvmlReturn_t (*nvmlDeviceGetUtilizationRates_fn)(nvmlDevice_t device, nvmlUtilization_t* utilization);
typedef nvmlReturn_t (*nvmlDeviceGetMemoryInfo_fn)(nvmlDevice_t device, nvmlMemory_t* memory);
typedef nvmlReturn_t (*nvmlDeviceGetFanSpeed_fn)(nvmlDevice_t device, unsigned int* speed);
typedef nvmlReturn_t (*nvmlDeviceGetClockInfo_fn)(nvmlDevice_t device, int type, unsigned int* clock);
typedef nvmlReturn_t (*nvmlDeviceGetMaxClockInfo_fn)(nvmlDevice_t device, int type, unsigned int* clock);
typedef nvmlReturn_t (*nvmlDeviceGetPerformanceState_fn)(nvmlDevice_t device, int* pState);
typedef nvmlReturn_t (*nvmlDeviceGetPowerUsage_fn)(nvmlDevice_t device, unsigned int* milliwatts);
typedef nvmlReturn_t (*nvmlDeviceGetEnforcedPowerLimit_fn)(nvmlDevice_t device, unsigned int* milliwatts);
typedef nvmlReturn_t (*nvmlDeviceGetPowerManagementDefaultLimit_fn)(nvmlDevice_t device, unsigned int* milliwatts);
typedef nvmlReturn_t (*nvmlDeviceGetCurrentClocksThrottleReasons_fn)(nvmlDevice_t device, unsigned long long* reasons);
typedef nvmlReturn_t (*nvmlDeviceGetNumGpuCores_fn)(nvmlDevice_t device, unsigned int* cores);
typedef nvmlReturn_t (*nvmlDeviceGetPowerManagementLimitConstraints_fn)(nvmlDevice_t device, unsigned int* minLimit,
                                                                       unsigned int* maxLimit);
typedef nvmlReturn_t (*nvmlDeviceGetDefaultApplicationsClock_fn)(nvmlDevice_t device, int type, unsigned int* clockMHz);

#ifdef __cplusplus
}
#endif
