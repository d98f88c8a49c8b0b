#include "monitor/sensors.h"

#include <gtest/gtest.h>

#include <vector>

#include "monitor/pci_id.h"

namespace monitor {
namespace {

using ProbeGPU::ClockReading;
using ProbeGPU::PerfLevel;
using ProbeGPU::TemperatureReading;

// A scripted source: each reading is offered or not, and counted.
struct Scripted : SensorSource {
    bool temperatureOk = true;
    TemperatureReading temperature;
    bool usageOk = true;
    int load = 50, memoryLoad = 20;
    bool memoryOk = true;
    int total = 8192, used = 1024, freeMB = 7168;
    bool fanOk = true;
    int fan = 40, fanRpm = 0;
    bool voltageOk = true;
    float voltage = 1.05f;
    bool powerOk = true;
    int power[3] = {80, 30, 20};
    bool extraRails = false;
    bool ceilingOk = true;
    float ceiling = 1800, bound = 1900;
    bool clocksOk = true;
    ClockReading clocks;
    std::vector<PerfLevel> levels;
    int railReads = 0, ceilingReads = 0, levelReads = 0, clockReads = 0;

    Scripted() {
        temperature.celsius = 60.0f;
        clocks.performanceState = 0;
        clocks.coreMHz = 1500;
        clocks.memoryMHz = 3500;
        clocks.voltage = 1.1f;
    }
    bool Temperature(int, TemperatureReading* out) override {
        if (temperatureOk) *out = temperature;
        return temperatureOk;
    }
    bool Usage(int, int* l, int* m) override {
        if (usageOk) *l = load, *m = memoryLoad;
        return usageOk;
    }
    bool MemoryUsage(int, int* t, int* u, int* f) override {
        if (memoryOk) *t = total, *u = used, *f = freeMB;
        return memoryOk;
    }
    bool Fan(int, int* v, int* r) override {
        if (fanOk) *v = fan, *r = fanRpm;
        return fanOk;
    }
    bool Voltage(int, float* v) override {
        if (voltageOk) *v = voltage;
        return voltageOk;
    }
    bool Power(int, int rail, int* p, int* a) override {
        if (rail > 0) ++railReads;
        if (!powerOk) return false;
        *p = power[rail];
        *a = 1;
        return true;
    }
    bool HasExtraRails(int) override { return extraRails; }
    bool ClockCeiling(int, float* c, float* b) override {
        ++ceilingReads;
        if (ceilingOk) *c = ceiling, *b = bound;
        return ceilingOk;
    }
    bool Clocks(int, ClockReading* out) override {
        ++clockReads;
        if (clocksOk) *out = clocks;
        return clocksOk;
    }
    bool PerfLevels(int, std::vector<PerfLevel>* out) override {
        ++levelReads;
        *out = levels;
        return !levels.empty();
    }
};

GpuSensorArray Make(int vendor, int count = 1) {
    GpuSensorArray a(count);
    for (int i = 0; i < count; ++i) a[i].pci_vendor_id.store(vendor);
    return a;
}

TEST(SensorRefresh, NothingHappensWithoutRecords) {
    Scripted s;
    RefreshSnapshot(s, nullptr);
    GpuSensorArray empty(0);
    RefreshSnapshot(s, &empty);
    EXPECT_EQ(s.clockReads, 0);
    GpuSensorArray negative(-3);
    EXPECT_EQ(negative.count(), 0);
}

TEST(SensorRefresh, ReadingsLandAndHighWaterMarksOnlyRise) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE);
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.temperature, 60.0f);
    EXPECT_FLOAT_EQ(v.highest_temperature, 60.0f);
    EXPECT_FLOAT_EQ(v.load, 50.0f);
    EXPECT_EQ(v.memory_load, 20);
    EXPECT_EQ(v.memory_used_mb, 1024);
    EXPECT_EQ(v.fan_value, 40);
    EXPECT_FLOAT_EQ(v.core_clock, 1500.0f);
    EXPECT_FLOAT_EQ(v.core_voltage, 1.1f);
    EXPECT_FLOAT_EQ(v.second_voltage, 1.05f);
    EXPECT_EQ(v.power_percent, 80);
    EXPECT_EQ(v.power_available, 1);
    EXPECT_EQ(v.performance_state, 0);

    s.temperature.celsius = 45.0f;
    s.load = 10;
    s.clocks.coreMHz = 300;
    s.clocks.memoryMHz = 400;
    s.clocks.voltage = 0.8f;
    RefreshSnapshot(s, &a);
    v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.temperature, 45.0f);
    EXPECT_FLOAT_EQ(v.highest_temperature, 60.0f);
    EXPECT_FLOAT_EQ(v.load, 10.0f);
    EXPECT_FLOAT_EQ(v.highest_load, 50.0f);
    EXPECT_FLOAT_EQ(v.core_clock, 300.0f);
    EXPECT_FLOAT_EQ(v.highest_core_clock, 1500.0f);
    EXPECT_FLOAT_EQ(v.highest_memory_clock, 3500.0f);
    EXPECT_FLOAT_EQ(v.highest_core_voltage, 1.1f);

    s.temperature.celsius = 71.0f;
    RefreshSnapshot(s, &a);
    EXPECT_FLOAT_EQ(a.Snapshot(0).highest_temperature, 71.0f);
}

