// The operating system's facts for the monitor's inventory and the probe's
// OpenGL context, asked of the machine the tests run on.
#include "platform/system_facts.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/platform.h"
#include "platform/probe_gl_context.h"

namespace {

bool OnWindows() { return std::strcmp(platform::GetOsVersion().family, "Windows") == 0; }

TEST(SystemFacts, TheOsNameFactsOfThisSystem) {
    platform::OsNameFacts f = platform::ReadOsNameFacts();
    EXPECT_EQ(f.windows, OnWindows());
    EXPECT_EQ(f.bits, 64);
    if (f.windows) {
        // Wine answers RtlGetVersion like the Windows it plays.
        EXPECT_TRUE(f.versionKnown);
        EXPECT_GE(f.major, 5u);
        EXPECT_EQ(f.platformId, 2u);
        EXPECT_TRUE(f.kernelRelease.empty());
    } else {
        // The kernel release is what uname says, and the same text the
        // driver description's branch uses.
        EXPECT_FALSE(f.kernelRelease.empty());
        EXPECT_EQ(f.kernelRelease, platform::KernelRelease());
        EXPECT_EQ(f.prettyName.find('"'), std::string::npos) << f.prettyName;
        EXPECT_EQ(f.prettyName.find('\n'), std::string::npos) << f.prettyName;
    }
}

TEST(SystemFacts, CpuAndMemoryAsTheSystemKnowsThem) {
    platform::CpuSystemFacts c = platform::ReadCpuSystemFacts();
    // Every machine the tests run on has memory, and no test machine has a petabyte.
    EXPECT_GT(c.memoryMB, 64u);
    EXPECT_LT(c.memoryMB, uint64_t(1) << 30);
    EXPECT_GE(c.speedMHz, 0);
    EXPECT_LT(c.speedMHz, 100000);
    if (c.hasBrandName && !c.brandName.empty()) {
        EXPECT_NE(c.brandName[0], ' ');
    }
}

TEST(SystemFacts, DisplayAdaptersEndAndNeverMakeUpNames) {
    platform::DisplayAdapterFacts a;
    EXPECT_FALSE(platform::EnumDisplayAdapter(1000, &a));
    if (!OnWindows()) {
        EXPECT_FALSE(platform::EnumDisplayAdapter(0, &a));  // Linux reads the kernel instead
    }
    for (int i = 0; platform::EnumDisplayAdapter(i, &a) && i < 32; ++i) EXPECT_FALSE(a.name.empty()) << i;
}

TEST(ProbeGlContext, GivesEntryPointsOnlyWhileItExists) {
    platform::ProbeGlContext c;
    EXPECT_EQ(c.ProcAddress("glGetString"), nullptr);
    std::string failure;
    if (!c.Create(0, 0, 16, 16, 0, 0, false, &failure)) {
        // Where no context can be made, it says why and holds nothing.
        EXPECT_FALSE(failure.empty());
        EXPECT_EQ(c.ProcAddress("glGetString"), nullptr);
        GTEST_SKIP() << "no OpenGL context here: " << failure;
    }
    using GetStringFn = const unsigned char* (*)(unsigned);
    auto getString = reinterpret_cast<GetStringFn>(c.ProcAddress("glGetString"));
    ASSERT_NE(getString, nullptr);
    const unsigned char* version = getString(0x1F02 /* GL_VERSION */);
    ASSERT_NE(version, nullptr);
    EXPECT_TRUE(version[0] >= '1' && version[0] <= '9') << version;
    c.Release();
    c.Destroy();
    EXPECT_EQ(c.ProcAddress("glGetString"), nullptr);
    c.Destroy();  // twice is harmless
}

}  // namespace
