#include "monitor/gl_probe.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/platform.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace ProbeGPUnm {
namespace {

// A scripted OpenGL driver: strings, integers and errors by enum.
struct ScriptedGl {
    std::map<unsigned, std::string> strings;
    std::vector<std::string> extensions;
    std::map<unsigned, std::vector<int>> ints;
    std::map<unsigned, float> floats;
    unsigned pendingError = 0;
    bool errorOnUnknown = true;
};
ScriptedGl* gGl = nullptr;

const unsigned char* GetString(unsigned name) {
    auto it = gGl->strings.find(name);
    if (it == gGl->strings.end()) return nullptr;
    return reinterpret_cast<const unsigned char*>(it->second.c_str());
}
const unsigned char* GetStringi(unsigned, unsigned i) {
    return i < gGl->extensions.size() ? reinterpret_cast<const unsigned char*>(gGl->extensions[i].c_str()) : nullptr;
}
void GetIntegerv(unsigned name, int* out) {
    auto it = gGl->ints.find(name);
    if (it == gGl->ints.end()) {
        if (gGl->errorOnUnknown) gGl->pendingError = 0x0500;  // GL_INVALID_ENUM
        return;
    }
    for (size_t i = 0; i < it->second.size(); ++i) out[i] = it->second[i];
}
void GetFloatv(unsigned name, float* out) {
    auto it = gGl->floats.find(name);
    if (it == gGl->floats.end()) {
        gGl->pendingError = 0x0500;
        return;
    }
    *out = it->second;
}
unsigned GetError() {
    unsigned e = gGl->pendingError;
    gGl->pendingError = 0;
    return e;
}

GlFunctions Functions() {
    GlFunctions f;
    f.getString = &GetString;
    f.getStringi = &GetStringi;
    f.getIntegerv = &GetIntegerv;
    f.getFloatv = &GetFloatv;
    f.getError = &GetError;
    return f;
}

TEST(GlVersion, LeadingNumbersOnly) {
    int a = 0, b = 0;
    EXPECT_TRUE(ParseGlVersion("4.6 (Compatibility Profile) Mesa 23.1.2", &a, &b));
    EXPECT_EQ(a, 4);
    EXPECT_EQ(b, 6);
    EXPECT_TRUE(ParseGlVersion("2.1.2 NVIDIA 340.108", &a, &b));
    EXPECT_EQ(a, 2);
    EXPECT_EQ(b, 1);
    EXPECT_FALSE(ParseGlVersion("OpenGL ES 3.2 Mesa", &a, &b));
    EXPECT_FALSE(ParseGlVersion("", &a, &b));
    EXPECT_FALSE(ParseGlVersion(nullptr, &a, &b));
    EXPECT_FALSE(ParseGlVersion("400.1", &a, &b));
}

TEST(GlCaps, AModernCoreContext) {
    ScriptedGl gl;
    gl.strings = {{0x1F00, "NVIDIA Corporation"}, {0x1F01, "NVIDIA GeForce RTX 4090/PCIe/SSE2"}, {0x1F02, "4.6.0 NVIDIA 550.54.14"}};
    gl.extensions = {"GL_ARB_bindless_texture", "GL_NVX_gpu_memory_info", "GL_EXT_texture_filter_anisotropic", "GL_KHR_debug"};
    gl.ints = {{0x821D, {4}},       {0x0D33, {32768}},          {0x0D3A, {32768, 32768}}, {0x8073, {16384}},
               {0x8872, {32}},      {0x8D57, {32}},             {0x9047, {25165824}}};
    gl.floats = {{0x8E7E, 64.0f}};
    gGl = &gl;
    GlCaps c = ReadGlCaps(Functions());
    ASSERT_TRUE(c.valid);
    EXPECT_EQ(c.renderer, "NVIDIA GeForce RTX 4090/PCIe/SSE2");
    EXPECT_EQ(c.major, 4);
    EXPECT_EQ(c.minor, 6);
    EXPECT_EQ(c.maxTextureSize, 32768);
    EXPECT_EQ(c.maxViewportWidth, 32768);
    EXPECT_EQ(c.maxViewportHeight, 32768);
    EXPECT_EQ(c.max3DTextureSize, 16384);
    EXPECT_EQ(c.maxTextureImageUnits, 32);
    EXPECT_EQ(c.maxSamples, 32);
    EXPECT_FLOAT_EQ(c.maxTessLevel, 64.0f);
    EXPECT_EQ(c.videoMemoryMB, 24576);
    EXPECT_TRUE(c.caps[kCapTessellation]);
    EXPECT_TRUE(c.caps[kCapComputeShader]);
    EXPECT_TRUE(c.caps[kCapBindlessTexture]);
    EXPECT_TRUE(c.caps[kCapAnisotropic]);
    EXPECT_FALSE(c.caps[kCapSparseTexture]);
    EXPECT_FALSE(c.caps[kCapS3TC]);
}

TEST(GlCaps, AnOldContextListsExtensionsInOneString) {
    ScriptedGl gl;
    gl.strings = {{0x1F00, "ATI Technologies Inc."},
                  {0x1F01, "Radeon X1900 Series"},
                  {0x1F02, "2.1.8545 Release"},
                  {0x1F03, "GL_ARB_multisample GL_EXT_texture_compression_s3tc GL_ATI_meminfo  GL_ARB_texture_float"}};
    gl.ints = {{0x0D33, {4096}}, {0x0D3A, {4096, 4096}}, {0x8073, {2048}}, {0x8872, {16}}, {0x87FC, {262144, 0, 0, 0}}};
    gGl = &gl;
    GlCaps c = ReadGlCaps(Functions());
    ASSERT_TRUE(c.valid);
    EXPECT_EQ(c.major, 2);
    EXPECT_TRUE(c.caps[kCapS3TC]);
    EXPECT_TRUE(c.caps[kCapTextureFloat]);
    EXPECT_TRUE(c.caps[kCapAtiMemInfo]);
    EXPECT_FALSE(c.caps[kCapTessellation]);
    EXPECT_FALSE(c.caps[kCapComputeShader]);
    EXPECT_FLOAT_EQ(c.maxTessLevel, 0.0f);  // not asked of a context without tessellation
    EXPECT_EQ(c.maxSamples, 0);
    EXPECT_EQ(c.videoMemoryMB, 256);
}

TEST(GlCaps, ErrorsAndNonsenseGiveZeroNotGarbage) {
    ScriptedGl gl;
    gl.strings = {{0x1F00, "Mesa"}, {0x1F01, "llvmpipe"}, {0x1F02, "4.5 (Core Profile) Mesa 22.3.6"}};
    gl.ints = {{0x821D, {-3}}, {0x0D33, {-1}}, {0x0D3A, {0, 16384}}, {0x8D57, {99999}}};
    gGl = &gl;
    GlCaps c = ReadGlCaps(Functions());
    ASSERT_TRUE(c.valid);
    EXPECT_EQ(c.maxTextureSize, 0);
    EXPECT_EQ(c.maxViewportWidth, 0);
    EXPECT_EQ(c.max3DTextureSize, 0);  // raised an error
    EXPECT_EQ(c.maxSamples, 0);
    EXPECT_FLOAT_EQ(c.maxTessLevel, 0.0f);
    EXPECT_TRUE(c.caps[kCapTessellation]);  // from the version alone

    ScriptedGl broken;
    broken.strings = {{0x1F02, "garbage"}};
    gGl = &broken;
    EXPECT_FALSE(ReadGlCaps(Functions()).valid);
    EXPECT_FALSE(ReadGlCaps(GlFunctions()).valid);
}

#if !defined(_WIN32)
TEST(RenderWindow, AHeadlessEglContextOnThisMachine) {
    RenderWindow w;
    if (!w.Create(0, 0, 32, 32, 0, 0, 0)) {
        // Only a machine without an EGL library has no context at all.
        ASSERT_EQ(w.failure(), "libEGL.so.1 not found");
        GTEST_SKIP() << "no libEGL.so.1 here";
    }
    ASSERT_TRUE(w.created());
    const GlCaps& c = w.caps();
    EXPECT_TRUE(c.valid);
    EXPECT_FALSE(c.renderer.empty());
    EXPECT_GE(c.major, 2);
    EXPECT_GT(c.maxTextureSize, 0);
    w.Destroy();
    EXPECT_FALSE(w.created());
    // Made again after a release: nothing of the first one is in the way.
    ASSERT_TRUE(w.Create(0, 0, 32, 32, 0, 0, 0));
}
#else
TEST(RenderWindow, AContextWhereThereIsADisplayAndNoClassLeftBehind) {
    RenderWindow w;
    bool ok = w.Create(0, 0, 32, 32, 0, 0, 0);
    if (platform::HasDisplay()) {
        // Wine with an X display (and Mesa) gives WGL contexts.
        ASSERT_TRUE(ok) << w.failure();
        EXPECT_TRUE(w.caps().valid);
        EXPECT_FALSE(w.caps().renderer.empty());
        WNDCLASSEXA wc;
        wc.cbSize = sizeof wc;
        EXPECT_TRUE(GetClassInfoExA(GetModuleHandleA(nullptr), "ProbeGPU_DummyW", &wc));
        w.Destroy();
    } else if (ok) {
        w.Destroy();
    } else {
        EXPECT_FALSE(w.failure().empty());
    }
    WNDCLASSEXA wc;
    wc.cbSize = sizeof wc;
    EXPECT_FALSE(GetClassInfoExA(GetModuleHandleA(nullptr), "ProbeGPU_DummyW", &wc));
}
#endif

}  // namespace
}  // namespace ProbeGPUnm
