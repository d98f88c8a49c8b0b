#include "monitor/gpu_listing.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "monitor/fakes/blocks.h"

namespace monitor {
namespace {

// GPU 0 offers everything, GPU 1 only a temperature, GPU 2 nothing.
struct ThreeGpus : SensorSource {
    int reads = 0;
    bool Temperature(int gpu, ProbeGPU::TemperatureReading* out) override {
        ++reads;
        if (gpu == 2) return false;
        out->celsius = gpu == 0 ? 63.5f : 41.0f;
        out->hotspot = gpu == 0 ? 77 : -1;
        out->threshold = gpu == 0 ? 95 : -1;
        return true;
    }
    bool Usage(int gpu, int* load, int* memoryLoad) override {
        if (gpu != 0) return false;
        *load = 0;  // idle: a measured 0
        *memoryLoad = 12;
        return true;
    }
    bool MemoryUsage(int gpu, int* t, int* u, int* f) override {
        if (gpu != 0) return false;
        *t = 24564, *u = 1200, *f = 23364;
        return true;
    }
    bool Fan(int gpu, int* v, int* rpm) override {
        if (gpu != 0) return false;
        *v = 30, *rpm = 0;
        return true;
    }
    bool Voltage(int gpu, float* v) override {
        if (gpu != 0) return false;
        *v = 1.05f;
        return true;
    }
    bool Power(int gpu, int rail, int* p, int* a) override {
        if (gpu != 0 || rail != 0) return false;
        *p = 67, *a = 1;
        return true;
    }
    bool HasExtraRails(int) override { return false; }
    bool ClockCeiling(int, float*, float*) override { return false; }
    bool Clocks(int gpu, ProbeGPU::ClockReading* out) override {
        if (gpu != 0) return false;
        out->coreMHz = 2520.4f, out->memoryMHz = 10501.0f, out->performanceState = 0;
        return true;
    }
    bool PerfLevels(int, std::vector<ProbeGPU::PerfLevel>*) override { return false; }
};

std::vector<ListedGpu> Inventory() {
    ListedGpu nv{"NVIDIA GeForce RTX 4090", 0x10DE, 0x2684, 0x10DE, 0x167C, "AD102", "NVML", "550.54.14"};
    ListedGpu amd{"AMD Radeon 780M", 0x1002, 0x15BF, -1, -1, "Phoenix", "sysfs", "amdgpu"};
    ListedGpu none{"PCI display device 1A03:2000", 0x1A03, 0x2000, 0, 0, "", "", ""};
    return {nv, amd, none};
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        out.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return out;
}

size_t IndexOf(const std::vector<std::string>& lines, const std::string& line) {
    for (size_t i = 0; i < lines.size(); ++i)
        if (lines[i] == line) return i;
    return lines.size();
}

TEST(GpuListing, InventoryThenEveryReadingOrNa) {
    ThreeGpus source;
    const std::string text = FormatGpuListing(Inventory(), source, nullptr);
    const std::vector<std::string> l = Lines(text);
    ASSERT_FALSE(l.empty());
    EXPECT_EQ(l[0], "GPUs: 3");
    const size_t g1 = IndexOf(l, "GPU 1: NVIDIA GeForce RTX 4090");
    const size_t g2 = IndexOf(l, "GPU 2: AMD Radeon 780M");
    const size_t g3 = IndexOf(l, "GPU 3: PCI display device 1A03:2000");
    ASSERT_LT(g1, g2);
    ASSERT_LT(g2, g3);
    ASSERT_LT(g3, l.size());
    // Identity and interface under each GPU, readings after them.
    EXPECT_EQ(IndexOf(l, "  PCI ID: 10DE:2684"), g1 + 1);
    EXPECT_EQ(IndexOf(l, "  Subsystem ID: 10DE:167C"), g1 + 2);
    for (const char* want : {"  Code name: AD102", "  Driver: 550.54.14", "  Sensor interface: NVML", "  Temperature: 63.5 C",
                             "  Hot spot temperature: 77 C", "  Slowdown temperature: 95 C", "  GPU load: 0 %",
                             "  Memory controller load: 12 %", "  Video memory: 1200 MB used of 24564 MB", "  Fan: 30 %",
                             "  Core clock: 2520 MHz", "  Memory clock: 10501 MHz", "  Performance state: P0",
                             "  Core voltage: 1.050 V", "  Power: 67 % of the board limit"}) {
        size_t at = IndexOf(l, want);
        EXPECT_TRUE(at > g1 && at < g2) << want << "\n" << text;
    }
    // A GPU read only for its temperature: the rest is n.a., never 0.
    EXPECT_GT(IndexOf(l, "  Temperature: 41.0 C"), g2);
    size_t naLoad = g2;
    while (naLoad < l.size() && l[naLoad] != "  GPU load: n.a.") ++naLoad;
    EXPECT_LT(naLoad, g3);
    // No interface at all.
    EXPECT_EQ(l[g3 + 2], "  Subsystem ID: n.a.");
    EXPECT_EQ(l[g3 + 3], "  Code name: n.a.");
    EXPECT_EQ(l[g3 + 5], "  Sensor interface: none");
    EXPECT_EQ(l[g3 + 6], "  Temperature: n.a.");
    EXPECT_EQ(text.find(": 0 C"), std::string::npos);
    EXPECT_EQ(source.reads, 3);  // one reading per GPU, not a loop
}

TEST(GpuListing, AGpuzBlockIsListedWithItsSensors) {
    ThreeGpus source;
    GpuzBridge gpuz(std::unique_ptr<BlockSource>(new fakes::MemoryBlockSource(
        {fakes::MakeGpuzBlock({{"GPU Core Clock", "MHz", 1500.0}, {"VDDC", "V", 1.05}})})));
    const std::vector<std::string> l = Lines(FormatGpuListing({}, source, &gpuz));
    EXPECT_EQ(l, (std::vector<std::string>{"GPUs: 0", "GPU-Z: 2 sensors", "  GPU Core Clock: 1500.000 MHz",
                                           "  VDDC: 1.050 V"}));
    GpuzBridge absent(std::unique_ptr<BlockSource>(new fakes::MemoryBlockSource({})));
    EXPECT_EQ(FormatGpuListing({}, source, &absent), "GPUs: 0\n");
}

}  // namespace
}  // namespace monitor
