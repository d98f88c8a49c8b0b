/* A stand-in for NVIDIA's "libnvidia-ml.so.1" for the tests. It answers the
 * NVML calls the monitor makes from a script file named by the environment
 * variable ARDENTIUM_FAKE_NVML_SCRIPT, one "key=value" per line:
 *
 *   gpus=2                       number of GPUs (at most 8)
 *   driver=550.54.14             nvmlSystemGetDriverVersion
 *   version=12.550.54.14         nvmlSystemGetNVMLVersion
 *   init=fail                    nvmlInit_v2 fails
 *   fail=nvmlDeviceGetFanSpeed,nvmlDeviceGetPowerUsage   calls that fail on every GPU
 *   gpuN.fail=...                calls that fail on GPU N only
 *   gpuN.name, gpuN.device, gpuN.subvendor, gpuN.subdevice (hex, "0x" optional),
 *   gpuN.bus ("00000000:01:00.0"), gpuN.temp, gpuN.temp_step (added at each
 *   temperature read: rising temperatures), gpuN.slowdown, gpuN.util,
 *   gpuN.memutil, gpuN.mem_total_mb, gpuN.mem_used_mb, gpuN.fan, gpuN.clock,
 *   gpuN.memclock, gpuN.maxclock, gpuN.baseclock, gpuN.pstate, gpuN.power_mw,
 *   gpuN.limit_mw, gpuN.default_limit_mw, gpuN.max_limit_mw,
 *   gpuN.throttle (hex bit mask), gpuN.cores
 *
 * The script is read again whenever the file changes, so a test can change
 * readings between two refreshes. Counters (temperature steps, call counts)
 * survive a reload. Nothing here checks what a real driver would; values are
 * returned as written, nonsense included, because that is what the tests
 * need to feed the monitor.
 *
 * Built without FAKE_NVML_COMPLETE it lacks nvmlInit_v2: a library that is
 * not a usable NVML.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "monitor/nvml_defs.h"

#define EXPORT __attribute__((visibility("default")))
#define MAX_GPUS 8

struct FakeGpu {
    char name[96];
    unsigned device, subvendor, subdevice;
    char bus[32];
    long temp, temp_step, slowdown, util, memutil, mem_total_mb, mem_used_mb, fan, clock, memclock, maxclock, baseclock,
        pstate, power_mw, limit_mw, default_limit_mw, max_limit_mw, cores;
    unsigned long long throttle;
    char fail[512];
    long temp_reads;
};

static struct {
    int loaded;
    time_t mtime;
    long size;
    int gpus;
    char driver[80];
    char version[80];
    int init_fails;
    char fail[512];
    struct FakeGpu gpu[MAX_GPUS];
    int initialised;
} S;

static void Defaults(void) {
    long reads[MAX_GPUS];
    for (int i = 0; i < MAX_GPUS; ++i) reads[i] = S.gpu[i].temp_reads;
    int initialised = S.initialised;
    memset(&S, 0, sizeof S);
    S.initialised = initialised;
    S.gpus = 1;
    strcpy(S.driver, "550.54.14");
    strcpy(S.version, "12.550.54.14");
    for (int i = 0; i < MAX_GPUS; ++i) {
        struct FakeGpu* g = &S.gpu[i];
        snprintf(g->name, sizeof g->name, "NVIDIA GeForce RTX 4090");
        g->device = 0x2684;
        g->subvendor = 0x10DE;
        g->subdevice = 0x167C;
        snprintf(g->bus, sizeof g->bus, "00000000:%02X:00.0", i + 1);
        g->temp = 40;
        g->slowdown = 90;
        g->util = 50;
        g->memutil = 20;
        g->mem_total_mb = 24564;
        g->mem_used_mb = 1024;
        g->fan = 30;
        g->clock = 2520;
        g->memclock = 10501;
        g->maxclock = 2790;
        g->baseclock = 2235;
        g->pstate = 0;
        g->power_mw = 225000;
        g->limit_mw = 450000;
        g->default_limit_mw = 450000;
        g->max_limit_mw = 600000;
        g->cores = 16384;
        g->temp_reads = reads[i];
    }
}

static void Apply(const char* key, const char* value) {
    if (!strcmp(key, "gpus")) S.gpus = atoi(value);
    else if (!strcmp(key, "driver")) snprintf(S.driver, sizeof S.driver, "%s", value);
    else if (!strcmp(key, "version")) snprintf(S.version, sizeof S.version, "%s", value);
    else if (!strcmp(key, "init")) S.init_fails = !strcmp(value, "fail");
    else if (!strcmp(key, "fail")) snprintf(S.fail, sizeof S.fail, ",%s,", value);
    else if (!strncmp(key, "gpu", 3) && key[3] >= '0' && key[3] < '0' + MAX_GPUS && key[4] == '.') {
        struct FakeGpu* g = &S.gpu[key[3] - '0'];
        const char* k = key + 5;
        long v = strtol(value, NULL, 0);
        /* PCI ids are hex with or without "0x", as lists of ids write them:
         * "2684" is 0x2684, never decimal 2684. */
        unsigned id = (unsigned)strtoul(value, NULL, 16);
        if (!strcmp(k, "name")) snprintf(g->name, sizeof g->name, "%s", value);
        else if (!strcmp(k, "device")) g->device = id;
        else if (!strcmp(k, "subvendor")) g->subvendor = id;
        else if (!strcmp(k, "subdevice")) g->subdevice = id;
        else if (!strcmp(k, "bus")) snprintf(g->bus, sizeof g->bus, "%s", value);
        else if (!strcmp(k, "temp")) g->temp = v;
        else if (!strcmp(k, "temp_step")) g->temp_step = v;
        else if (!strcmp(k, "slowdown")) g->slowdown = v;
        else if (!strcmp(k, "util")) g->util = v;
        else if (!strcmp(k, "memutil")) g->memutil = v;
        else if (!strcmp(k, "mem_total_mb")) g->mem_total_mb = v;
        else if (!strcmp(k, "mem_used_mb")) g->mem_used_mb = v;
        else if (!strcmp(k, "fan")) g->fan = v;
        else if (!strcmp(k, "clock")) g->clock = v;
        else if (!strcmp(k, "memclock")) g->memclock = v;
        else if (!strcmp(k, "maxclock")) g->maxclock = v;
        else if (!strcmp(k, "baseclock")) g->baseclock = v;
        else if (!strcmp(k, "pstate")) g->pstate = v;
        else if (!strcmp(k, "power_mw")) g->power_mw = v;
        else if (!strcmp(k, "limit_mw")) g->limit_mw = v;
        else if (!strcmp(k, "default_limit_mw")) g->default_limit_mw = v;
        else if (!strcmp(k, "max_limit_mw")) g->max_limit_mw = v;
        else if (!strcmp(k, "throttle")) g->throttle = strtoull(value, NULL, 0);
        else if (!strcmp(k, "cores")) g->cores = v;
        else if (!strcmp(k, "fail")) snprintf(g->fail, sizeof g->fail, ",%s,", value);
    }
}

