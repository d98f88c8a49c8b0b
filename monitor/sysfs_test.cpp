#include "monitor/sysfs.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "monitor/complaints.h"
#include "monitor/event_sink.h"
#include "monitor/fakes/fake_sysfs.h"

namespace ProbeGPU {
namespace {

using sysfs::DpmLevels;
using sysfs::ParseDecimal;
using sysfs::ParseDpmLevels;
using sysfs::ParseHexId;
using sysfs::ParseKeyValue;

TEST(SysfsParsers, DecimalAcceptsOneNumberOnly) {
    int64_t v = 0;
    EXPECT_TRUE(ParseDecimal("45000\n", &v));
    EXPECT_EQ(v, 45000);
    EXPECT_TRUE(ParseDecimal("  -12 \n", &v));
    EXPECT_EQ(v, -12);
    EXPECT_TRUE(ParseDecimal("+7", &v));
    EXPECT_EQ(v, 7);
    for (const char* bad : {"", "\n", "abc", "12abc", "12 13", "0x10", "--1", "1.5", "-"}) {
        v = 99;
        EXPECT_FALSE(ParseDecimal(bad, &v)) << bad;
        EXPECT_EQ(v, 99) << bad;
    }
    EXPECT_FALSE(ParseDecimal(std::string(40, '9'), &v));  // far too many digits
    EXPECT_FALSE(ParseDecimal(std::string("12\0" "34", 5), &v));
}

TEST(SysfsParsers, HexIdsNeedTheirPrefix) {
    uint32_t v = 0;
    EXPECT_TRUE(ParseHexId("0x10de\n", &v));
    EXPECT_EQ(v, 0x10DEu);
    EXPECT_TRUE(ParseHexId("0X73BF", &v));
    EXPECT_EQ(v, 0x73BFu);
    for (const char* bad : {"10de", "0x", "0xZZ", "0x10de 1", "0x123456789", ""}) EXPECT_FALSE(ParseHexId(bad, &v)) << bad;
}

TEST(SysfsParsers, KeyValueLines) {
    std::string v;
    const std::string uevent = "DRIVER=amdgpu\nPCI_CLASS=30000\nPCI_SLOT_NAME=0000:03:00.0\n";
    EXPECT_TRUE(ParseKeyValue(uevent, "DRIVER", &v));
    EXPECT_EQ(v, "amdgpu");
    EXPECT_TRUE(ParseKeyValue(uevent, "PCI_SLOT_NAME", &v));
    EXPECT_EQ(v, "0000:03:00.0");
    EXPECT_FALSE(ParseKeyValue(uevent, "PCI", &v));  // a prefix of a key is not the key
    EXPECT_FALSE(ParseKeyValue("", "DRIVER", &v));
    EXPECT_TRUE(ParseKeyValue("DRIVER=", "DRIVER", &v));
    EXPECT_EQ(v, "");
}

TEST(SysfsParsers, DpmLevelsAndTheActiveOne) {
    DpmLevels l;
    ASSERT_TRUE(ParseDpmLevels("0: 500Mhz\n1: 1500Mhz *\n2: 2250Mhz\n", &l));
    ASSERT_EQ(l.mhz.size(), 3u);
    EXPECT_EQ(l.mhz[2], 2250);
    EXPECT_EQ(l.current, 1);
    ASSERT_TRUE(ParseDpmLevels("0: 96Mhz *\n", &l));
    EXPECT_EQ(l.current, 0);
    for (const char* bad : {"", "0: 500\n", "1: 500Mhz\n", "0: 500Mhz !\n", "0: 500Ghz\n", "garbage", "0: 999999Mhz\n"})
        EXPECT_FALSE(ParseDpmLevels(bad, &l)) << bad;
}

class SysfsTree : public ::testing::Test {
protected:
    void SetUp() override { ResetComplaints(); }
    fakes::FakeSysfs tree;
    monitor::CapturedEvents events;
};

TEST_F(SysfsTree, EnumeratesCardsInOrderAndSkipsConnectorsAndRenderNodes) {
    fakes::FakeCard amd;
    amd.card = 1;
    amd.pciSlot = "0000:03:00.0";
    tree.AddCard(amd);
    fakes::FakeCard intel;
    intel.card = 0;
    intel.vendor = 0x8086;
    intel.device = 0x4680;
    intel.driver = "i915";
    intel.pciSlot = "0000:00:02.0";
    tree.AddCard(intel);
    tree.Write("class/drm/renderD128/dev", "226:128\n");
    tree.Write("class/drm/version", "drm 1.1.0 20060810\n");

    auto devices = sysfs::EnumerateDrmDevices(tree.root());
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].card, 0);
    EXPECT_EQ(devices[0].vendor, 0x8086u);
    EXPECT_EQ(devices[0].driver, "i915");
    EXPECT_EQ(devices[1].card, 1);
    EXPECT_EQ(devices[1].device, 0x73BFu);
    EXPECT_EQ(devices[1].subsystemDevice, 0x0E3Au);
    EXPECT_EQ(devices[1].revision, 0xC1u);
    EXPECT_EQ(devices[1].pciSlot, "0000:03:00.0");
    EXPECT_EQ(devices[1].pnpId(), "PCI\\VEN_1002&DEV_73BF&SUBSYS_0E3A1002&REV_C1");
    EXPECT_FALSE(devices[1].hwmonDir.empty());
    EXPECT_TRUE(events.lines().empty());
}

