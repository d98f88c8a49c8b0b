// The registry of vendor back-ends and discovery's walks over it: the
// program's list, and start-up over a scripted list whose back-ends record
// what discovery asks of them.
#include "monitor/vendor_backend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "monitor/fakes/test_env.h"
#include "monitor/probe_gpu.h"
#include "monitor/probe_log.h"
#include "platform/platform.h"

namespace ProbeGPU {
namespace {

std::vector<std::string> Names(const std::vector<const VendorBackend*>& list) {
    std::vector<std::string> out;
    for (const VendorBackend* b : list) out.push_back(b->name);
    return out;
}

TEST(VendorRegistry, ListsThisPlatformsBackEndsInDiscoveryOrder) {
    const bool windows = ThisPlatform() == kOnWindows;
    std::vector<std::string> expected = windows ? std::vector<std::string>{"NVAPI", "ADL", "DRIVER_KEY", "GL"}
                                                : std::vector<std::string>{"NVML", "SYSFS", "GL"};
    EXPECT_EQ(Names(VendorBackends()), expected);
    // Every back-end the program has is listed once, whatever the platform.
    std::vector<std::string> all = Names(AllVendorBackends());
    EXPECT_EQ(std::set<std::string>(all.begin(), all.end()).size(), all.size());
    EXPECT_EQ(all.size(), 6u);
}

TEST(VendorRegistry, EveryPlatformHasOneAdapterListAndClosesTheContextLast) {
    for (unsigned platform : {unsigned(kOnWindows), unsigned(kOnLinux)}) {
        int adapterLists = 0;
        bool contextSeen = false;
        for (const VendorBackend* b : AllVendorBackends()) {
            ASSERT_NE(b->open, nullptr) << b->name;
            ASSERT_NE(b->close, nullptr) << b->name;
            if (!(b->platforms & platform)) continue;
            if (b->listAdapters) ++adapterLists;
            // The vendor libraries may refer to the driver's context: the
            // context back-end is closed (and listed) after all of them.
            if (b->stage == DiscoveryStage::kContext) {
                contextSeen = true;
                // Only the inventory stage has log steps of its own.
                EXPECT_EQ(b->logStep, nullptr) << b->name;
            } else {
                EXPECT_FALSE(contextSeen) << b->name << " comes after the context";
            }
        }
        EXPECT_EQ(adapterLists, 1) << "platform " << platform;
        EXPECT_TRUE(contextSeen) << "platform " << platform;
    }
}

// ------------------------------------------------------------ scripted registry

std::vector<std::string> gCalls;
bool gSecondContextFails = false;

bool FailingOpen(Root&, const ContextRequest&) {
    gCalls.push_back("open broken");
    return false;
}
bool BrokenMemory(const Root&, int*) {
    gCalls.push_back("memory broken");
    return false;
}
void BrokenClose(Root&) { gCalls.push_back("close broken"); }

// A working interface: two GPUs of its own, a driver version, 2 GB.
struct FakeSensors : GpuSensorBackend {
    const char* Name() const override { return "fake"; }
} gFakeSensors;
bool GoodOpen(Root&, const ContextRequest&) {
    gCalls.push_back("open good");
    return true;
}
void GoodFacts(const Root&, DriverFacts* f) { f->genericVersion = "fake driver 1.2"; }
void GoodList(Root&, std::vector<GpuSlot>* gpus) {
    for (int i = 0; i < 2; ++i) {
        GpuSlot s;
        s.name = "Fake GPU " + std::to_string(i);
        s.backend = &gFakeSensors;
        s.backendIndex = i;
        gpus->push_back(s);
    }
}
bool GoodMemory(const Root&, int* mb) {
    gCalls.push_back("memory good");
    *mb = 2048;
    return true;
}
bool GoodCount(const Root&, int* n) {
    *n = 2;
    return true;
}
int GoodCores(const Root&) { return 777; }
void GoodClose(Root&) { gCalls.push_back("close good"); }

bool SecondContextOpen(Root&, const ContextRequest& r) {
    gCalls.push_back("open second context " + std::to_string(r.width) + "x" + std::to_string(r.height));
    return !gSecondContextFails;
}
void SecondContextClose(Root&) { gCalls.push_back("close second context"); }

const VendorBackend kBroken = {"BROKEN",      kOnWindows | kOnLinux, DiscoveryStage::kInventory, "BROKEN_Init()", nullptr,
                               &FailingOpen,  nullptr,               nullptr,                    nullptr,         &BrokenMemory,
                               nullptr,       nullptr,               &BrokenClose};
const VendorBackend kGood = {"GOOD",    kOnWindows | kOnLinux, DiscoveryStage::kInventory, "GOOD_Init()", nullptr, &GoodOpen,
                             &GoodFacts, &GoodList,            nullptr,                    &GoodMemory,   &GoodCount, &GoodCores,
                             &GoodClose};
const VendorBackend kSecondContext = {"CONTEXT2", kOnWindows | kOnLinux, DiscoveryStage::kContext, nullptr, nullptr,
                                      &SecondContextOpen, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      &SecondContextClose};

const VendorBackend* ProgramsGl() {
    for (const VendorBackend* b : AllVendorBackends())
        if (std::string(b->name) == "GL") return b;
    return nullptr;
}

bool ScriptedContext(int, int, int, int, int, int, int, ProbeGPUnm::GlCaps* caps) {
    gCalls.push_back("GL context");
    caps->valid = true;
    caps->vendor = "Mesa";
    caps->renderer = "llvmpipe (LLVM 15.0.6, 256 bits)";
    caps->version = "4.5 (Compatibility Profile) Mesa 22.3.6";
    caps->major = 4;
    caps->minor = 5;
    caps->videoMemoryMB = 512;
    return true;
}

class ScriptedDiscovery : public ::testing::Test {
protected:
    void SetUp() override {
        shutdown();
        gCalls.clear();
        gSecondContextFails = false;
        SetContextFactoryForTests(&ScriptedContext);
        SetVendorBackendsForTests(&backends);
        gProbeLog.Enable(logPath);
    }
    void TearDown() override {
        shutdown();
        SetVendorBackendsForTests(nullptr);
        SetContextFactoryForTests(nullptr);
        gProbeLog.Disable();
    }
    std::string Log() {
        gProbeLog.Disable();
        return fakes::ReadTextFile(logPath);
    }
    // The lines in this order, each whole, others between them allowed.
    void ExpectInOrder(const std::string& log, const std::vector<std::string>& lines) {
        size_t pos = 0;
        for (const std::string& l : lines) {
            size_t p = log.find(">> " + l + platform::TextNewline(), pos);
            ASSERT_NE(p, std::string::npos) << l << "\n" << log;
            pos = p + 1;
        }
    }
    std::vector<const VendorBackend*> backends{&kBroken, &kGood, ProgramsGl(), &kSecondContext};
    std::string logPath = fakes::TempPath("registry") + ".log";
};

TEST_F(ScriptedDiscovery, ABackEndThatFailsToOpenIsPassedAndLoggedLikeTheOthers) {
    ASSERT_TRUE(startup(0, 0, 64, 48, 0, 0, 0));
    ExpectInOrder(Log(), {"HardwareCaps::init() - START", "HardwareCaps::init() - BROKEN_Init()",
                          "HardwareCaps::init() - BROKEN_Init() OK.", "HardwareCaps::init() - GOOD_Init()",
                          "HardwareCaps::init() - GOOD_Init() OK.", "HardwareCaps::init() - END OK.",
                          "ProbeGPU::startup() - ProbeGPU_DummyW", "ProbeGPU::startup() - ProbeGPU_DummyW OK.",
                          "ProbeGPU::scanGraphicsHardware() - GPU 0: Fake GPU 0 [FFFF-FFFF] via fake",
                          "ProbeGPU::scanGraphicsHardware() - GPU 1: Fake GPU 1 [FFFF-FFFF] via fake"});
    std::vector<std::string> opened(gCalls.begin(), gCalls.begin() + 4);
    EXPECT_EQ(opened, (std::vector<std::string>{"open broken", "open good", "GL context", "open second context 64x48"}));
}

TEST_F(ScriptedDiscovery, TheScanTakesEachFigureFromTheFirstBackEndThatHasIt) {
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    // The broken interface was asked first and had no say; the good one's
    // 2 GB beat the OpenGL context's 512 MB, which comes last.
    EXPECT_EQ(getVideoMemoryMB(), 2048);
    EXPECT_EQ(std::count(gCalls.begin(), gCalls.end(), "memory broken"), 1);
    EXPECT_EQ(getGpuCount(), 2);
    EXPECT_EQ(getVendorApiGpuCount(), 2);
    ASSERT_NE(getGpu(1), nullptr);
    EXPECT_EQ(getGpu(1)->backend, &gFakeSensors);
    EXPECT_EQ(getGpu(1)->backendIndex, 1);
    EXPECT_STREQ(getDriverDescription(), "fake driver 1.2");
}

TEST_F(ScriptedDiscovery, WithoutAVendorFigureTheOpenGlMemoryStands) {
    backends = {&kBroken, ProgramsGl()};
    ASSERT_TRUE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_EQ(getVideoMemoryMB(), 512);
    // No interface lists GPUs: the display device (the renderer) is the one GPU.
    EXPECT_EQ(getGpuCount(), 1);
    ASSERT_NE(getGpu(0), nullptr);
    EXPECT_EQ(getGpu(0)->backend, nullptr);
    EXPECT_EQ(getGpu(0)->name, "llvmpipe (LLVM 15.0.6, 256 bits)");
    EXPECT_EQ(getVendorApiGpuCount(), 0);
}

TEST_F(ScriptedDiscovery, AFailedContextStopsStartUpAndEveryBackEndIsClosedInOrder) {
    gSecondContextFails = true;
    EXPECT_FALSE(startup(0, 0, 32, 32, 0, 0, 0));
    EXPECT_FALSE(isStarted());
    gCalls.clear();
    shutdown();
    // Closed even where opening failed: a half-opened library lets go too.
    EXPECT_EQ(gCalls, (std::vector<std::string>{"close broken", "close good", "close second context"}));
}

}  // namespace
}  // namespace ProbeGPU
