// NVAPI and ADL: the conversions and naming rules everywhere, and the whole
// path against the fake nvapi64.dll and atiadlxx.dll in the Windows build
// (run under Wine).
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "monitor/adl_backend.h"
#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/test_env.h"
#include "monitor/nvapi_backend.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {
namespace {

TEST(AdlLevels, TheExampleLevelReadsInMegahertzAndVolts) {
    PerfLevel p = AdlBackend::ConvertLevel(ADLODPerformanceLevel{30000, 120000, 1100});
    EXPECT_FLOAT_EQ(p.coreMHz, 300.0f);
    EXPECT_FLOAT_EQ(p.memoryMHz, 1200.0f);
    EXPECT_FLOAT_EQ(p.voltage, 1.1f);
    char text[64];
    std::snprintf(text, sizeof text, "%.1f %.1f %.3f", p.coreMHz, p.memoryMHz, p.voltage);
    EXPECT_STREQ(text, "300.0 1200.0 1.100");
}

TEST(AdlNames, SharedDeviceIdsAreToldApartByTheAdaptersName) {
    std::string name = "unchanged", code;
    AdlBackend::FixedNames(0x67B0, "AMD Radeon R9 200 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon R9 290X");
    EXPECT_EQ(code, "Hawaii(GCN1.1)");
    AdlBackend::FixedNames(0x67B0, "AMD Radeon R9 300 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon R9 390X");
    EXPECT_EQ(code, "Grenada(GCN1.1)");
    AdlBackend::FixedNames(0x67B1, "AMD Radeon R9 200 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon R9 290");
    AdlBackend::FixedNames(0x67B1, "AMD Radeon (TM) R9 390 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon R9 390");
    EXPECT_EQ(code, "Grenada(GCN1.1)");
    code.clear();
    AdlBackend::FixedNames(0x6798, "AMD Radeon HD 7900 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon HD 7970");
    AdlBackend::FixedNames(0x6798, "AMD Radeon R9 200 Series", &name, &code);
    EXPECT_EQ(name, "AMD Radeon R9 280X");
    EXPECT_EQ(code, "");
    AdlBackend::FixedNames(0x68F9, "AMD Radeon HD 6350", &name, &code);
    EXPECT_EQ(name, "ATI Radeon HD 6350");
    name = "ATI Radeon HD 5450";
    AdlBackend::FixedNames(0x68F9, "ATI Radeon HD 5450", &name, &code);
    EXPECT_EQ(name, "ATI Radeon HD 5450");
    name = "AMD Radeon RX 580";
    AdlBackend::FixedNames(0x67DF, "Radeon R9 2 anything", &name, &code);
    EXPECT_EQ(name, "AMD Radeon RX 580");  // other devices keep their name
}

TEST(VendorLibraries, NamesFollowTheBuildAndTheTestVariables) {
    {
        fakes::ScopedEnv none{NvapiBackend::kLibraryVariable, ""};
        EXPECT_EQ(NvapiBackend::LibraryName(), sizeof(void*) == 8 ? "nvapi64.dll" : "nvapi.dll");
        fakes::ScopedEnv adl{AdlBackend::kLibraryVariable, ""};
        auto names = AdlBackend::LibraryNames();
        ASSERT_EQ(names.size(), 2u);
        EXPECT_EQ(names[0], "atiadlxx.dll");
        EXPECT_EQ(names[1], "atiadlxy.dll");
    }
    fakes::ScopedEnv adl{AdlBackend::kLibraryVariable, "fake.dll"};
    EXPECT_EQ(AdlBackend::LibraryNames(), std::vector<std::string>{"fake.dll"});
}

TEST(VendorLibraries, MissingLibrariesFindNothing) {
    NvapiBackend nvapi;
    EXPECT_FALSE(nvapi.Init("no-such-nvapi.dll", "no-such-nvcpl.dll"));
    EXPECT_EQ(nvapi.count(), 0);
    TemperatureReading t;
    EXPECT_FALSE(nvapi.Temperature(0, &t));
    AdlBackend adl;
    EXPECT_FALSE(adl.Init({"no-such-atiadlxx.dll", "no-such-atiadlxy.dll"}));
    EXPECT_EQ(adl.count(), 0);
    EXPECT_FALSE(adl.Temperature(0, &t));
    std::vector<PerfLevel> levels;
    EXPECT_FALSE(adl.PerfLevels(0, false, &levels));
}

#if defined(_WIN32)

const std::string kFakes = ARD_FAKES_DIR;

class WindowsFakes : public ::testing::Test {
protected:
    void SetUp() override {
        ResetComplaints();
        gAdlLog.Enable(adlLog);
        gProbeLog.Enable(probeLog);
    }
    void TearDown() override {
        gAdlLog.Disable();
        gProbeLog.Disable();
    }
    std::string adlLog = fakes::TempPath("adl") + ".log";
    std::string probeLog = fakes::TempPath("probe") + ".log";
    std::string nvapiScript = fakes::TempPath("fake-nvapi");
    std::string adlScript = fakes::TempPath("fake-adl");
    fakes::ScopedEnv nvapiEnv{"ARDENTIUM_FAKE_NVAPI_SCRIPT", nvapiScript};
    fakes::ScopedEnv adlEnv{"ARDENTIUM_FAKE_ADL_SCRIPT", adlScript};
    monitor::CapturedEvents events;
};

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

TEST_F(WindowsFakes, NvapiListsGpusAndLogsItsVersions) {
    fakes::WriteTextFile(nvapiScript, "gpus=2\ndriver=35330\nbranch=r352_00\ngpu1.name=GeForce GTX 970\ngpu1.device=0x13C2\n");
    NvapiBackend nvapi;
    ASSERT_TRUE(nvapi.Init(kFakes + "/nvapi64.dll", ""));
    ASSERT_EQ(nvapi.count(), 2);
    EXPECT_EQ(nvapi.displayHandleCount(), 2);
    EXPECT_EQ(nvapi.gpu(0).name, "GeForce GTX 980");
    EXPECT_EQ(nvapi.gpu(0).vendor, 0x10DEu);
    EXPECT_EQ(nvapi.gpu(0).device, 0x13C0u);
    EXPECT_EQ(nvapi.gpu(1).device, 0x13C2u);
    EXPECT_EQ(nvapi.gpu(0).cores, 2048u);
    EXPECT_EQ(nvapi.gpu(0).dedicatedKB, 4194304u);
    EXPECT_EQ(nvapi.DriverDisplayText(), "R353.30");
    EXPECT_EQ(nvapi.DriverVersionText(), "353.30");
    EXPECT_EQ(nvapi.branch(), "r352_00");
    nvapi.Shutdown();
    gProbeLog.Disable();
    std::string log = fakes::ReadTextFile(probeLog);
    EXPECT_TRUE(Contains(log, ">> NVAPI version: NVidia Complete Version 1.10\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> NVAPI - driver version: r352_00 --- 35330 --- R353.30\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> - GPU 0 - Power limit 100 - mp=125, mW=165000\r\n")) << log;
}

TEST_F(WindowsFakes, NvapiReadingsInTheSnapshotsUnits) {
    fakes::WriteTextFile(nvapiScript, "gpu0.temp=61\ngpu0.temp_step=1\ngpu0.rails=3\n");
    NvapiBackend nvapi;
    ASSERT_TRUE(nvapi.Init(kFakes + "/nvapi64.dll", ""));
    TemperatureReading t;
    ASSERT_TRUE(nvapi.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 61.0f);
    EXPECT_EQ(t.threshold, 95);
    ASSERT_TRUE(nvapi.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 62.0f);
    int load = 0, fb = 0;
    ASSERT_TRUE(nvapi.Usage(0, &load, &fb));
    EXPECT_EQ(load, 97);
    EXPECT_EQ(fb, 35);
    int total = 0, used = 0, freeMB = 0;
    ASSERT_TRUE(nvapi.MemoryUsage(0, &total, &used, &freeMB));
    EXPECT_EQ(total, 4096);
    EXPECT_EQ(freeMB, 3072);
    EXPECT_EQ(used, 1024);
    int fan = 0, rpm = 0;
    ASSERT_TRUE(nvapi.Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 1650);
    EXPECT_EQ(rpm, 1);
    ClockReading c;
    ASSERT_TRUE(nvapi.Clocks(0, &c));
    EXPECT_FLOAT_EQ(c.coreMHz, 1215.0f);
    EXPECT_FLOAT_EQ(c.memoryMHz, 3505.0f);
    EXPECT_NEAR(c.voltage, 1.187f, 1e-6);
    EXPECT_EQ(c.performanceState, 0);
    int pct = 0, avail = 0;
    ASSERT_TRUE(nvapi.Power(0, 0, &pct, &avail));
    EXPECT_EQ(pct, 87);
    EXPECT_TRUE(nvapi.HasExtraRails(0));
    ASSERT_TRUE(nvapi.Power(0, 2, &pct, &avail));
    EXPECT_EQ(pct, 67);
    int base = 0, boost = 0;
    ASSERT_TRUE(nvapi.BaseBoostClocks(0, &base, &boost));
    EXPECT_EQ(base, 1126);
    EXPECT_EQ(boost, 1216);
    float target = 0;
    ASSERT_TRUE(nvapi.PowerTarget(0, &target));
    EXPECT_FLOAT_EQ(target, 100.0f);
    float ceiling = 0, bound = 0;
    ASSERT_TRUE(nvapi.ClockCeiling(0, &ceiling, &bound));
    EXPECT_FLOAT_EQ(ceiling, 1216.0f);
    EXPECT_FLOAT_EQ(bound, 1216.0f);
}

TEST_F(WindowsFakes, NvapiFailuresAndMissingFunctionsLeaveOutputs) {
    fakes::WriteTextFile(nvapiScript, "fail=NvAPI_GPU_GetThermalSettings,NvAPI_GPU_GetTachReading\nmissing=volt\n"
                                      "gpu0.decrease=2\ngpu0.clock=1100\n");
    NvapiBackend nvapi;
    ASSERT_TRUE(nvapi.Init(kFakes + "/nvapi64.dll", ""));
    TemperatureReading t;
    t.celsius = 33.0f;
    EXPECT_FALSE(nvapi.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 33.0f);
    int fan = 9, rpm = 9;
    EXPECT_FALSE(nvapi.Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 9);
    float v = 0;
    EXPECT_FALSE(nvapi.Voltage(0, &v));
    ClockReading c;
    ASSERT_TRUE(nvapi.Clocks(0, &c));
    EXPECT_FLOAT_EQ(c.voltage, 0.0f);
    float ceiling = 0, bound = 0;
    ASSERT_TRUE(nvapi.ClockCeiling(0, &ceiling, &bound));
    EXPECT_FLOAT_EQ(ceiling, 1100.0f);  // a performance decrease holds it at its current clock
    EXPECT_EQ(events.lines().size(), 2u);
}

TEST_F(WindowsFakes, NvapiWithoutAGpuIsNotUsed) {
    fakes::WriteTextFile(nvapiScript, "fail=NvAPI_Initialize\n");
    NvapiBackend nvapi;
    EXPECT_FALSE(nvapi.Init(kFakes + "/nvapi64.dll", ""));
    EXPECT_EQ(nvapi.count(), 0);
    fakes::WriteTextFile(nvapiScript, "report_gpus=1000\n");
    EXPECT_TRUE(nvapi.Init(kFakes + "/nvapi64.dll", ""));
    EXPECT_EQ(nvapi.count(), 0);  // a count beyond the handle array is not believed
    EXPECT_EQ(events.lines().size(), 1u);
}

TEST_F(WindowsFakes, AdlInitLogsEveryStepAndListsOneGpuPerBus) {
    fakes::WriteTextFile(adlScript, "gpus=2\ngpu1.name=AMD Radeon R9 300 Series\ngpu1.od=6\n");
    AdlBackend adl;
    ASSERT_TRUE(adl.Init({kFakes + "/atiadlxx.dll"}));
    EXPECT_EQ(adl.adapterCount(), 4);
    ASSERT_EQ(adl.count(), 2);
    EXPECT_EQ(adl.gpu(0).name, "AMD Radeon R9 290X");
    EXPECT_EQ(adl.gpu(0).codeName, "Hawaii(GCN1.1)");
    EXPECT_EQ(adl.gpu(1).name, "AMD Radeon R9 390X");
    EXPECT_EQ(adl.gpu(1).codeName, "Grenada(GCN1.1)");
    EXPECT_EQ(adl.gpu(0).overdriveVersion, 5);
    EXPECT_EQ(adl.gpu(1).overdriveVersion, 6);
    EXPECT_EQ(adl.gpu(0).memoryMB, 4096);
    adl.Shutdown();
    gAdlLog.Disable();
    std::string log = fakes::ReadTextFile(adlLog);
    for (const char* line :
         {">> AMD_Display_Library_Init - START\r\n", ">> AMD_Display_Library_Init - function pointers.\r\n",
          ">> AMD_Display_Library_Init - ADL_Main_Control_Create()\r\n",
          ">> AMD_Display_Library_Init - ADL_Main_Control_Create() OK.\r\n",
          ">> AMD_Display_Library_Init -  Found: 4 adapters\r\n", ">> AMD_Display_Library_Init -  adapter 0 - vendor ID: 4098\r\n",
          ">> AMD_Display_Library_Init -  adapter 3 - vendor ID: 4098\r\n",
          ">> AMD_Display_Library_Init -  adapter 0 - AMD_Display_Library_ReadGpuTemperature()\r\n",
          ">> AMD_Display_Library_Init -  adapter 0 - AMD_Display_Library_ReadGpuTemperature() OK.\r\n",
          ">> AMD_Display_Library_Init -  adapter 2 - AMD_Display_Library_ReadGpuTemperature() OK.\r\n",
          ">> AMD_Display_Library_Init - memory info: size:4096, bandwidth:320000, memoryInfo.strMemoryType:GDDR5\r\n",
          ">> AMD_Display_Library_Init - END OK.\r\n"})
        EXPECT_TRUE(Contains(log, line)) << line << "\n" << log;
}

TEST_F(WindowsFakes, AdlTheExampleLevelsRead) {
    fakes::WriteTextFile(adlScript, "gpu0.levels=30000,15000,900;30000,120000,1100\n");
    AdlBackend adl;
    ASSERT_TRUE(adl.Init({kFakes + "/atiadlxx.dll"}));
    EXPECT_EQ(adl.NumPerfLevels(0), 2);
    std::vector<PerfLevel> levels;
    ASSERT_TRUE(adl.PerfLevels(0, false, &levels));
    ASSERT_EQ(levels.size(), 2u);
    EXPECT_FLOAT_EQ(levels[1].coreMHz, 300.0f);
    EXPECT_FLOAT_EQ(levels[1].memoryMHz, 1200.0f);
    EXPECT_FLOAT_EQ(levels[1].voltage, 1.1f);
    ASSERT_TRUE(adl.PerfLevels(0, true, &levels));
    adl.Shutdown();
    gAdlLog.Disable();
    std::string log = fakes::ReadTextFile(adlLog);
    EXPECT_TRUE(Contains(log, ">> AMD_Display_Library_ReadPerfLevels( AMD Radeon R9 290X ) - CURRENT\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> AMD_Display_Library_ReadPerfLevels( AMD Radeon R9 290X ) - DEFAULT\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> --> gpu clock=300.0MHz - mem clock=1200.0MHz - vddc=1.100V\r\n")) << log;
}

TEST_F(WindowsFakes, AdlSensorsAndTheirFailures) {
    fakes::WriteTextFile(adlScript, "gpu0.temp=71500\ngpu0.fan=52\ngpu0.activity=88\n");
    AdlBackend adl;
    ASSERT_TRUE(adl.Init({kFakes + "/atiadlxx.dll"}));
    TemperatureReading t;
    ASSERT_TRUE(adl.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 71.5f);
    int fan = 0, rpm = 1;
    ASSERT_TRUE(adl.Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 52);
    EXPECT_EQ(rpm, 0);
    int load = 0, mem = 0;
    ASSERT_TRUE(adl.Usage(0, &load, &mem));
    EXPECT_EQ(load, 88);
    ClockReading c;
    ASSERT_TRUE(adl.Clocks(0, &c));
    EXPECT_FLOAT_EQ(c.coreMHz, 1000.0f);
    EXPECT_FLOAT_EQ(c.memoryMHz, 1250.0f);
    EXPECT_FLOAT_EQ(c.voltage, 1.15f);
    fakes::WriteTextFile(adlScript, "gpu0.temp=999999999\nfail=ADL_Overdrive5_CurrentActivity_Get\n# changed\n");
    t.celsius = 5.0f;
    EXPECT_FALSE(adl.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 5.0f);
    EXPECT_FALSE(adl.Clocks(0, &c));
    EXPECT_EQ(events.lines().size(), 2u);
}

TEST_F(WindowsFakes, AdlWithAMissingEntryPointIsNotUsed) {
    AdlBackend adl;
    EXPECT_FALSE(adl.Init({kFakes + "/broken/atiadlxx.dll"}));
    EXPECT_EQ(adl.count(), 0);
    gAdlLog.Disable();
    std::string log = fakes::ReadTextFile(adlLog);
    EXPECT_TRUE(Contains(log, ">> AMD_Display_Library_Init - missing entry point ADL_Overdrive6_PowerControl_Set\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> AMD_Display_Library_Init - function pointers error.\r\n")) << log;
    EXPECT_TRUE(Contains(log, ">> AMD_Display_Library_Init - END ERROR.\r\n")) << log;
}

TEST_F(WindowsFakes, AdlFallsBackToTheSecondLibraryName) {
    AdlBackend adl;
    ASSERT_TRUE(adl.Init({kFakes + "/no-such-atiadlxx.dll", kFakes + "/atiadlxx.dll"}));
    EXPECT_EQ(adl.count(), 1);
}

#endif  // _WIN32

}  // namespace
}  // namespace ProbeGPU
