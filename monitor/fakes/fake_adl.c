/* A stand-in for AMD's atiadlxx.dll for the Windows build's tests under
 * Wine, answering from the script named by ARDENTIUM_FAKE_ADL_SCRIPT (see
 * fake_script.h):
 *
 *   adapters=4                      ADL adapters (default 2 per GPU)
 *   gpus=2                          GPUs: adapters 2k and 2k+1 share bus k+1
 *   adapterN.vendor (decimal, 4098), adapterN.active, adapterN.bus
 *   gpuN.name, gpuN.pnp (PnP ID string), gpuN.od (5 or 6)
 *   gpuN.levels="30000,120000,1100;..." Overdrive 5 levels: engine and
 *              memory clock in 10 kHz, VDDC in mV
 *   gpuN.temp (millidegrees), gpuN.temp_step, gpuN.fan (%), gpuN.activity,
 *   gpuN.engine, gpuN.memory (10 kHz), gpuN.vddc (mV), gpuN.level,
 *   gpuN.memsize (bytes), gpuN.memtype, gpuN.power (OD6 power control %)
 *   fail=ADL_Overdrive5_Temperature_Get,...   calls that return ADL_ERR
 *
 * Built without FAKE_ADL_COMPLETE it lacks ADL_Overdrive6_PowerControl_Set:
 * a library whose entry points are incomplete.
 */
#include <stdint.h>

#include "monitor/adl_defs.h"
#include "monitor/fakes/fake_script.h"

#define EXPORT __declspec(dllexport)
#define VAR "ARDENTIUM_FAKE_ADL_SCRIPT"

static int created;
static long tempReads[16];

static int Gpus(void) {
    FakeLoad(VAR);
    long n = FakeInt("gpus", 1);
    return n < 0 ? 0 : (n > 8 ? 8 : (int)n);
}

static int Adapters(void) { return (int)FakeInt("adapters", 2L * Gpus()); }

/* ADL adapter index -> GPU index, -1 for none. */
static int GpuOf(int adapter) {
    FakeLoad(VAR);
    if (!created || adapter < 0 || adapter >= Adapters()) return -1;
    int g = adapter / 2;
    return g < Gpus() ? g : -1;
}

#define GPU_OR_FAIL(a, fn)             \
    int g = GpuOf(a);                  \
    if (g < 0) return ADL_ERR;         \
    if (FakeFails(fn)) return ADL_ERR;

/* The levels text "e,m,v;e,m,v"; returns how many were parsed. */
static int Levels(int g, ADLODPerformanceLevel* out, int max) {
    const char* text = FakeGpuText(g, "levels", "30000,15000,900;104000,125000,1200");
    int n = 0;
    while (*text && n < max) {
        int e = 0, m = 0, v = 0;
        if (sscanf(text, "%d,%d,%d", &e, &m, &v) != 3) break;
        if (out) {
            out[n].iEngineClock = e;
            out[n].iMemoryClock = m;
            out[n].iVddc = v;
        }
        ++n;
        const char* semi = strchr(text, ';');
        if (!semi) break;
        text = semi + 1;
    }
    return n;
}

EXPORT int ADL_Main_Control_Create(ADL_MAIN_MALLOC_CALLBACK callback, int connected) {
    FakeLoad(VAR);
    (void)callback;
    (void)connected;
    if (FakeFails("ADL_Main_Control_Create")) return ADL_ERR;
    created = 1;
    return ADL_OK;
}

EXPORT int ADL_Main_Control_Destroy(void) {
    created = 0;
    return ADL_OK;
}

EXPORT int ADL_Main_Control_Refresh(void) { return created ? ADL_OK : ADL_ERR; }

EXPORT int ADL_Adapter_NumberOfAdapters_Get(int* n) {
    if (!created) return ADL_ERR;
    *n = Adapters();
    return ADL_OK;
}

