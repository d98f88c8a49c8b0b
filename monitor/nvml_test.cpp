// The NVML path, against the fake libnvidia-ml.so.1 the build makes.
#include "monitor/nvml_backend.h"

#include <gtest/gtest.h>

#if !defined(_WIN32)

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/test_env.h"
#include "monitor/probe_log.h"

namespace ProbeGPU {
namespace {

const std::string kFake = std::string(ARD_FAKES_DIR) + "/libnvidia-ml.so.1";
const std::string kBroken = std::string(ARD_FAKES_DIR) + "/broken/libnvidia-ml.so.1";

class Nvml : public ::testing::Test {
protected:
    void SetUp() override { ResetComplaints(); }
    void Script(const std::string& text) { ASSERT_TRUE(fakes::WriteTextFile(script, text)); }
    std::string script = fakes::TempPath("fake-nvml");
    fakes::ScopedEnv env{"ARDENTIUM_FAKE_NVML_SCRIPT", script};
    monitor::CapturedEvents events;
    NvmlBackend nvml;
};

const char* kTwoGpus =
    "gpus=2\n"
    "driver=550.54.14\n"
    "gpu0.name=NVIDIA GeForce RTX 4090\n"
    "gpu0.device=0x2684\n"
    "gpu0.bus=00000000:01:00.0\n"
    "gpu0.temp=50\n"
    "gpu0.temp_step=2\n"
    "gpu1.name=NVIDIA H100 80GB HBM3\n"
    "gpu1.device=0x2330\n"
    "gpu1.bus=00000000:41:00.0\n"
    "gpu1.temp=35\n"
    "gpu1.util=12\n"
    "gpu1.power_mw=350000\n"
    "gpu1.limit_mw=700000\n";

TEST_F(Nvml, ListsTwoGpusWithTheirPciIdentity) {
    Script(kTwoGpus);
    ASSERT_TRUE(nvml.Init(kFake));
    ASSERT_EQ(nvml.count(), 2);
    EXPECT_EQ(nvml.driverVersion(), "550.54.14");
    EXPECT_EQ(nvml.device(0).name, "NVIDIA GeForce RTX 4090");
    EXPECT_EQ(nvml.device(0).vendor, 0x10DEu);
    EXPECT_EQ(nvml.device(0).device, 0x2684u);
    EXPECT_EQ(nvml.device(0).pciSlot, "0000:01:00.0");
    EXPECT_EQ(nvml.device(1).device, 0x2330u);
    EXPECT_EQ(nvml.device(1).pciSlot, "0000:41:00.0");
    EXPECT_EQ(nvml.device(0).cores, 16384u);
    EXPECT_EQ(nvml.GpuName(1), "NVIDIA H100 80GB HBM3");
    EXPECT_EQ(nvml.DriverText(0), "550.54.14");
}

TEST_F(Nvml, TemperaturesRiseAsScripted) {
    Script(kTwoGpus);
    ASSERT_TRUE(nvml.Init(kFake));
    for (int i = 0; i < 3; ++i) {
        TemperatureReading t;
        ASSERT_TRUE(nvml.Temperature(0, &t));
        EXPECT_FLOAT_EQ(t.celsius, 50.0f + 2.0f * i);
        EXPECT_EQ(t.threshold, 90);
        EXPECT_EQ(t.hotspot, -1);
    }
    TemperatureReading t;
    ASSERT_TRUE(nvml.Temperature(1, &t));
    EXPECT_FLOAT_EQ(t.celsius, 35.0f);
}

TEST_F(Nvml, EveryReadingInTheSnapshotsUnits) {
    Script(kTwoGpus);
    ASSERT_TRUE(nvml.Init(kFake));
    int load = 0, mem = 0;
    ASSERT_TRUE(nvml.Usage(1, &load, &mem));
    EXPECT_EQ(load, 12);
    EXPECT_EQ(mem, 20);
    int total = 0, used = 0, freeMB = 0;
    ASSERT_TRUE(nvml.MemoryUsage(0, &total, &used, &freeMB));
    EXPECT_EQ(total, 24564);
    EXPECT_EQ(used, 1024);
    EXPECT_EQ(freeMB, 23540);
    int fan = 0, rpm = 1;
    ASSERT_TRUE(nvml.Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 30);
    EXPECT_EQ(rpm, 0);
    ClockReading c;
    ASSERT_TRUE(nvml.Clocks(0, &c));
    EXPECT_FLOAT_EQ(c.coreMHz, 2520.0f);
    EXPECT_FLOAT_EQ(c.memoryMHz, 10501.0f);
    EXPECT_EQ(c.performanceState, 0);
    EXPECT_FLOAT_EQ(c.voltage, 0.0f);  // NVML offers no core voltage
    float v = 0;
    EXPECT_FALSE(nvml.Voltage(0, &v));
    int pct = 0, avail = 0;
    ASSERT_TRUE(nvml.Power(1, 0, &pct, &avail));
    EXPECT_EQ(pct, 50);
    EXPECT_EQ(avail, 1);
    EXPECT_FALSE(nvml.Power(1, 1, &pct, &avail));  // one rail only
    int base = 0, boost = 0;
    ASSERT_TRUE(nvml.BaseBoostClocks(0, &base, &boost));
    EXPECT_EQ(base, 2235);
    EXPECT_EQ(boost, 2790);
    float target = 0;
    ASSERT_TRUE(nvml.PowerTarget(0, &target));
    EXPECT_FLOAT_EQ(target, 100.0f);
    float ceiling = 0, bound = 0;
    ASSERT_TRUE(nvml.ClockCeiling(0, &ceiling, &bound));
    EXPECT_FLOAT_EQ(bound, 2790.0f);
    EXPECT_FLOAT_EQ(ceiling, 2790.0f);  // no throttle reason: not held back
}

TEST_F(Nvml, AThrottleReasonCapsTheClock) {
    Script(std::string(kTwoGpus) + "gpu0.throttle=0x4\n");  // a power cap
    ASSERT_TRUE(nvml.Init(kFake));
    float ceiling = 0, bound = 0;
    ASSERT_TRUE(nvml.ClockCeiling(0, &ceiling, &bound));
    EXPECT_FLOAT_EQ(ceiling, 2520.0f);
    EXPECT_FLOAT_EQ(bound, 2790.0f);
    // A different length: the fake notices the change even within one second.
    Script(std::string(kTwoGpus) + "gpu0.throttle=0x1\n# idle only\n");
    ASSERT_TRUE(nvml.ClockCeiling(0, &ceiling, &bound));
    EXPECT_FLOAT_EQ(ceiling, 2790.0f);
}

TEST_F(Nvml, FailingCallsLeaveOutputsAndComplainOnce) {
    Script(std::string(kTwoGpus) + "fail=nvmlDeviceGetFanSpeed,nvmlDeviceGetPowerUsage\ngpu1.fail=nvmlDeviceGetTemperature\n");
    ASSERT_TRUE(nvml.Init(kFake));
    int fan = 77, rpm = 77;
    EXPECT_FALSE(nvml.Fan(0, &fan, &rpm));
    EXPECT_FALSE(nvml.Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 77);
    int pct = 5, avail = 5;
    EXPECT_FALSE(nvml.Power(1, 0, &pct, &avail));
    EXPECT_EQ(pct, 5);
    TemperatureReading t;
    EXPECT_TRUE(nvml.Temperature(0, &t));
    EXPECT_FALSE(nvml.Temperature(1, &t));
    EXPECT_EQ(events.lines().size(), 3u);
    EXPECT_TRUE(events.Contains(
        "ProbeGPU: NVML nvmlDeviceGetFanSpeed failed for GPU 0 (error 999); the previous reading is kept."));
}

TEST_F(Nvml, NonsenseIsRefused) {
    Script(std::string(kTwoGpus) + "gpu0.temp=4000\ngpu0.util=250\ngpu0.clock=900000\ngpu0.limit_mw=0\ngpu0.mem_used_mb=99999\n");
    ASSERT_TRUE(nvml.Init(kFake));
    TemperatureReading t;
    EXPECT_FALSE(nvml.Temperature(0, &t));
    int a = 0, b = 0, c = 0;
    EXPECT_FALSE(nvml.Usage(0, &a, &b));
    ClockReading clk;
    EXPECT_FALSE(nvml.Clocks(0, &clk));
    EXPECT_FALSE(nvml.Power(0, 0, &a, &b));
    EXPECT_FALSE(nvml.MemoryUsage(0, &a, &b, &c));
    EXPECT_EQ(events.lines().size(), 5u);
    // The other GPU is unaffected.
    EXPECT_TRUE(nvml.Temperature(1, &t));
}

TEST_F(Nvml, ReadingsChangeWhenTheScriptChanges) {
    Script(kTwoGpus);
    ASSERT_TRUE(nvml.Init(kFake));
    int load = 0, mem = 0;
    ASSERT_TRUE(nvml.Usage(0, &load, &mem));
    EXPECT_EQ(load, 50);
    // The fake reads its script again when the file changes (size and time).
    Script(std::string(kTwoGpus) + "gpu0.util=99\n# a longer file\n");
    ASSERT_TRUE(nvml.Usage(0, &load, &mem));
    EXPECT_EQ(load, 99);
}

TEST_F(Nvml, MissingBrokenOrFailingLibrariesGiveNoGpus) {
    Script(kTwoGpus);
    EXPECT_FALSE(nvml.Init(std::string(ARD_FAKES_DIR) + "/no-such-libnvidia-ml.so.1"));
    EXPECT_FALSE(nvml.loaded());
    EXPECT_EQ(nvml.count(), 0);
    EXPECT_TRUE(events.lines().empty());  // a missing library is normal, not news

    EXPECT_FALSE(nvml.Init(kBroken));
    ASSERT_EQ(events.lines().size(), 1u);
    EXPECT_NE(events.lines()[0].find("is not a usable NVML library"), std::string::npos);

    Script("init=fail\n");
    EXPECT_FALSE(nvml.Init(kFake));
    EXPECT_EQ(nvml.count(), 0);
    EXPECT_EQ(events.lines().back(), "ProbeGPU: NVML did not initialise (error 999); NVIDIA sensors are not read.");
    TemperatureReading t;
    EXPECT_FALSE(nvml.Temperature(0, &t));
}

TEST_F(Nvml, UsageGoesToTheLibraryLogWhenItChanges) {
    Script(kTwoGpus);
    const std::string log = fakes::TempPath("z") + ".log";
    ASSERT_TRUE(gProbeLog.Enable(log));
    ASSERT_TRUE(nvml.Init(kFake));
    int load = 0, mem = 0;
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(nvml.Usage(0, &load, &mem));
    Script(std::string(kTwoGpus) + "gpu0.util=51\n");
    ASSERT_TRUE(nvml.Usage(0, &load, &mem));
    gProbeLog.Disable();
    const std::string text = fakes::ReadTextFile(log);
    size_t headers = 0;
    for (size_t p = text.find("GPU Usages"); p != std::string::npos; p = text.find("GPU Usages", p + 1)) ++headers;
    EXPECT_EQ(headers, 2u);
    EXPECT_NE(text.find(">> Usage[0] = 50\n"), std::string::npos);
    EXPECT_NE(text.find(">> Usage[0] = 51\n"), std::string::npos);
    EXPECT_NE(text.find(">> NVML - driver version: 550.54.14\n"), std::string::npos);
}

TEST_F(Nvml, ReadsAfterShutdownReadNothing) {
    Script(kTwoGpus);
    ASSERT_TRUE(nvml.Init(kFake));
    nvml.Shutdown();
    TemperatureReading t;
    EXPECT_FALSE(nvml.Temperature(0, &t));
    EXPECT_EQ(nvml.count(), 0);
}

TEST(NvmlBusId, NormalisedToTheKernelsForm) {
    EXPECT_EQ(NvmlBackend::NormalizeBusId("00000000:01:00.0"), "0000:01:00.0");
    EXPECT_EQ(NvmlBackend::NormalizeBusId("0000:C1:00.0"), "0000:c1:00.0");
    EXPECT_EQ(NvmlBackend::NormalizeBusId(""), "");
    EXPECT_EQ(NvmlBackend::NormalizeBusId("garbage"), "");
    EXPECT_EQ(NvmlBackend::NormalizeBusId("0000:01:00.0 extra"), "");
    EXPECT_EQ(NvmlBackend::NormalizeBusId("0000:100:00.0"), "");
    EXPECT_EQ(NvmlBackend::NormalizeBusId(nullptr), "");
}

TEST(NvmlLibrary, TheTestVariableChoosesTheFile) {
    {
        fakes::ScopedEnv env{NvmlBackend::kLibraryVariable, "/tmp/x.so"};
        EXPECT_EQ(NvmlBackend::LibraryName(), "/tmp/x.so");
    }
    fakes::ScopedEnv none{NvmlBackend::kLibraryVariable, ""};
    EXPECT_EQ(NvmlBackend::LibraryName(), "libnvidia-ml.so.1");
}

}  // namespace
}  // namespace ProbeGPU

#endif  // !_WIN32