// Whether a reading was ever supplied is kept apart from its value, so a
// GPU nothing reads is "n.a." and not 0.
TEST(SensorRefresh, ReadingsNeverSuppliedStayUnknown) {
    Scripted s;
    s.temperatureOk = s.usageOk = false;
    GpuSensorArray a = Make(0x1234);
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FALSE(v.has_temperature);
    EXPECT_FALSE(v.has_load);
    s.usageOk = true;
    s.load = 0;
    RefreshSnapshot(s, &a);
    v = a.Snapshot(0);
    EXPECT_FALSE(v.has_temperature);
    EXPECT_TRUE(v.has_load);  // a measured 0 %
    EXPECT_FLOAT_EQ(v.load, 0.0f);
    s.temperatureOk = true;
    RefreshSnapshot(s, &a);
    s.temperatureOk = false;  // a later failure keeps the last value, still known
    RefreshSnapshot(s, &a);
    EXPECT_TRUE(a.Snapshot(0).has_temperature);
}

TEST(SensorRefresh, FailedReadsKeepTheOldValues) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE);
    RefreshSnapshot(s, &a);
    s.temperatureOk = s.usageOk = s.memoryOk = s.fanOk = s.powerOk = s.clocksOk = s.voltageOk = false;
    s.temperature.celsius = 99.0f;
    s.fan = 100;
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.temperature, 60.0f);
    EXPECT_FLOAT_EQ(v.load, 50.0f);
    EXPECT_EQ(v.memory_total_mb, 8192);
    EXPECT_EQ(v.fan_value, 40);
    EXPECT_EQ(v.power_percent, 80);
    EXPECT_FLOAT_EQ(v.core_clock, 1500.0f);
    EXPECT_FLOAT_EQ(v.second_voltage, 1.05f);
}

TEST(SensorRefresh, AZeroVoltageReadLeavesThePreviousVoltage) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE);
    RefreshSnapshot(s, &a);
    s.voltage = 0.0f;
    s.clocks.voltage = 0.0f;  // a clock reading without a voltage
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.second_voltage, 1.05f);
    EXPECT_FLOAT_EQ(v.core_voltage, 1.1f);
}

TEST(SensorRefresh, ExtraRailsOnlyWhenTheFlagIsSet) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE);
    PrimeRecord(s, 0, a[0]);
    RefreshSnapshot(s, &a);
    EXPECT_EQ(s.railReads, 0);
    s.extraRails = true;
    PrimeRecord(s, 0, a[0]);
    RefreshSnapshot(s, &a);
    EXPECT_EQ(s.railReads, 2);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_TRUE(v.extra_rails);
    EXPECT_EQ(v.rail_percent[0], 30);
    EXPECT_EQ(v.rail_percent[1], 20);
}

TEST(SensorRefresh, TheClockCeilingNeedsABoundAndItsLowestOnlyFalls) {
    Scripted s;
    s.ceilingOk = false;
    GpuSensorArray a = Make(0x10DE);
    PrimeRecord(s, 0, a[0]);  // no bound: the ceiling is never read again
    int before = s.ceilingReads;
    RefreshSnapshot(s, &a);
    EXPECT_EQ(s.ceilingReads, before);
    EXPECT_FLOAT_EQ(a.Snapshot(0).throttling_mhz(), 0.0f);

    s.ceilingOk = true;
    GpuSensorArray b = Make(0x10DE);
    PrimeRecord(s, 0, b[0]);
    EXPECT_FLOAT_EQ(b.Snapshot(0).clock_bound, 1900.0f);
    s.ceiling = 1500;
    RefreshSnapshot(s, &b);
    s.ceiling = 1700;
    RefreshSnapshot(s, &b);
    GpuSensorSnapshot v = b.Snapshot(0);
    EXPECT_FLOAT_EQ(v.clock_ceiling, 1700.0f);
    EXPECT_FLOAT_EQ(v.lowest_clock_ceiling, 1500.0f);
    EXPECT_FLOAT_EQ(v.throttling_mhz(), 200.0f);
}