EXPORT int ADL_Adapter_AdapterInfo_Get(AdapterInfo* info, int size) {
    if (!created || FakeFails("ADL_Adapter_AdapterInfo_Get")) return ADL_ERR;
    int n = Adapters();
    if (size < n * (int)sizeof(AdapterInfo)) return ADL_ERR;
    for (int i = 0; i < n; ++i) {
        AdapterInfo* a = &info[i];
        char key[64];
        int g = i / 2;
        memset(a, 0, sizeof *a);
        a->iSize = sizeof *a;
        a->iAdapterIndex = i;
        snprintf(key, sizeof key, "adapter%d.bus", i);
        a->iBusNumber = (int)FakeInt(key, g + 1);
        snprintf(key, sizeof key, "adapter%d.vendor", i);
        a->iVendorID = (int)FakeInt(key, 4098);
        snprintf(a->strAdapterName, sizeof a->strAdapterName, "%s", FakeGpuText(g, "name", "AMD Radeon R9 200 Series"));
        snprintf(a->strDisplayName, sizeof a->strDisplayName, "\\\\.\\DISPLAY%d", i + 1);
        snprintf(a->strPNPString, sizeof a->strPNPString, "%s",
                 FakeGpuText(g, "pnp", "PCI\\VEN_1002&DEV_67B0&SUBSYS_30801462&REV_00"));
        snprintf(a->strUDID, sizeof a->strUDID, "PCI_VEN_1002&DEV_67B0_%d", i);
        a->iPresent = 1;
        a->iExist = 1;
    }
    return ADL_OK;
}

EXPORT int ADL_Adapter_Active_Get(int adapter, int* status) {
    char key[64];
    if (!created || adapter < 0 || adapter >= Adapters()) return ADL_ERR;
    snprintf(key, sizeof key, "adapter%d.active", adapter);
    *status = (int)FakeInt(key, 1);
    return ADL_OK;
}

EXPORT int ADL_Overdrive_Caps(int adapter, int* supported, int* enabled, int* version) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive_Caps");
    *supported = 1;
    *enabled = 1;
    *version = (int)FakeGpuInt(g, "od", 5);
    return ADL_OK;
}

EXPORT int ADL_Adapter_MemoryInfo_Get(int adapter, ADLMemoryInfo* m) {
    GPU_OR_FAIL(adapter, "ADL_Adapter_MemoryInfo_Get");
    m->iMemorySize = (int64_t)FakeGpuInt(g, "memsize", 4294967296LL);
    snprintf(m->strMemoryType, sizeof m->strMemoryType, "%s", FakeGpuText(g, "memtype", "GDDR5"));
    m->iMemoryBandwidth = 320000;
    return ADL_OK;
}

static int Temperature(int g) { return (int)(FakeGpuInt(g, "temp", 65000) + FakeGpuInt(g, "temp_step", 0) * tempReads[g]++); }

EXPORT int ADL_Overdrive5_Temperature_Get(int adapter, int controller, ADLTemperature* t) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive5_Temperature_Get");
    (void)controller;
    t->iTemperature = Temperature(g);
    return ADL_OK;
}

EXPORT int ADL_Overdrive5_FanSpeed_Get(int adapter, int controller, ADLFanSpeedValue* f) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive5_FanSpeed_Get");
    (void)controller;
    if (f->iSpeedType == ADL_DL_FANCTRL_SPEED_TYPE_PERCENT) f->iFanSpeed = (int)FakeGpuInt(g, "fan", 47);
    else f->iFanSpeed = (int)FakeGpuInt(g, "rpm", 2100);
    return ADL_OK;
}

EXPORT int ADL_Overdrive5_ODParameters_Get(int adapter, ADLODParameters* p) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive5_ODParameters_Get");
    if (p->iSize != (int)sizeof *p) return ADL_ERR;
    p->iNumberOfPerformanceLevels = (int)FakeGpuInt(g, "numlevels", Levels(g, NULL, 16));
    p->iActivityReportingSupported = 1;
    p->iDiscretePerformanceLevels = 1;
    return ADL_OK;
}

EXPORT int ADL_Overdrive5_ODPerformanceLevels_Get(int adapter, int defaults, ADLODPerformanceLevels* l) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive5_ODPerformanceLevels_Get");
    (void)defaults;
    int n = Levels(g, NULL, 16);
    /* The caller's size word says how many levels fit; a real driver
     * refuses a buffer that is too small, and so does this one. */
    if (l->iSize < 8 + 12 * n) return ADL_ERR;
    Levels(g, l->aLevels, n);
    return ADL_OK;
}

