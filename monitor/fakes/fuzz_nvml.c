/* A libnvidia-ml.so.1 that answers every call from a stream of bytes the
 * fuzzer hands it (FuzzNvmlFeed), so the monitor meets replies no driver
 * would give: error codes of any value, strings without a terminator, counts
 * in the billions, handles that are null. Each call takes one status byte:
 * below 0xC0 the call succeeds and its outputs are filled from the stream
 * (as far as the stream reaches; the rest keeps what the caller put there),
 * else it fails with a code taken from that byte. An empty stream fails every
 * call. Nothing else is checked: a real library that misbehaves does not
 * check either. */
#include "monitor/fakes/fuzz_feed.h"
#include "monitor/nvml_defs.h"

#define EXPORT __attribute__((visibility("default")))

EXPORT void FuzzNvmlFeed(const uint8_t* data, size_t size) {
    FuzzFeedData = data;
    FuzzFeedLeft = size;
}

#define Fill FuzzFill

/* NVML's codes: any non-zero value is a failure. */
static nvmlReturn_t Status(void) { return FuzzFeedLeft ? (nvmlReturn_t)FuzzStatus() : 999; }

#define REPLY(...)                                \
    nvmlReturn_t status_ = Status();              \
    if (status_ == NVML_SUCCESS) { __VA_ARGS__; } \
    return status_

EXPORT nvmlReturn_t nvmlInit_v2(void) { return Status(); }
EXPORT nvmlReturn_t nvmlShutdown(void) { return Status(); }
EXPORT nvmlReturn_t nvmlSystemGetDriverVersion(char* v, unsigned int n) { REPLY(Fill(v, n)); }
EXPORT nvmlReturn_t nvmlSystemGetNVMLVersion(char* v, unsigned int n) { REPLY(Fill(v, n)); }
EXPORT nvmlReturn_t nvmlDeviceGetCount_v2(unsigned int* c) { REPLY(Fill(c, sizeof *c)); }
EXPORT nvmlReturn_t nvmlDeviceGetHandleByIndex_v2(unsigned int i, nvmlDevice_t* d) {
    (void)i;
    REPLY(Fill(d, sizeof *d));
}
EXPORT nvmlReturn_t nvmlDeviceGetName(nvmlDevice_t d, char* name, unsigned int n) {
    (void)d;
    REPLY(Fill(name, n));
}
EXPORT nvmlReturn_t nvmlDeviceGetPciInfo_v3(nvmlDevice_t d, nvmlPciInfo_t* p) {
    (void)d;
    REPLY(Fill(p, sizeof *p));
}
EXPORT nvmlReturn_t nvmlDeviceGetTemperature(nvmlDevice_t d, int s, unsigned int* t) {
    (void)d, (void)s;
    REPLY(Fill(t, sizeof *t));
}
EXPORT nvmlReturn_t nvmlDeviceGetTemperatureThreshold(nvmlDevice_t d, int s, unsigned int* t) {
    (void)d, (void)s;
    REPLY(Fill(t, sizeof *t));
}
EXPORT nvmlReturn_t nvmlDeviceGetUtilizationRates(nvmlDevice_t d, nvmlUtilization_t* u) {
    (void)d;
    REPLY(Fill(u, sizeof *u));
}
EXPORT nvmlReturn_t nvmlDeviceGetMemoryInfo(nvmlDevice_t d, nvmlMemory_t* m) {
    (void)d;
    REPLY(Fill(m, sizeof *m));
}
EXPORT nvmlReturn_t nvmlDeviceGetFanSpeed(nvmlDevice_t d, unsigned int* s) {
    (void)d;
    REPLY(Fill(s, sizeof *s));
}
EXPORT nvmlReturn_t nvmlDeviceGetClockInfo(nvmlDevice_t d, int t, unsigned int* c) {
    (void)d, (void)t;
    REPLY(Fill(c, sizeof *c));
}
EXPORT nvmlReturn_t nvmlDeviceGetMaxClockInfo(nvmlDevice_t d, int t, unsigned int* c) {
    (void)d, (void)t;
    REPLY(Fill(c, sizeof *c));
}
EXPORT nvmlReturn_t nvmlDeviceGetDefaultApplicationsClock(nvmlDevice_t d, int t, unsigned int* c) {
    (void)d, (void)t;
    REPLY(Fill(c, sizeof *c));
}
EXPORT nvmlReturn_t nvmlDeviceGetPerformanceState(nvmlDevice_t d, int* p) {
    (void)d;
    REPLY(Fill(p, sizeof *p));
}
EXPORT nvmlReturn_t nvmlDeviceGetPowerUsage(nvmlDevice_t d, unsigned int* mw) {
    (void)d;
    REPLY(Fill(mw, sizeof *mw));
}
EXPORT nvmlReturn_t nvmlDeviceGetEnforcedPowerLimit(nvmlDevice_t d, unsigned int* mw) {
    (void)d;
    REPLY(Fill(mw, sizeof *mw));
}
EXPORT nvmlReturn_t nvmlDeviceGetPowerManagementDefaultLimit(nvmlDevice_t d, unsigned int* mw) {
    (void)d;
    REPLY(Fill(mw, sizeof *mw));
}
EXPORT nvmlReturn_t nvmlDeviceGetPowerManagementLimitConstraints(nvmlDevice_t d, unsigned int* lo, unsigned int* hi) {
    (void)d;
    REPLY(Fill(lo, sizeof *lo); Fill(hi, sizeof *hi));
}
EXPORT nvmlReturn_t nvmlDeviceGetCurrentClocksThrottleReasons(nvmlDevice_t d, unsigned long long* r) {
    (void)d;
    REPLY(Fill(r, sizeof *r));
}
EXPORT nvmlReturn_t nvmlDeviceGetNumGpuCores(nvmlDevice_t d, unsigned int* c) {
    (void)d;
    REPLY(Fill(c, sizeof *c));
}
