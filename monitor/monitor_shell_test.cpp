// The start-up report, the monitor thread and the read side, driven by the
// test doubles: the fake sysfs tree and fake NVML on Linux, the fake NVAPI
// and ADL libraries under Wine.
#include "monitor/monitor_shell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/blocks.h"
#include "monitor/fakes/fake_sysfs.h"
#include "monitor/fakes/test_env.h"
#include "monitor/gpu_listing.h"
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"

namespace monitor {
namespace {

ProbeGPUnm::GlCaps gCaps;

bool ScriptedContext(int, int, int, int, int, int, int, ProbeGPUnm::GlCaps* caps) {
    *caps = gCaps;
    return true;
}

ProbeGPUnm::GlCaps Caps(const char* vendor, const char* renderer, const char* version) {
    ProbeGPUnm::GlCaps c;
    c.valid = true;
    c.vendor = vendor;
    c.renderer = renderer;
    c.version = version;
    ProbeGPUnm::ParseGlVersion(version, &c.major, &c.minor);
    c.maxTextureSize = 16384;
    c.maxViewportWidth = 16384;
    c.maxViewportHeight = 16384;
    c.maxTessLevel = 64.0f;
    return c;
}

class Shell : public ::testing::Test {
protected:
    void SetUp() override {
        StopMonitorThread();
        FreeSensorArray();
        MonitorShutdown();
        ProbeGPU::ResetComplaints();
        ProbeGPU::SetContextFactoryForTests(&ScriptedContext);
        gCaps = Caps("Mesa", "llvmpipe (LLVM 15.0.6, 256 bits)", "4.5 (Compatibility Profile) Mesa 22.3.6");
        // The library logs go to this test's files, not the build folder.
        ProbeGPU::gProbeLog.Enable(fakes::TempPath("z") + ".log");
        ProbeGPU::gAdlLog.Enable(fakes::TempPath("adl") + ".log");
    }
    void TearDown() override {
        StopMonitorThread();
        FreeSensorArray();
        MonitorShutdown();
        ProbeGPU::SetContextFactoryForTests(nullptr);
        ProbeGPU::SetDisplayEnumeratorForTests(nullptr);
    }
    // The report's lines from the first "Main graphics card" line on,
    // without the per-machine CPU and OS lines.
    std::vector<std::string> Report() {
        std::vector<std::string> out;
        for (const std::string& l : events.lines())
            if (l.rfind("CPU", 0) != 0 && l.rfind("OS: ", 0) != 0 && l.rfind("System memory: ", 0) != 0) out.push_back(l);
        return out;
    }
    CapturedEvents events;
    fakes::FakeSysfs tree;
    std::string nvmlScript = fakes::TempPath("fake-nvml");
    fakes::ScopedEnv nvmlScriptEnv{"ARDENTIUM_FAKE_NVML_SCRIPT", nvmlScript};
    fakes::ScopedEnv nvmlLibrary{ProbeGPU::NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.so"};
    std::string nvapiScript = fakes::TempPath("fake-nvapi");
    fakes::ScopedEnv nvapiScriptEnv{"ARDENTIUM_FAKE_NVAPI_SCRIPT", nvapiScript};
    fakes::ScopedEnv nvapiLibrary{ProbeGPU::NvapiBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.dll"};
    std::string adlScript = fakes::TempPath("fake-adl");
    fakes::ScopedEnv adlScriptEnv{"ARDENTIUM_FAKE_ADL_SCRIPT", adlScript};
    fakes::ScopedEnv adlLibrary{ProbeGPU::AdlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.dll"};
};

TEST_F(Shell, TheReadSideHasDefaultsBeforeStartUp) {
    EXPECT_EQ(SensorArray(), nullptr);
    EXPECT_EQ(SensorGpuCount(), 0);
    GpuSensorSnapshot s;
    EXPECT_FALSE(ReadGpuSensors(0, &s));
    EXPECT_FALSE(GpuTemperatureSourcePresent());
    EXPECT_FLOAT_EQ(FirstGpuTemperature(), 0.0f);
    EXPECT_EQ(AdapterText(), "Unknown");
    EXPECT_EQ(RendererText(), "Unknown");
    EXPECT_EQ(DriverText(), "unknown");
    EXPECT_FLOAT_EQ(ScoreGpuClockMHz(), 0.0f);
    EXPECT_FALSE(GpuPhysXAvailable());
    EXPECT_FALSE(StartMonitorThread(1000));  // nothing to refresh yet
    EXPECT_TRUE(StopMonitorThread());
}

TEST_F(Shell, AMachineWithoutSensorsRunsWithout) {
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    ASSERT_TRUE(GraphicsDriversFound());
    WriteStartupReport();
    std::vector<std::string> r = Report();
    ASSERT_EQ(r.size(), 10u) << ::testing::PrintToString(events.lines());
#if defined(_WIN32)
    // Wine's own adapter: a PCI identity of zeros and no sensor interface.
    EXPECT_EQ(r[0], "Main graphics card device ID: 0000-0000");
    EXPECT_EQ(r[9], "- GPU 1: Wine Adapter");
#else
    EXPECT_EQ(r[0], "Main graphics card device ID: FFFF-FFFF");
    EXPECT_EQ(r[9], "- GPU 1: llvmpipe (LLVM 15.0.6, 256 bits)");
    // The software renderer's vendor, the kernel release, the OpenGL version.
    EXPECT_EQ(r[6].rfind("Main graphics drivers: Mesa (", 0), 0u) << r[6];
    EXPECT_NE(r[6].find(") - GL:4.5 (Compatibility Profile) Mesa 22.3.6"), std::string::npos) << r[6];
#endif
    EXPECT_EQ(r[1], "Main OpenGL graphics card: llvmpipe (LLVM 15.0.6, 256 bits)");
    EXPECT_EQ(r[2], "OpenGL: version 4.5 detected.");
    EXPECT_EQ(r[3], "Max texture size supported (OpenGL): 16384x16384");
    EXPECT_EQ(r[4], "Max viewport size: 16384 px");
    EXPECT_EQ(r[5], "Max tessellation level: 64.0");
    EXPECT_EQ(r[6].rfind("Main graphics drivers: ", 0), 0u);
    EXPECT_EQ(r[7], "Detecting GPUs...");
    EXPECT_EQ(r[8], "Found 1 GPU(s).");
    ASSERT_EQ(SensorGpuCount(), 1);
    EXPECT_FALSE(GpuTemperatureSourcePresent());
    EXPECT_FALSE(NvidiaBoardPresent());
    ASSERT_TRUE(StartMonitorThread(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(StopMonitorThread());
    EXPECT_FALSE(GpuTemperatureSourcePresent());
    EXPECT_FLOAT_EQ(FirstGpuTemperature(), 0.0f);
    FreeSensorArray();
    EXPECT_EQ(SensorArray(), nullptr);
}

#if !defined(_WIN32)

class TwoFakeGpus : public Shell {
protected:
    void SetUp() override {
        Shell::SetUp();
        fakes::FakeCard amd;
        amd.card = 0;
        amd.device = 0x73A5;
        amd.subsystemVendor = 0x1F96;
        amd.subsystemDevice = 0x0401;
        amd.pciSlot = "0000:03:00.0";
        amd.bootVga = true;
        tree.AddCard(amd);
        tree.FillAmdgpu(0, 52, 80);
        fakes::FakeCard nv;
        nv.card = 1;
        nv.vendor = 0x10DE;
        nv.device = 0x2684;
        nv.driver = "nvidia";
        nv.pciSlot = "0000:41:00.0";
        nv.hwmon = false;
        tree.AddCard(nv);
        fakes::WriteTextFile(nvmlScript, "gpus=1\ngpu0.bus=00000000:41:00.0\ngpu0.temp=60\ngpu0.temp_step=1\ngpu0.util=99\n");
        gCaps = Caps("AMD", "AMD Radeon RX 6950 XT (navi21, LLVM 15.0.7, DRM 3.49, 6.1.0)", "4.6 (Compatibility Profile) Mesa 23.1.2");
    }
    fakes::ScopedEnv fakeNvml{ProbeGPU::NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/libnvidia-ml.so.1"};
};

TEST_F(TwoFakeGpus, TheReportListsEveryLineTheDoublesProvide) {
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    ASSERT_TRUE(GraphicsDriversFound());
    WriteStartupReport();
    std::vector<std::string> r = Report();
    ASSERT_GE(r.size(), 10u) << ::testing::PrintToString(events.lines());
    EXPECT_EQ(r[0], "Main graphics card device ID: 1002-73A5");
    EXPECT_EQ(r[1], "Main OpenGL graphics card: AMD Radeon RX 6950 XT (navi21, LLVM 15.0.7, DRM 3.49, 6.1.0)");
    EXPECT_EQ(r[2], "OpenGL: version 4.6 detected.");
    EXPECT_EQ(r[6].rfind("Main graphics drivers: amdgpu (", 0), 0u) << r[6];
    const std::vector<std::string> gpus(r.begin() + 7, r.end());
    EXPECT_EQ(gpus, (std::vector<std::string>{
                        "Detecting GPUs...",
                        "Found 2 GPU(s).",
                        "- GPU 1: AMD Radeon RX 6950 XT",
                        "  - GPU temperature: 52",
                        "  - GPU load: 80 %",
                        "  - Fan speed: 1450 RPM",
                        "  - Current values of true clock speeds: 2250 MHz (GPU) and 1000 MHz (memory)",
                        "  - Current GPU voltage (VDDC): 1.150 V",
                        "  - PState 0 - GPU clock: 2250 MHz - memory clock: 1000 MHz - GPU voltage: 1.150V",
                        "  - Graphics driver: amdgpu",
                        "  - VXA model name: VXA Ember 6800 XT Triple",
                        "- GPU 2: NVIDIA GeForce RTX 4090",
                        "  - GPU temperature: 60",
                        "  - GPU load: 99 %",
                        "  - Fan speed: 30 %",
                        "  - Current values of true clock speeds: 2520 MHz (GPU) and 10501 MHz (memory)",
                        "  - GTX 600 series - GPU base clock: 2235MHz - GPU boost clock: 2790MHz",
                        "  - GTX 600 series - GPU power target: 100.0 % TDP (450W)",
                        "  - PState 0 - GPU clock: 2520 MHz - memory clock: 10501 MHz - GPU voltage: 0.000V",
                        "  - Graphics driver: 550.54.14",
                    }))
        << ::testing::PrintToString(gpus);
    EXPECT_TRUE(NvidiaBoardPresent());
    EXPECT_TRUE(GpuTemperatureSourcePresent());
    EXPECT_EQ(SensorGpuCount(), 2);
    // Readings are there before the monitor thread's first period.
    GpuSensorSnapshot amd;
    ASSERT_TRUE(ReadGpuSensors(0, &amd));
    EXPECT_FLOAT_EQ(amd.temperature, 52.0f);
    EXPECT_EQ(amd.name, "AMD Radeon RX 6950 XT");
    EXPECT_EQ(amd.pci_vendor_id, 0x1002);
    EXPECT_FLOAT_EQ(FirstGpuTemperature(), 52.0f);
    EXPECT_EQ(AdapterText(), "AMD Radeon RX 6950 XT");
    EXPECT_EQ(RendererText(), "AMD Radeon RX 6950 XT (navi21, LLVM 15.0.7, DRM 3.49, 6.1.0)");
}

TEST_F(TwoFakeGpus, TheMonitorThreadFollowsRisingTemperatures) {
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    WriteStartupReport();
    ASSERT_TRUE(StartMonitorThread(20));
    EXPECT_FALSE(StartMonitorThread(20));  // one thread only
    EXPECT_EQ(MonitorPeriodMs(), 20u);
    for (int celsius = 53; celsius <= 56; ++celsius) {
        tree.WriteHwmon(0, "temp1_input", std::to_string(celsius * 1000) + "\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(80));
    }
    GpuSensorSnapshot amd, nv;
    ASSERT_TRUE(ReadGpuSensors(0, &amd));
    ASSERT_TRUE(ReadGpuSensors(1, &nv));
    EXPECT_FLOAT_EQ(amd.temperature, 56.0f);
    EXPECT_FLOAT_EQ(FirstGpuTemperature(), 56.0f);
    EXPECT_GT(nv.temperature, 61.0f);  // the fake NVML adds a degree per read
    EXPECT_FLOAT_EQ(nv.highest_temperature, nv.temperature);
    EXPECT_EQ(amd.power_percent, 50);
    EXPECT_FLOAT_EQ(amd.core_clock, 2250.0f);
    EXPECT_FLOAT_EQ(amd.fill_rate[0], 128 * 2250 * 0.001f);
    EXPECT_FLOAT_EQ(nv.clock_bound, 2790.0f);
    EXPECT_FLOAT_EQ(ScoreGpuClockMHz(), 2250.0f);
    EXPECT_FLOAT_EQ(ScoreMemoryClockMHz(), 1000.0f);

    // A reading turns to garbage: the old value stays, one message comes.
    tree.WriteHwmon(0, "temp1_input", "garbage\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(80));
    ASSERT_TRUE(ReadGpuSensors(0, &amd));
    EXPECT_FLOAT_EQ(amd.temperature, 56.0f);

    auto t0 = std::chrono::steady_clock::now();
    EXPECT_TRUE(StopMonitorThread());
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(40));
    FreeSensorArray();
    MonitorShutdown();
    EXPECT_EQ(SensorArray(), nullptr);
    int garbage = 0;
    for (const std::string& l : events.lines())
        if (l.find("temp1_input reads \"garbage?\"") != std::string::npos) ++garbage;
    EXPECT_EQ(garbage, 1);
}

TEST_F(TwoFakeGpus, ATickCallbackRunsAfterEachRefresh) {
    static std::atomic<int> ticks{0};
    ticks = 0;
    SetMonitorTickCallback([] { ++ticks; });
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    WriteStartupReport();
    ASSERT_TRUE(StartMonitorThread(10));
    // Three refreshes of 10 ms; a loaded machine (or a sanitizer build) may
    // take far longer, so wait for them rather than for a fixed time.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ticks.load() < 3 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    StopMonitorThread();
    SetMonitorTickCallback(nullptr);
    EXPECT_GE(ticks.load(), 3);
    FreeSensorArray();
    MonitorShutdown();
}

TEST_F(TwoFakeGpus, AFailingNvmlLeavesTheOtherGpuAlone) {
    fakes::WriteTextFile(nvmlScript, "gpus=1\ngpu0.bus=00000000:41:00.0\nfail=nvmlDeviceGetTemperature,nvmlDeviceGetUtilizationRates,"
                                     "nvmlDeviceGetClockInfo,nvmlDeviceGetFanSpeed\n");
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    WriteStartupReport();
    std::vector<std::string> r = Report();
    auto at = std::find(r.begin(), r.end(), "- GPU 2: NVIDIA GeForce RTX 4090");
    ASSERT_NE(at, r.end());
    ++at;
    // No temperature, load, fan or clock lines for GPU 2.
    ASSERT_NE(at, r.end());
    EXPECT_EQ(at->rfind("  - GTX 600 series - GPU base clock", 0), 0u) << *at;
    EXPECT_TRUE(GpuTemperatureSourcePresent());  // GPU 1 has one
}

// The listing a user runs on a real machine goes through the same library:
// NVML's board and the amdgpu board, each with its readings.
TEST_F(TwoFakeGpus, TheListingReadsEveryInterface) {
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    const std::string text = GpuListing();
    EXPECT_EQ(text.rfind("GPUs: 2\nGPU 1: AMD Radeon RX 6950 XT\n", 0), 0u) << text;
    EXPECT_NE(text.find("  Sensor interface: sysfs\n  Temperature: 52.0 C\n"), std::string::npos) << text;
    const size_t nv = text.find("GPU 2: NVIDIA GeForce RTX 4090\n");
    ASSERT_NE(nv, std::string::npos) << text;
    EXPECT_NE(text.find("  PCI ID: 10DE:2684\n", nv), std::string::npos) << text;
    EXPECT_NE(text.find("  Sensor interface: NVML\n  Temperature: 6", nv), std::string::npos) << text;
    EXPECT_NE(text.find("  GPU load: 99 %\n", nv), std::string::npos) << text;
}

#else  // _WIN32

struct Device {
    const char* name;
    const char* text;
    const char* id;
};
std::vector<Device> gDevices;

bool Enumerate(int i, ProbeGPU::DisplayDeviceRecord* d) {
    if (i >= static_cast<int>(gDevices.size())) return false;
    *d = ProbeGPU::DisplayDeviceRecord{gDevices[i].name, gDevices[i].text, gDevices[i].id, ""};
    return true;
}

TEST_F(Shell, NvidiaUnderWineThroughTheFakeNvapi) {
    gDevices = {{"\\\\.\\DISPLAY1", "NVIDIA GeForce GTX 980", "PCI\\VEN_10DE&DEV_13C0&SUBSYS_01041F96&REV_A1"},
                {"\\\\.\\DISPLAY2", "NVIDIA GeForce GTX 980", "PCI\\VEN_10DE&DEV_13C0&SUBSYS_01041F96&REV_A1"}};
    ProbeGPU::SetDisplayEnumeratorForTests(&Enumerate);
    fakes::WriteTextFile(nvapiScript, "gpus=1\ngpu0.subsystem=0x01041F96\ngpu0.temp=61\ngpu0.temp_step=1\n");
    fakes::ScopedEnv nvapi{ProbeGPU::NvapiBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/nvapi64.dll"};
    gCaps = Caps("NVIDIA Corporation", "GeForce GTX 980/PCIe/SSE2", "4.5.0 NVIDIA 353.30");
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_STREQ(ProbeGPU::getDriverDescription(), "Forceware 353.30 (r352_00) - GL:4.5.0 NVIDIA 353.30");
    EXPECT_EQ(ProbeGPU::getVideoMemoryMB(), 4096);
    EXPECT_EQ(ProbeGPU::getShaderCoreCount(), 2048);
    WriteStartupReport();
    std::vector<std::string> r = Report();
    std::vector<std::string> gpus(r.begin() + 7, r.end());
    EXPECT_EQ(r[0], "Main graphics card device ID: 10DE-13C0");
    EXPECT_EQ(gpus, (std::vector<std::string>{
                        "Detecting GPUs...",
                        "Found 1 GPU(s).",
                        "- GPU 1: GeForce GTX 980",
                        "  - GPU temperature: 61",
                        "  - GPU load: 97 %",
                        "  - Fan speed: 1650 RPM",
                        "  - Current values of true clock speeds: 1215 MHz (GPU) and 3505 MHz (memory)",
                        "  - GTX 600 series - GPU base clock: 1126MHz - GPU boost clock: 1216MHz",
                        "  - GTX 600 series - GPU power target: 100.0 % TDP (165W)",
                        "  - Current GPU voltage (VDDC): 1.187 V",
                        "  - PState 0 - GPU clock: 1215 MHz - memory clock: 3505 MHz - GPU voltage: 1.187V",
                        "  - Graphics driver: R353.30",
                        "  - VXA model name: VXA Ardent 980 Triple",
                    }))
        << ::testing::PrintToString(gpus);
    ASSERT_TRUE(StartMonitorThread(20));
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    EXPECT_TRUE(StopMonitorThread());
    GpuSensorSnapshot s;
    ASSERT_TRUE(ReadGpuSensors(0, &s));
    EXPECT_GT(s.temperature, 62.0f);
    EXPECT_EQ(s.power_percent, 87);
    EXPECT_NEAR(s.second_voltage, 1.187f, 1e-6);
    EXPECT_TRUE(GpuTemperatureSourcePresent());
}

TEST_F(Shell, TheListingReadsTheFakeNvapiUnderWine) {
    gDevices = {{"\\\\.\\DISPLAY1", "NVIDIA GeForce GTX 980", "PCI\\VEN_10DE&DEV_13C0&SUBSYS_01041F96&REV_A1"}};
    ProbeGPU::SetDisplayEnumeratorForTests(&Enumerate);
    fakes::WriteTextFile(nvapiScript, "gpus=1\ngpu0.subsystem=0x01041F96\ngpu0.temp=61\n");
    fakes::ScopedEnv nvapi{ProbeGPU::NvapiBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/nvapi64.dll"};
    gCaps = Caps("NVIDIA Corporation", "GeForce GTX 980/PCIe/SSE2", "4.5.0 NVIDIA 353.30");
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    const std::string text = GpuListing();
    EXPECT_EQ(text.rfind("GPUs: 1\nGPU 1: ", 0), 0u) << text;
    EXPECT_NE(text.find("  PCI ID: 10DE:13C0\n  Subsystem ID: 1F96:0104\n  Code name: GM204\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  Sensor interface: NVAPI\n  Temperature: 61.0 C\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  GPU load: 97 %\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  Fan: 1650 RPM\n"), std::string::npos) << text;
}

TEST_F(Shell, AmdUnderWineThroughTheFakeAdl) {
    gDevices = {{"\\\\.\\DISPLAY1", "AMD Radeon R9 200 Series", "PCI\\VEN_1002&DEV_67B0&SUBSYS_30801462&REV_00"}};
    ProbeGPU::SetDisplayEnumeratorForTests(&Enumerate);
    fakes::WriteTextFile(adlScript, "gpu0.levels=30000,15000,900;30000,120000,1100\ngpu0.temp=66000\n");
    fakes::ScopedEnv adl{ProbeGPU::AdlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/atiadlxx.dll"};
    gCaps = Caps("ATI Technologies Inc.", "AMD Radeon R9 200 Series", "4.5.13399 Compatibility Profile Context 15.200.1046.0");
    ASSERT_TRUE(MonitorStartup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_STREQ(ProbeGPU::getGpuName(), "AMD Radeon R9 200 Series");  // the shared row defers to the driver's text
    EXPECT_STREQ(ProbeGPU::getCodeName(), "Hawaii/Grenada(GCN1.1)");
    WriteStartupReport();
    std::vector<std::string> r = Report();
    std::vector<std::string> gpus(r.begin() + 7, r.end());
    EXPECT_EQ(gpus, (std::vector<std::string>{
                        "Detecting GPUs...",
                        "Found 1 GPU(s).",
                        "- GPU 1: AMD Radeon R9 290X",
                        "  - GPU temperature: 66",
                        "  - GPU load: 99 %",
                        "  - Fan speed: 47 %",
                        "  - Current values of true clock speeds: 1000 MHz (GPU) and 1250 MHz (memory)",
                        "  - PState 0 - GPU clock: 300 MHz - memory clock: 150 MHz - GPU voltage: 0.900V",
                        "  - PState 1 - GPU clock: 300 MHz - memory clock: 1200 MHz - GPU voltage: 1.100V",
                    }))
        << ::testing::PrintToString(gpus);
    ASSERT_TRUE(StartMonitorThread(20));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_TRUE(StopMonitorThread());
    GpuSensorSnapshot s;
    ASSERT_TRUE(ReadGpuSensors(0, &s));
    EXPECT_FLOAT_EQ(s.core_clock, 300.0f);
    EXPECT_FLOAT_EQ(s.memory_clock, 1200.0f);
    EXPECT_FLOAT_EQ(s.core_voltage, 1.1f);
}

#endif

std::unique_ptr<BlockSource> GpuzBlocks(std::vector<std::vector<unsigned char>> script) {
    return std::unique_ptr<BlockSource>(new fakes::MemoryBlockSource(std::move(script)));
}

// What GPU-Z publishes reaches GPU 1's shown values; its temperature only
// when nothing else reads GPU 1.
TEST(GpuzMerge, ClocksAndVoltageOverrideTheInterfaceTemperatureOnlyWithoutOne) {
    GpuSensorArray a(2);
    a[0].core_clock.store(800.0f);
    a[0].core_voltage.store(0.9f);
    a[0].temperature.store(45.0f);
    a[0].has_temperature.store(true);
    GpuzBridge gpuz(GpuzBlocks({fakes::MakeGpuzBlock({{"GPU Core Clock", "MHz", 1500.0},
                                                       {"GPU Memory Clock", "MHz", 2000.0},
                                                       {"GPU Temperature", "C", 71.0},
                                                       {"VDDC", "V", 1.05}})}));
    ASSERT_TRUE(MergeGpuzReadings(gpuz, &a, true));
    GpuSensorSnapshot s = a.Snapshot(0);
    EXPECT_FLOAT_EQ(s.shown_core_clock(), 1500.0f);
    EXPECT_FLOAT_EQ(s.shown_memory_clock(), 2000.0f);
    EXPECT_FLOAT_EQ(s.shown_voltage(), 1.05f);
    EXPECT_FLOAT_EQ(s.temperature, 45.0f);  // GPU 1's own interface wins
    EXPECT_FLOAT_EQ(a.Snapshot(1).shown_core_clock(), 0.0f);

    GpuSensorArray bare(1);
    ASSERT_TRUE(MergeGpuzReadings(gpuz, &bare, false));
    s = bare.Snapshot(0);
    EXPECT_TRUE(s.has_temperature);
    EXPECT_FLOAT_EQ(s.temperature, 71.0f);
    EXPECT_FLOAT_EQ(s.highest_temperature, 71.0f);
}

TEST(GpuzMerge, NoBlockOrNonsenseChangesNothing) {
    GpuSensorArray a(1);
    GpuzBridge absent(GpuzBlocks({}));
    EXPECT_FALSE(MergeGpuzReadings(absent, &a, false));
    GpuzBridge wild(GpuzBlocks({fakes::MakeGpuzBlock({{"GPU Core Clock", "MHz", 1e9},
                                                       {"GPU Temperature", "C", -300.0},
                                                       {"VDDC", "V", -1.0}})}));
    EXPECT_FALSE(MergeGpuzReadings(wild, &a, false));
    GpuSensorSnapshot s = a.Snapshot(0);
    EXPECT_FLOAT_EQ(s.shown_core_clock(), 0.0f);
    EXPECT_FALSE(s.has_temperature);
    EXPECT_FALSE(MergeGpuzReadings(wild, nullptr, false));
}

TEST(GpuzMerge, TheSwitchIsOffUntilSetAndSaysSoWhenOn) {
    CapturedEvents events;
    EnableGpuzBridge(false);
    EXPECT_FALSE(GpuzBridgeEnabled());
    EnableGpuzBridge(true);
    EXPECT_TRUE(GpuzBridgeEnabled());
    EnableGpuzBridge(false);
    EXPECT_NE(std::find(events.lines().begin(), events.lines().end(), "GPU-Z bridge: on; GPU-Z's readings are used while it runs."),
              events.lines().end());
}

TEST(AmdDriverText, ComposedFromItsParts) {
    EXPECT_EQ(AmdDriverText("15.7", "15.200.1046.0-150622a-186024C", "6-22-2015"),
              "Catalyst 15.7 - 15.200.1046.0-150622a-186024C (6-22-2015)");
    EXPECT_EQ(AmdDriverText("15.7", "", "6-22-2015"), "Catalyst 15.7 (6-22-2015)");
}

}  // namespace
}  // namespace monitor