EXPORT int ADL_Overdrive5_ODPerformanceLevels_Set(int adapter, ADLODPerformanceLevels* l) {
    (void)adapter;
    (void)l;
    return ADL_ERR; /* the monitor never sets anything */
}

EXPORT int ADL_Overdrive5_CurrentActivity_Get(int adapter, ADLPMActivity* a) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive5_CurrentActivity_Get");
    a->iEngineClock = (int)FakeGpuInt(g, "engine", 100000);
    a->iMemoryClock = (int)FakeGpuInt(g, "memory", 125000);
    a->iVddc = (int)FakeGpuInt(g, "vddc", 1150);
    a->iActivityPercent = (int)FakeGpuInt(g, "activity", 99);
    a->iCurrentPerformanceLevel = (int)FakeGpuInt(g, "level", 1);
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_FanSpeed_Get(int adapter, ADLOD6FanSpeedInfo* f) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_FanSpeed_Get");
    f->iSpeedType = ADL_OD6_FANSPEED_TYPE_PERCENT | ADL_OD6_FANSPEED_TYPE_RPM;
    f->iFanSpeedPercent = (int)FakeGpuInt(g, "fan", 47);
    f->iFanSpeedRPM = (int)FakeGpuInt(g, "rpm", 2100);
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_ThermalController_Caps(int adapter, ADLOD6ThermalControllerCaps* c) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_ThermalController_Caps");
    c->iCapabilities = ADL_OD6_TCCAPS_FANSPEED_PERCENT_READ | ADL_OD6_TCCAPS_FANSPEED_RPM_READ;
    c->iFanMaxPercent = 100;
    c->iFanMaxRPM = 4000;
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_Temperature_Get(int adapter, int* t) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_Temperature_Get");
    *t = Temperature(g);
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_Capabilities_Get(int adapter, ADLOD6Capabilities* c) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_Capabilities_Get");
    c->iNumberOfPerformanceLevels = Levels(g, NULL, 16);
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_StateInfo_Get(int adapter, int type, ADLOD6StateInfo* s) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_StateInfo_Get");
    (void)type;
    (void)s;
    return ADL_ERR; /* levels come from Overdrive 5 in this double */
}

EXPORT int ADL_Overdrive6_CurrentStatus_Get(int adapter, ADLOD6CurrentStatus* s) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_CurrentStatus_Get");
    s->iEngineClock = (int)FakeGpuInt(g, "engine", 100000);
    s->iMemoryClock = (int)FakeGpuInt(g, "memory", 125000);
    s->iActivityPercent = (int)FakeGpuInt(g, "activity", 99);
    s->iCurrentPerformanceLevel = (int)FakeGpuInt(g, "level", 1);
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_PowerControl_Caps(int adapter, int* supported) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_PowerControl_Caps");
    *supported = 1;
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_PowerControlInfo_Get(int adapter, ADLOD6PowerControlInfo* p) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_PowerControlInfo_Get");
    p->iMinValue = -50;
    p->iMaxValue = 50;
    p->iStepValue = 1;
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_PowerControl_Get(int adapter, int* current, int* def) {
    GPU_OR_FAIL(adapter, "ADL_Overdrive6_PowerControl_Get");
    *current = (int)FakeGpuInt(g, "power", 20);
    *def = 0;
    return ADL_OK;
}

EXPORT int ADL_Overdrive6_FanSpeed_Set(int adapter, ADLOD6FanSpeedValue* f) {
    (void)adapter;
    (void)f;
    return ADL_ERR;
}

EXPORT int ADL_Overdrive6_State_Set(int adapter, int type, ADLOD6StateInfo* s) {
    (void)adapter;
    (void)type;
    (void)s;
    return ADL_ERR;
}

#ifdef FAKE_ADL_COMPLETE
EXPORT int ADL_Overdrive6_PowerControl_Set(int adapter, int value) {
    (void)adapter;
    (void)value;
    return ADL_ERR;
}
#endif
