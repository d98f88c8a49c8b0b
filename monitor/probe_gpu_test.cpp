// The library's start-up, scan and accessors, with a scripted OpenGL
// context and (on Linux) the fake sysfs tree and fake NVML.
#include "monitor/probe_gpu.h"

#include <gtest/gtest.h>

#include <string>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/fake_sysfs.h"
#include "monitor/fakes/test_env.h"
#include "monitor/probe_log.h"
#include "platform/platform.h"

namespace ProbeGPU {
namespace {

// The scripted context: what the next start-up's driver reports.
ProbeGPUnm::GlCaps gNextCaps;
bool gContextFails = false;
int gContextsMade = 0;

bool ScriptedContext(int, int, int, int, int, int, int, ProbeGPUnm::GlCaps* caps) {
    ++gContextsMade;
    if (gContextFails) return false;
    *caps = gNextCaps;
    return true;
}

ProbeGPUnm::GlCaps Caps(const std::string& vendor, const std::string& renderer, const std::string& version) {
    ProbeGPUnm::GlCaps c;
    c.valid = true;
    c.vendor = vendor;
    c.renderer = renderer;
    c.version = version;
    ProbeGPUnm::ParseGlVersion(version.c_str(), &c.major, &c.minor);
    c.maxTextureSize = 16384;
    c.maxViewportWidth = 16384;
    c.maxViewportHeight = 16384;
    c.maxTessLevel = 64.0f;
    c.caps[ProbeGPUnm::kCapTessellation] = c.major >= 4;
    c.caps[ProbeGPUnm::kCapComputeShader] = c.major * 10 + c.minor >= 43;
    return c;
}

class ProbeGpu : public ::testing::Test {
protected:
    void SetUp() override {
        shutdown();
        ResetComplaints();
        SetContextFactoryForTests(&ScriptedContext);
        gContextFails = false;
        gContextsMade = 0;
        gNextCaps = Caps("Mesa", "llvmpipe (LLVM 15.0.6, 256 bits)", "4.5 (Compatibility Profile) Mesa 22.3.6");
        gProbeLog.Enable(logPath);
    }
    void TearDown() override {
        shutdown();
        SetContextFactoryForTests(nullptr);
        gProbeLog.Disable();
    }
    std::string Log() {
        gProbeLog.Disable();
        return fakes::ReadTextFile(logPath);
    }
    std::string logPath = fakes::TempPath("probegpu") + ".log";
    monitor::CapturedEvents events;
    fakes::FakeSysfs tree;  // an empty /sys unless a test adds cards
    std::string nvmlScript = fakes::TempPath("fake-nvml");
    fakes::ScopedEnv nvmlScriptEnv{"ARDENTIUM_FAKE_NVML_SCRIPT", nvmlScript};
    fakes::ScopedEnv nvmlLibrary{NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.so"};
    fakes::ScopedEnv nvapiLibrary{NvapiBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.dll"};
    fakes::ScopedEnv adlLibrary{AdlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/not-here.dll"};
};

TEST_F(ProbeGpu, AccessorsHaveTheirDefaultsBeforeStartUp) {
    EXPECT_FALSE(isDisplayDeviceFound());
    EXPECT_FALSE(isStarted());
    EXPECT_EQ(getPciVendorId(), -1);
    EXPECT_EQ(getPciDeviceId(), -1);
    EXPECT_EQ(getGpuCount(), 1);
    EXPECT_STREQ(getGpuName(), "Unknown");
    EXPECT_STREQ(getDriverDescription(), "unknown");
    EXPECT_STREQ(getCodeName(), "n.a.");
    EXPECT_EQ(getGpu(0), nullptr);
    float t = 0;
    EXPECT_FALSE(readTemperature(0, &t, nullptr, nullptr, nullptr));
}

TEST_F(ProbeGpu, AFailedContextStopsStartUp) {
    gContextFails = true;
    EXPECT_FALSE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_FALSE(isStarted());
    std::string log = Log();
    EXPECT_NE(log.find(">> ProbeGPU::startup() - ProbeGPU_DummyW"), std::string::npos);
    EXPECT_EQ(log.find("ProbeGPU_DummyW OK."), std::string::npos);
}

TEST_F(ProbeGpu, ASecondStartUpReturnsAtOnce) {
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_EQ(gContextsMade, 1);
}

TEST_F(ProbeGpu, StartUpLogsItsStepsAndScanCheckpoints) {
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    std::string log = Log();
    std::vector<std::string> expected = {
        "HardwareCaps::init() - START", "HardwareCaps::init() - _queryCPUInfo()", "HardwareCaps::init() - _queryCPUInfo() OK.",
        "HardwareCaps::init() - END OK.", "ProbeGPU::startup() - ProbeGPU_DummyW", "ProbeGPU::startup() - ProbeGPU_DummyW OK.",
        "ProbeGPU::startup() - PhysX info", "ProbeGPU::startup() - PhysX info OK.", "ProbeGPU::startup() - scanGraphicsHardware()",
        "ProbeGPU::scanGraphicsHardware() - START", "ProbeGPU::scanGraphicsHardware() - 01",
        "ProbeGPU::scanGraphicsHardware() - gGlobals.gpu_db_index: -1", "ProbeGPU::scanGraphicsHardware() - 07",
        "ProbeGPU::scanGraphicsHardware() - 13", "ProbeGPU::scanGraphicsHardware() - END",
        "ProbeGPU::startup() - scanGraphicsHardware() OK.", "ProbeGPU::startup() OK."};
    size_t pos = 0;
    for (const std::string& e : expected) {
        size_t p = log.find(">> " + e + platform::TextNewline(), pos);
        ASSERT_NE(p, std::string::npos) << e << "\n" << log;
        pos = p;
    }
}

#if !defined(_WIN32)

TEST_F(ProbeGpu, WithoutAnyPciDisplayTheRendererIsTheDevice) {
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_TRUE(isDisplayDeviceFound());
    EXPECT_TRUE(isStarted());
    EXPECT_EQ(getPciVendorId(), -1);
    EXPECT_STREQ(getGpuName(), "llvmpipe (LLVM 15.0.6, 256 bits)");
    EXPECT_STREQ(getCodeName(), "n.a.");
    EXPECT_EQ(gGlobals.gpu_db_index, -1);
    EXPECT_EQ(gGlobals.unified_shaders, 0);
    EXPECT_EQ(getGpuCount(), 1);
    EXPECT_STREQ(getGlRenderer(), "llvmpipe (LLVM 15.0.6, 256 bits)");
    EXPECT_EQ(getGlMajorVersion(), 4);
    EXPECT_STREQ(gGlobals.gl_version_text, "4.5 (Compatibility Profile) Mesa 22.3.6");
    EXPECT_TRUE(gGlobals.dual_capability);
    // No sensor interface: the one GPU reads nothing.
    const GpuSlot* s = getGpu(0);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->backend, nullptr);
    float t = 0;
    EXPECT_FALSE(readTemperature(0, &t, nullptr, nullptr, nullptr));
    EXPECT_GT(std::string(getOsName()).size(), 0u);
    EXPECT_GT(getCpuCores(), 0);
}

TEST_F(ProbeGpu, TwoFakeGpusFromSysfsAndNvml) {
    fakes::FakeCard amd;
    amd.card = 0;
    amd.pciSlot = "0000:03:00.0";
    amd.device = 0x73A5;
    amd.subsystemVendor = 0x1F96;
    amd.subsystemDevice = 0x0401;
    amd.bootVga = true;
    tree.AddCard(amd);
    tree.FillAmdgpu(0, 52, 80);
    fakes::FakeCard nv;
    nv.card = 1;
    nv.vendor = 0x10DE;
    nv.device = 0x2684;
    nv.subsystemVendor = 0x10DE;
    nv.subsystemDevice = 0x167C;
    nv.driver = "nvidia";
    nv.pciSlot = "0000:41:00.0";
    nv.hwmon = false;
    tree.AddCard(nv);
    fakes::WriteTextFile(nvmlScript, "gpus=1\ngpu0.bus=00000000:41:00.0\ngpu0.temp=64\n");
    fakes::ScopedEnv lib{NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/libnvidia-ml.so.1"};
    gNextCaps = Caps("AMD", "AMD Radeon RX 6950 XT (navi21, LLVM 15.0.7, DRM 3.49, 6.1.0)", "4.6 (Compatibility Profile) Mesa 23.1");

    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_EQ(getPciVendorId(), 0x1002);
    EXPECT_EQ(getPciDeviceId(), 0x73A5);
    EXPECT_STREQ(getGpuName(), "AMD Radeon RX 6950 XT");
    EXPECT_STREQ(getCodeName(), "Navi 21");
    EXPECT_EQ(getD3DLevel(), 122);
    EXPECT_EQ(getShaderCoreCount(), 5120);
    EXPECT_EQ(getGpuCount(), 2);
    EXPECT_EQ(getVendorApiGpuCount(), 1);  // one amdgpu device
    EXPECT_EQ(getVideoMemoryMB(), 16368);
    const HardwareCaps* caps = getHardwareCaps();
    ASSERT_NE(caps, nullptr);
    EXPECT_EQ(caps->adapters.count(), 2);
    EXPECT_STREQ(caps->m_display_device_id_string, "PCI\\VEN_1002&DEV_73A5&SUBSYS_04011F96&REV_C1");

    const GpuSlot* g0 = getGpu(0);
    const GpuSlot* g1 = getGpu(1);
    ASSERT_NE(g0, nullptr);
    ASSERT_NE(g1, nullptr);
    EXPECT_STREQ(g0->backend->Name(), "sysfs");
    EXPECT_EQ(g0->subsystemVendor, 0x1F96);
    EXPECT_EQ(g0->subsystemDevice, 0x0401);
    EXPECT_EQ(g0->pixelUnits, 128);
    EXPECT_EQ(g0->textureUnits, 320);
    EXPECT_STREQ(g1->backend->Name(), "NVML");
    EXPECT_EQ(g1->name, "NVIDIA GeForce RTX 4090");
    float t = 0;
    int threshold = 0;
    ASSERT_TRUE(readTemperature(0, &t, &threshold, nullptr, nullptr));
    EXPECT_FLOAT_EQ(t, 52.0f);
    EXPECT_EQ(threshold, 100);
    ASSERT_TRUE(readTemperature(1, &t, nullptr, nullptr, nullptr));
    EXPECT_FLOAT_EQ(t, 64.0f);
    EXPECT_FALSE(readTemperature(2, &t, nullptr, nullptr, nullptr));
}

TEST_F(ProbeGpu, TheBootDisplayLeadsAndAServerBmcIsNoGpu) {
    fakes::FakeCard bmc;
    bmc.card = 0;
    bmc.vendor = 0x1A03;
    bmc.device = 0x2000;
    bmc.driver = "ast";
    bmc.pciSlot = "0000:02:00.0";
    bmc.hwmon = false;
    bmc.bootVga = true;
    tree.AddCard(bmc);
    fakes::FakeCard h100;
    h100.card = 1;
    h100.vendor = 0x10DE;
    h100.device = 0x2330;
    h100.driver = "nvidia";
    h100.pciSlot = "0000:18:00.0";
    h100.hwmon = false;
    tree.AddCard(h100);
    // A second GPU NVML sees that the kernel shows no display device for.
    fakes::WriteTextFile(nvmlScript,
                         "gpus=2\ngpu0.bus=00000000:18:00.0\ngpu0.device=0x2330\ngpu0.name=NVIDIA H100 80GB HBM3\n"
                         "gpu1.bus=00000000:2A:00.0\ngpu1.device=0x2330\ngpu1.name=NVIDIA H100 80GB HBM3\n");
    fakes::ScopedEnv lib{NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/libnvidia-ml.so.1"};
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_EQ(getPciVendorId(), 0x10DE);
    EXPECT_STREQ(getGpuName(), "NVIDIA H100 80GB HBM3");
    EXPECT_EQ(getGpuCount(), 2);
    EXPECT_EQ(getVendorApiGpuCount(), 2);
    EXPECT_EQ(getShaderCoreCount(), 16384);  // NVML's own count wins over the database
    EXPECT_STREQ(getGpu(1)->backend->Name(), "NVML");
    EXPECT_EQ(getHardwareCaps()->adapters.count(), 3);
    EXPECT_EQ(std::string(getDriverDescription()).rfind("Forceware 550.54.14 () - GL:", 0), 0u) << getDriverDescription();
}

// Without the vendor library (the open kernel module, nouveau) an NVIDIA
// board still has its hwmon readings; with it, NVML serves the board.
TEST_F(ProbeGpu, AnNvidiaBoardWithoutItsLibraryIsReadThroughHwmon) {
    fakes::FakeCard nv;
    nv.vendor = 0x10DE;
    nv.device = 0x2684;
    nv.driver = "nouveau";
    nv.pciSlot = "0000:01:00.0";
    nv.bootVga = true;
    tree.AddCard(nv);
    tree.FillNvidiaHwmon(0, 57);
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    const GpuSlot* g = getGpu(0);
    ASSERT_NE(g, nullptr);
    ASSERT_NE(g->backend, nullptr);
    EXPECT_STREQ(g->backend->Name(), "sysfs");
    float t = 0;
    int threshold = 0;
    ASSERT_TRUE(readTemperature(0, &t, &threshold, nullptr, nullptr));
    EXPECT_FLOAT_EQ(t, 57.0f);
    EXPECT_EQ(threshold, 105);
    int fan = 0, rpm = 0;
    ASSERT_TRUE(readFan(0, &fan, &rpm));
    EXPECT_EQ(fan, 1320);
    EXPECT_EQ(rpm, 1);
    int percent = 0, available = 0;
    ASSERT_TRUE(readPower(0, 0, &percent, &available));
    EXPECT_EQ(percent, 50);
    int load = 0, memLoad = 0;
    EXPECT_FALSE(readUsage(0, &load, &memLoad));  // nouveau has no load counter: not a 0
    EXPECT_NE(Log().find("SYSFS - GPU 0: 10DE-2684 driver nouveau"), std::string::npos);

    shutdown();
    fakes::WriteTextFile(nvmlScript, "gpus=1\ngpu0.bus=00000000:01:00.0\ngpu0.temp=64\n");
    fakes::ScopedEnv lib{NvmlBackend::kLibraryVariable, std::string(ARD_FAKES_DIR) + "/libnvidia-ml.so.1"};
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_STREQ(getGpu(0)->backend->Name(), "NVML");
    ASSERT_TRUE(readTemperature(0, &t, nullptr, nullptr, nullptr));
    EXPECT_FLOAT_EQ(t, 64.0f);
}

// The proprietary driver without its library and without hwmon: nothing
// reads the board, and the listing and HUD say so rather than show zeros.
TEST_F(ProbeGpu, ABoardWithNothingToReadHasNoInterface) {
    fakes::FakeCard nv;
    nv.vendor = 0x10DE;
    nv.device = 0x2684;
    nv.driver = "nvidia";
    nv.pciSlot = "0000:41:00.0";
    nv.hwmon = false;
    tree.AddCard(nv);
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    ASSERT_NE(getGpu(0), nullptr);
    EXPECT_EQ(getGpu(0)->backend, nullptr);
    EXPECT_EQ(getGpu(0)->driverVersion, "nvidia");
    float t = 0;
    EXPECT_FALSE(readTemperature(0, &t, nullptr, nullptr, nullptr));
}

TEST_F(ProbeGpu, Device6798IsNamedByTheRenderer) {
    fakes::FakeCard c;
    c.device = 0x6798;
    c.pciSlot = "0000:01:00.0";
    tree.AddCard(c);
    gNextCaps = Caps("AMD", "AMD Radeon HD 7900 Series (tahiti, LLVM 15.0.7, DRM 3.49)", "4.6 (Compatibility Profile) Mesa 23.1");
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_STREQ(getGpuName(), "AMD Radeon HD 7970");
    shutdown();
    gNextCaps = Caps("AMD", "AMD Radeon R9 200 Series (tahiti, LLVM 15.0.7)", "4.6 (Compatibility Profile) Mesa 23.1");
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_STREQ(getGpuName(), "AMD Radeon R9 280X");
}

TEST_F(ProbeGpu, AnUnknownDeviceIsNamedByItsAdapterDescription) {
    fakes::FakeCard c;
    c.vendor = 0x8086;
    c.device = 0x7777;
    c.driver = "xe";
    c.pciSlot = "0000:00:02.0";
    tree.AddCard(c);
    // A software renderer is not the device's name.
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_EQ(gGlobals.gpu_db_index, -1);
    EXPECT_STREQ(getGpuName(), "PCI display device 8086:7777");
    EXPECT_STREQ(getCodeName(), "n.a.");
    EXPECT_EQ(gGlobals.unified_shaders, 0);
}

#endif  // !_WIN32

TEST(ProbeGpuRules, DriverDescriptionForms) {
    DriverFacts f;
    f.vendorClass = 1;
    f.nvidiaVersion = "353.30";
    f.nvidiaBranch = "r352_00";
    f.glVersion = "4.5.0 NVIDIA 353.30";
    EXPECT_EQ(DriverDescription(f), "Forceware 353.30 (r352_00) - GL:4.5.0 NVIDIA 353.30");
    f.glVersion.clear();
    EXPECT_EQ(DriverDescription(f), "Forceware 353.30 (r352_00)");
    DriverFacts a;
    a.vendorClass = 2;
    a.amdCatalyst = "15.7";
    a.amdAdapterName = "AMD Radeon R9 200 Series";
    a.amdDriverVersion = "15.200.1046.0";
    EXPECT_EQ(DriverDescription(a), "AMD Radeon R9 200 Series - Catalyst 15.7 (15.200.1046.0)");
    a.amdDriverVersion.clear();
    EXPECT_EQ(DriverDescription(a), "Catalyst 15.7");
    DriverFacts g;
    g.vendorClass = 4;
    g.genericVersion = "31.0.101.4502";
    EXPECT_EQ(DriverDescription(g), "31.0.101.4502");
    g.genericBranch = "6-1-2023";
    EXPECT_EQ(DriverDescription(g), "31.0.101.4502 (6-1-2023)");
    g.glVersion = "4.6.0 - Build 31.0.101.4502";
    EXPECT_EQ(DriverDescription(g), "31.0.101.4502 (6-1-2023) - GL:4.6.0 - Build 31.0.101.4502");
    // A vendor without its own facts falls to the generic text, then "unknown".
    DriverFacts n;
    n.vendorClass = 1;
    EXPECT_EQ(DriverDescription(n), "unknown");
}

TEST(ProbeGpuRules, OpenGlVersionText) {
    EXPECT_EQ(GlVersionText(""), "n.a.");
    EXPECT_EQ(GlVersionText("4.5.0 NVIDIA 353.30"), "4.5.0 NVIDIA 353.30");
    EXPECT_EQ(GlVersionText("OpenGL Version 4.6.14761"), "4.6.14761");
    EXPECT_EQ(GlVersionText("Version"), "n.a.");
}

TEST(ProbeGpuRules, PhysXOnTheGpuNeedsExactlyGpu) {
    EXPECT_TRUE(IsPhysXOnGpuValue("GPU"));
    EXPECT_FALSE(IsPhysXOnGpuValue("GPU "));
    EXPECT_FALSE(IsPhysXOnGpuValue("gpu"));
    EXPECT_FALSE(IsPhysXOnGpuValue("GP"));
    EXPECT_FALSE(IsPhysXOnGpuValue(""));
    EXPECT_FALSE(IsPhysXOnGpuValue(std::string("GPU\0x", 5)));
}

TEST(ProbeGpuRules, OpenGlVendorsToPciVendors) {
    EXPECT_EQ(PciVendorOfGlVendor("NVIDIA Corporation"), 0x10DE);
    EXPECT_EQ(PciVendorOfGlVendor("ATI Technologies Inc."), 0x1002);
    EXPECT_EQ(PciVendorOfGlVendor("AMD"), 0x1002);
    EXPECT_EQ(PciVendorOfGlVendor("Intel"), 0x8086);
    EXPECT_EQ(PciVendorOfGlVendor("Intel Open Source Technology Center"), 0x8086);
    EXPECT_EQ(PciVendorOfGlVendor("Mesa"), -1);
    EXPECT_EQ(PciVendorOfGlVendor("Mesa/X.org"), -1);
}

}  // namespace
}  // namespace ProbeGPU