static void Load(void) {
    const char* path = getenv("ARDENTIUM_FAKE_NVML_SCRIPT");
    struct stat st;
    int have = path && *path && stat(path, &st) == 0;
    if (S.loaded && (!have || (st.st_mtime == S.mtime && (long)st.st_size == S.size))) return;
    Defaults();
    S.loaded = 1;
    if (!have) return;
    S.mtime = st.st_mtime;
    S.size = (long)st.st_size;
    FILE* f = fopen(path, "r");
    if (!f) return;
    char line[640];
    while (fgets(line, sizeof line, f)) {
        line[strcspn(line, "\r\n")] = 0;
        if (line[0] == '#' || !line[0]) continue;
        char* eq = strchr(line, '=');
        if (!eq) continue;
        *eq = 0;
        Apply(line, eq + 1);
    }
    fclose(f);
    if (S.gpus < 0) S.gpus = 0;
    if (S.gpus > MAX_GPUS) S.gpus = MAX_GPUS;
}

/* Handles are 1-based indices in disguise. */
static struct FakeGpu* Gpu(nvmlDevice_t d) {
    Load();
    size_t i = (size_t)d;
    if (!S.initialised || i < 1 || i > (size_t)S.gpus) return NULL;
    return &S.gpu[i - 1];
}