TEST_F(SysfsTree, OneRowPerDeviceEvenWithTwoCardNodes) {
    fakes::FakeCard a;
    a.card = 0;
    a.pciSlot = "0000:03:00.0";
    tree.AddCard(a);
    a.card = 1;  // a second node of the same PCI device
    tree.AddCard(a);
    fakes::FakeCard b;
    b.card = 2;
    b.pciSlot = "0000:04:00.0";  // an identical board in another slot
    tree.AddCard(b);
    auto devices = sysfs::EnumerateDrmDevices(tree.root());
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].card, 0);
    EXPECT_EQ(devices[1].card, 2);
}

TEST_F(SysfsTree, GarbledIdentityIsSkippedWithAMessage) {
    fakes::FakeCard a;
    a.card = 0;
    tree.AddCard(a);
    tree.WriteDevice(0, "vendor", "\x01\x02garbage");
    fakes::FakeCard b;
    b.card = 1;
    b.pciSlot = "0000:05:00.0";
    tree.AddCard(b);
    tree.WriteDevice(1, "subsystem_device", "not a number");
    tree.Remove("class/drm/card1/device/revision");
    auto devices = sysfs::EnumerateDrmDevices(tree.root());
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].card, 1);
    EXPECT_EQ(devices[0].subsystemDevice, 0u);  // optional fields fall back to 0
    EXPECT_EQ(devices[0].revision, 0u);
    ASSERT_EQ(events.lines().size(), 1u);
    EXPECT_NE(events.lines()[0].find("card0/device has no readable PCI vendor/device ID"), std::string::npos);
}

TEST_F(SysfsTree, MissingTreeGivesNoDevices) {
    EXPECT_TRUE(sysfs::EnumerateDrmDevices(tree.root() + "/nowhere").empty());
}

TEST_F(SysfsTree, TheRootComesFromTheTestVariable) { EXPECT_EQ(sysfs::Root(), tree.root()); }

class AmdgpuSensors : public SysfsTree {
protected:
    void SetUp() override {
        SysfsTree::SetUp();
        fakes::FakeCard c;
        c.card = 0;
        c.pciSlot = "0000:03:00.0";
        tree.AddCard(c);
        tree.FillAmdgpu(0, 55, 97);
        backend.reset(new SysfsBackend(sysfs::EnumerateDrmDevices(tree.root())));
        ASSERT_EQ(backend->count(), 1);
    }
    std::unique_ptr<SysfsBackend> backend;
};

