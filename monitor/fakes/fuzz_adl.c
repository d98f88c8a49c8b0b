/* An AMD Display Library that answers every call from the fuzzer's bytes
 * (FuzzAdlFeed; see fuzz_feed.h): adapter tables full of noise, counts of any
 * size, names without a terminator, size words that lie. Structures the
 * caller sizes itself (the adapter table, the performance levels) are filled
 * as far as the caller said they reach. Entry points the monitor resolves but
 * never calls fail. */
#include "monitor/adl_defs.h"
#include "monitor/fakes/fuzz_feed.h"

#define EXPORT __attribute__((visibility("default")))

EXPORT void FuzzAdlFeed(const uint8_t* data, size_t size) {
    FuzzFeedData = data;
    FuzzFeedLeft = size;
}

/* ADL's codes: ADL_OK, or a negative error. */
static int Status(void) { return -FuzzStatus(); }

#define REPLY(...)                          \
    int status_ = Status();                 \
    if (status_ == ADL_OK) { __VA_ARGS__; } \
    return status_
#define FILL(p) FuzzFill((p), sizeof *(p))

EXPORT int ADL_Main_Control_Create(ADL_MAIN_MALLOC_CALLBACK alloc, int connected) {
    (void)alloc, (void)connected;
    return Status();
}
EXPORT int ADL_Main_Control_Destroy(void) { return Status(); }
EXPORT int ADL_Main_Control_Refresh(void) { return Status(); }
EXPORT int ADL_Adapter_NumberOfAdapters_Get(int* n) { REPLY(FILL(n)); }
EXPORT int ADL_Adapter_AdapterInfo_Get(AdapterInfo* info, int bytes) { REPLY(if (bytes > 0) FuzzFill(info, (size_t)bytes)); }
EXPORT int ADL_Adapter_Active_Get(int adapter, int* active) { REPLY(FILL(active)); }
EXPORT int ADL_Overdrive_Caps(int adapter, int* supported, int* enabled, int* version) {
    REPLY(FILL(supported); FILL(enabled); FILL(version));
}
EXPORT int ADL_Adapter_MemoryInfo_Get(int adapter, ADLMemoryInfo* m) { REPLY(FILL(m)); }
EXPORT int ADL_Overdrive5_Temperature_Get(int adapter, int sensor, ADLTemperature* t) { REPLY(FILL(t)); }
EXPORT int ADL_Overdrive5_FanSpeed_Get(int adapter, int fan, ADLFanSpeedValue* v) { REPLY(FILL(v)); }
EXPORT int ADL_Overdrive5_ODParameters_Get(int adapter, ADLODParameters* p) { REPLY(FILL(p)); }
EXPORT int ADL_Overdrive5_ODPerformanceLevels_Get(int adapter, int defaults, ADLODPerformanceLevels* levels) {
    const int bytes = levels->iSize;
    REPLY(if (bytes > 0) FuzzFill(levels, (size_t)bytes));
}
EXPORT int ADL_Overdrive5_CurrentActivity_Get(int adapter, ADLPMActivity* a) { REPLY(FILL(a)); }
EXPORT int ADL_Overdrive6_FanSpeed_Get(int adapter, ADLOD6FanSpeedInfo* f) { REPLY(FILL(f)); }
EXPORT int ADL_Overdrive6_Temperature_Get(int adapter, int* t) { REPLY(FILL(t)); }
EXPORT int ADL_Overdrive6_CurrentStatus_Get(int adapter, ADLOD6CurrentStatus* s) { REPLY(FILL(s)); }
EXPORT int ADL_Overdrive6_PowerControl_Caps(int adapter, int* supported) { REPLY(FILL(supported)); }
EXPORT int ADL_Overdrive6_PowerControl_Get(int adapter, int* current, int* defaults) {
    REPLY(FILL(current); FILL(defaults));
}

EXPORT int ADL_Overdrive5_ODPerformanceLevels_Set(int adapter, ADLODPerformanceLevels* l) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_ThermalController_Caps(int adapter, ADLOD6ThermalControllerCaps* c) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_Capabilities_Get(int adapter, ADLOD6Capabilities* c) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_StateInfo_Get(int adapter, int type, ADLOD6StateInfo* s) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_FanSpeed_Set(int adapter, ADLOD6FanSpeedValue* v) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_State_Set(int adapter, int type, ADLOD6StateInfo* s) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_PowerControl_Set(int adapter, int value) { return ADL_ERR; }
EXPORT int ADL_Overdrive6_PowerControlInfo_Get(int adapter, ADLOD6PowerControlInfo* i) { return ADL_ERR; }