static int Fails(struct FakeGpu* g, const char* fn) {
    char key[96];
    snprintf(key, sizeof key, ",%s,", fn);
    return strstr(S.fail, key) != NULL || (g && strstr(g->fail, key) != NULL);
}

#define GPU_OR_FAIL(d, fn)                               \
    struct FakeGpu* g = Gpu(d);                          \
    if (!g) return NVML_ERROR_INVALID_ARGUMENT;          \
    if (Fails(g, fn)) return NVML_ERROR_UNKNOWN;

#ifdef FAKE_NVML_COMPLETE
EXPORT nvmlReturn_t nvmlInit_v2(void) {
    Load();
    if (S.init_fails || Fails(NULL, "nvmlInit_v2")) return NVML_ERROR_UNKNOWN;
    S.initialised = 1;
    return NVML_SUCCESS;
}
#endif

EXPORT nvmlReturn_t nvmlShutdown(void) {
    S.initialised = 0;
    return NVML_SUCCESS;
}

static nvmlReturn_t CopyText(const char* text, char* out, unsigned len) {
    if (!out || len == 0) return NVML_ERROR_INVALID_ARGUMENT;
    snprintf(out, len, "%s", text);
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlSystemGetDriverVersion(char* version, unsigned int length) {
    Load();
    if (Fails(NULL, "nvmlSystemGetDriverVersion")) return NVML_ERROR_UNKNOWN;
    return CopyText(S.driver, version, length);
}

EXPORT nvmlReturn_t nvmlSystemGetNVMLVersion(char* version, unsigned int length) {
    Load();
    return CopyText(S.version, version, length);
}

EXPORT nvmlReturn_t nvmlDeviceGetCount_v2(unsigned int* count) {
    Load();
    if (!S.initialised) return NVML_ERROR_UNINITIALIZED;
    if (Fails(NULL, "nvmlDeviceGetCount_v2")) return NVML_ERROR_UNKNOWN;
    *count = (unsigned)S.gpus;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetHandleByIndex_v2(unsigned int index, nvmlDevice_t* device) {
    Load();
    if (!S.initialised) return NVML_ERROR_UNINITIALIZED;
    if (index >= (unsigned)S.gpus) return NVML_ERROR_INVALID_ARGUMENT;
    *device = (nvmlDevice_t)(size_t)(index + 1);
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetName(nvmlDevice_t d, char* name, unsigned int length) {
    GPU_OR_FAIL(d, "nvmlDeviceGetName");
    return CopyText(g->name, name, length);
}

EXPORT nvmlReturn_t nvmlDeviceGetPciInfo_v3(nvmlDevice_t d, nvmlPciInfo_t* pci) {
    GPU_OR_FAIL(d, "nvmlDeviceGetPciInfo_v3");
    memset(pci, 0, sizeof *pci);
    snprintf(pci->busId, sizeof pci->busId, "%s", g->bus);
    snprintf(pci->busIdLegacy, sizeof pci->busIdLegacy, "%.15s", g->bus + 4);
    unsigned dom = 0, bus = 0, dev = 0;
    sscanf(g->bus, "%x:%x:%x", &dom, &bus, &dev);
    pci->domain = dom;
    pci->bus = bus;
    pci->device = dev;
    pci->pciDeviceId = (g->device << 16) | 0x10DEu;
    pci->pciSubSystemId = (g->subdevice << 16) | g->subvendor;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetTemperature(nvmlDevice_t d, int sensor, unsigned int* temp) {
    GPU_OR_FAIL(d, "nvmlDeviceGetTemperature");
    if (sensor != NVML_TEMPERATURE_GPU) return NVML_ERROR_INVALID_ARGUMENT;
    *temp = (unsigned)(g->temp + g->temp_step * g->temp_reads);
    g->temp_reads++;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetTemperatureThreshold(nvmlDevice_t d, int threshold, unsigned int* temp) {
    GPU_OR_FAIL(d, "nvmlDeviceGetTemperatureThreshold");
    if (threshold != NVML_TEMPERATURE_THRESHOLD_SLOWDOWN) return NVML_ERROR_NOT_SUPPORTED;
    *temp = (unsigned)g->slowdown;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetUtilizationRates(nvmlDevice_t d, nvmlUtilization_t* u) {
    GPU_OR_FAIL(d, "nvmlDeviceGetUtilizationRates");
    u->gpu = (unsigned)g->util;
    u->memory = (unsigned)g->memutil;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetMemoryInfo(nvmlDevice_t d, nvmlMemory_t* m) {
    GPU_OR_FAIL(d, "nvmlDeviceGetMemoryInfo");
    m->total = (unsigned long long)g->mem_total_mb << 20;
    m->used = (unsigned long long)g->mem_used_mb << 20;
    m->free = m->total > m->used ? m->total - m->used : 0;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetFanSpeed(nvmlDevice_t d, unsigned int* speed) {
    GPU_OR_FAIL(d, "nvmlDeviceGetFanSpeed");
    *speed = (unsigned)g->fan;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetClockInfo(nvmlDevice_t d, int type, unsigned int* clock) {
    GPU_OR_FAIL(d, "nvmlDeviceGetClockInfo");
    if (type == NVML_CLOCK_GRAPHICS || type == NVML_CLOCK_SM) *clock = (unsigned)g->clock;
    else if (type == NVML_CLOCK_MEM) *clock = (unsigned)g->memclock;
    else return NVML_ERROR_INVALID_ARGUMENT;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetMaxClockInfo(nvmlDevice_t d, int type, unsigned int* clock) {
    GPU_OR_FAIL(d, "nvmlDeviceGetMaxClockInfo");
    if (type != NVML_CLOCK_GRAPHICS && type != NVML_CLOCK_SM) return NVML_ERROR_NOT_SUPPORTED;
    *clock = (unsigned)g->maxclock;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetDefaultApplicationsClock(nvmlDevice_t d, int type, unsigned int* clock) {
    GPU_OR_FAIL(d, "nvmlDeviceGetDefaultApplicationsClock");
    if (type != NVML_CLOCK_GRAPHICS) return NVML_ERROR_NOT_SUPPORTED;
    *clock = (unsigned)g->baseclock;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetPerformanceState(nvmlDevice_t d, int* p) {
    GPU_OR_FAIL(d, "nvmlDeviceGetPerformanceState");
    *p = (int)g->pstate;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetPowerUsage(nvmlDevice_t d, unsigned int* mw) {
    GPU_OR_FAIL(d, "nvmlDeviceGetPowerUsage");
    *mw = (unsigned)g->power_mw;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetEnforcedPowerLimit(nvmlDevice_t d, unsigned int* mw) {
    GPU_OR_FAIL(d, "nvmlDeviceGetEnforcedPowerLimit");
    *mw = (unsigned)g->limit_mw;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetPowerManagementDefaultLimit(nvmlDevice_t d, unsigned int* mw) {
    GPU_OR_FAIL(d, "nvmlDeviceGetPowerManagementDefaultLimit");
    *mw = (unsigned)g->default_limit_mw;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetPowerManagementLimitConstraints(nvmlDevice_t d, unsigned int* minLimit,
                                                                unsigned int* maxLimit) {
    GPU_OR_FAIL(d, "nvmlDeviceGetPowerManagementLimitConstraints");
    *minLimit = (unsigned)(g->default_limit_mw / 2);
    *maxLimit = (unsigned)g->max_limit_mw;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetCurrentClocksThrottleReasons(nvmlDevice_t d, unsigned long long* reasons) {
    GPU_OR_FAIL(d, "nvmlDeviceGetCurrentClocksThrottleReasons");
    *reasons = g->throttle;
    return NVML_SUCCESS;
}

EXPORT nvmlReturn_t nvmlDeviceGetNumGpuCores(nvmlDevice_t d, unsigned int* cores) {
    GPU_OR_FAIL(d, "nvmlDeviceGetNumGpuCores");
    *cores = (unsigned)g->cores;
    return NVML_SUCCESS;
}