TEST_F(AmdgpuSensors, ReadsEveryValueInTheSnapshotsUnits) {
    TemperatureReading t;
    ASSERT_TRUE(backend->Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 55.0f);
    EXPECT_EQ(t.threshold, 100);
    EXPECT_EQ(t.hotspot, 67);
    EXPECT_EQ(t.memory, 61);
    int load = 0, mem = 0;
    ASSERT_TRUE(backend->Usage(0, &load, &mem));
    EXPECT_EQ(load, 97);
    EXPECT_EQ(mem, 12);
    int total = 0, used = 0, freeMB = 0;
    ASSERT_TRUE(backend->MemoryUsage(0, &total, &used, &freeMB));
    EXPECT_EQ(total, 16368);
    EXPECT_EQ(used, 1024);
    EXPECT_EQ(freeMB, 15344);
    int fan = 0, rpm = 0;
    ASSERT_TRUE(backend->Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 1450);
    EXPECT_EQ(rpm, 1);
    ClockReading c;
    ASSERT_TRUE(backend->Clocks(0, &c));
    EXPECT_FLOAT_EQ(c.coreMHz, 2250.0f);
    EXPECT_FLOAT_EQ(c.memoryMHz, 1000.0f);
    EXPECT_FLOAT_EQ(c.voltage, 1.15f);
    EXPECT_EQ(c.performanceState, 0);  // the top level of three is P-state 0
    int pct = 0, avail = 0;
    ASSERT_TRUE(backend->Power(0, 0, &pct, &avail));
    EXPECT_EQ(pct, 50);
    EXPECT_EQ(avail, 1);
    EXPECT_FALSE(backend->Power(0, 1, &pct, &avail));
    float v = 0;
    ASSERT_TRUE(backend->Voltage(0, &v));
    EXPECT_FLOAT_EQ(v, 1.15f);
    EXPECT_EQ(backend->DriverText(0), "amdgpu");
    EXPECT_TRUE(events.lines().empty());
}

TEST_F(AmdgpuSensors, ScriptedReadingsFollowTheFiles) {
    for (int celsius = 40; celsius <= 44; ++celsius) {
        tree.WriteHwmon(0, "temp1_input", std::to_string(celsius * 1000) + "\n");
        TemperatureReading t;
        ASSERT_TRUE(backend->Temperature(0, &t));
        EXPECT_FLOAT_EQ(t.celsius, static_cast<float>(celsius));
    }
    // power1_input serves where power1_average is missing.
    tree.Remove("class/drm/card0/device/hwmon/hwmon2/power1_average");
    tree.WriteHwmon(0, "power1_input", "300000000\n");
    int pct = 0, avail = 0;
    ASSERT_TRUE(backend->Power(0, 0, &pct, &avail));
    EXPECT_EQ(pct, 100);
    // Without a tachometer the PWM duty cycle gives a percentage.
    tree.Remove("class/drm/card0/device/hwmon/hwmon2/fan1_input");
    tree.WriteHwmon(0, "pwm1", "128\n");
    int fan = 0, rpm = 1;
    ASSERT_TRUE(backend->Fan(0, &fan, &rpm));
    EXPECT_EQ(fan, 50);
    EXPECT_EQ(rpm, 0);
}

TEST_F(AmdgpuSensors, GarbageAndNonsenseAreRefusedAndReportedOnce) {
    tree.WriteHwmon(0, "temp1_input", "hot\n");
    tree.Remove("class/drm/card0/device/hwmon/hwmon2/temp2_input");
    tree.Remove("class/drm/card0/device/hwmon/hwmon2/temp3_input");
    TemperatureReading t;
    t.celsius = 12.5f;
    EXPECT_FALSE(backend->Temperature(0, &t));
    EXPECT_FALSE(backend->Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 12.5f);  // outputs untouched
    tree.WriteDevice(0, "gpu_busy_percent", "250\n");
    int load = -5, mem = -5;
    EXPECT_FALSE(backend->Usage(0, &load, &mem));
    EXPECT_EQ(load, -5);
    tree.WriteHwmon(0, "power1_average", "900000000000\n");  // 900 kW drawn through a 300 W cap
    int pct = 0, avail = 0;
    EXPECT_FALSE(backend->Power(0, 0, &pct, &avail));
    tree.WriteHwmon(0, "power1_average", "150000000\n");
    tree.WriteHwmon(0, "power1_cap", "0\n");
    EXPECT_FALSE(backend->Power(0, 0, &pct, &avail));
    tree.WriteDevice(0, "mem_info_vram_used", "999999999999\n");
    int total = 0, used = 0, freeMB = 0;
    EXPECT_FALSE(backend->MemoryUsage(0, &total, &used, &freeMB));
    // One message per bad file, however often it is read.
    EXPECT_EQ(events.lines().size(), 5u);
    for (const std::string& l : events.lines()) EXPECT_EQ(l.rfind("ProbeGPU: ", 0), 0u) << l;
}