TEST(SensorRefresh, AnAmdGpuShowsItsHighestLevelNotTheActiveOne) {
    Scripted s;
    s.levels = {{300.0f, 150.0f, 0.9f}, {1100.0f, 1250.0f, 1.15f}, {300.0f, 1200.0f, 1.1f}};
    s.clocks.coreMHz = 300;  // the active level
    GpuSensorArray a = Make(0x1002);
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.core_clock, 1100.0f);
    EXPECT_FLOAT_EQ(v.memory_clock, 1250.0f);
    EXPECT_FLOAT_EQ(v.core_voltage, 1.15f);
    EXPECT_FLOAT_EQ(v.highest_core_clock, 1100.0f);
    EXPECT_EQ(s.clockReads, 0);  // the NVIDIA rules did not run
    EXPECT_EQ(v.power_available, 0);
}

TEST(SensorRefresh, TheExampleLevelAlone) {
    Scripted s;
    s.levels = {{300.0f, 1200.0f, 1.1f}};
    GpuSensorArray a = Make(0x1002);
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.core_clock, 300.0f);
    EXPECT_FLOAT_EQ(v.memory_clock, 1200.0f);
    EXPECT_FLOAT_EQ(v.core_voltage, 1.1f);
}

TEST(SensorRefresh, AnAmdGpuWithoutLevelsReadsItsClocks) {
    // amdgpu on Linux: current clocks, power and voltage from sysfs.
    Scripted s;
    GpuSensorArray a = Make(0x1002);
    RefreshSnapshot(s, &a);
    EXPECT_EQ(s.levelReads, 1);
    EXPECT_EQ(s.clockReads, 1);
    EXPECT_FLOAT_EQ(a.Snapshot(0).core_clock, 1500.0f);
    EXPECT_EQ(a.Snapshot(0).power_percent, 80);
}

TEST(SensorRefresh, OtherVendorsNeverAskForLevels) {
    Scripted s;
    s.levels = {{999.0f, 999.0f, 9.0f}};
    GpuSensorArray a = Make(0x8086);
    RefreshSnapshot(s, &a);
    EXPECT_EQ(s.levelReads, 0);
    EXPECT_FLOAT_EQ(a.Snapshot(0).core_clock, 1500.0f);
}

TEST(SensorRefresh, FillRatesFollowTheCoreClock) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE);
    a[0].unit_count[0].store(64);
    a[0].unit_count[1].store(128);
    RefreshSnapshot(s, &a);
    GpuSensorSnapshot v = a.Snapshot(0);
    EXPECT_FLOAT_EQ(v.fill_rate[0], 96.0f);   // 64 x 1500 x 0.001
    EXPECT_FLOAT_EQ(v.fill_rate[1], 192.0f);
}

TEST(SensorRefresh, EveryGpuIsRefreshed) {
    Scripted s;
    GpuSensorArray a = Make(0x10DE, 3);
    RefreshSnapshot(s, &a);
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(a.Snapshot(i).temperature, 60.0f);
    GpuSensorSnapshot out = a.Snapshot(7);
    EXPECT_FLOAT_EQ(out.temperature, 0.0f);  // beyond the array: an empty copy
}

TEST(SensorSnapshot, ShownValuesPreferPositiveOverrides) {
    GpuSensorSnapshot v;
    v.core_clock = 1500;
    v.memory_clock = 3500;
    v.core_voltage = 1.1f;
    EXPECT_FLOAT_EQ(v.shown_core_clock(), 1500.0f);
    v.override_core_clock = 1600;
    v.override_memory_clock = -1;
    v.override_voltage = 1.2f;
    EXPECT_FLOAT_EQ(v.shown_core_clock(), 1600.0f);
    EXPECT_FLOAT_EQ(v.shown_memory_clock(), 3500.0f);
    EXPECT_FLOAT_EQ(v.shown_voltage(), 1.2f);
}

}  // namespace
}  // namespace monitor