TEST_F(AmdgpuSensors, AHugeFileIsNotRead) {
    tree.WriteHwmon(0, "temp1_input", std::string(100000, '1'));
    TemperatureReading t;
    EXPECT_FALSE(backend->Temperature(0, &t) && t.celsius > 1000);
}

TEST_F(AmdgpuSensors, OutOfRangeGpuIndexReadsNothing) {
    TemperatureReading t;
    EXPECT_FALSE(backend->Temperature(1, &t));
    EXPECT_FALSE(backend->Temperature(-1, &t));
    int a = 0, b = 0;
    EXPECT_FALSE(backend->Usage(7, &a, &b));
    EXPECT_EQ(backend->DriverText(3), "");
}

TEST_F(SysfsTree, IntelPowerComesFromTheEnergyCounter) {
    fakes::FakeCard c;
    c.card = 0;
    c.vendor = 0x8086;
    c.device = 0x56A0;
    c.driver = "i915";
    c.pciSlot = "0000:03:00.0";
    tree.AddCard(c);
    tree.FillI915(0, 48, 2100);
    SysfsBackend backend(sysfs::EnumerateDrmDevices(tree.root()));
    ClockReading clk;
    ASSERT_TRUE(backend.Clocks(0, &clk));
    EXPECT_FLOAT_EQ(clk.coreMHz, 2100.0f);
    EXPECT_FLOAT_EQ(clk.voltage, 0.88f);
    TemperatureReading t;
    ASSERT_TRUE(backend.Temperature(0, &t));
    EXPECT_FLOAT_EQ(t.celsius, 48.0f);
    int pct = 0, avail = 0;
    EXPECT_FALSE(backend.Power(0, 0, &pct, &avail));  // the first sample has nothing to compare with
    // 95 J over at least half a second: at most 190 W, which is the limit.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    tree.WriteHwmon(0, "energy1_input", std::to_string(1000000 + 95000000) + "\n");
    ASSERT_TRUE(backend.Power(0, 0, &pct, &avail));
    EXPECT_GT(pct, 0);
    EXPECT_LE(pct, 100);
    // A counter that went backwards (wrapped) gives no reading.
    tree.WriteHwmon(0, "energy1_input", "5\n");
    EXPECT_FALSE(backend.Power(0, 0, &pct, &avail));
    int load = 0, mem = 0;
    EXPECT_FALSE(backend.Usage(0, &load, &mem));  // i915 has no load counter
}

TEST_F(SysfsTree, XeClocksComeFromTheGt) {
    fakes::FakeCard c;
    c.card = 0;
    c.vendor = 0x8086;
    c.device = 0xE20B;
    c.driver = "xe";
    c.pciSlot = "0000:03:00.0";
    c.hwmon = false;
    tree.AddCard(c);
    tree.WriteDevice(0, "tile0/gt0/freq0/act_freq", "2850\n");
    SysfsBackend backend(sysfs::EnumerateDrmDevices(tree.root()));
    ClockReading clk;
    ASSERT_TRUE(backend.Clocks(0, &clk));
    EXPECT_FLOAT_EQ(clk.coreMHz, 2850.0f);
    TemperatureReading t;
    EXPECT_FALSE(backend.Temperature(0, &t));  // no hwmon, no temperature
}

}  // namespace
}  // namespace ProbeGPU
