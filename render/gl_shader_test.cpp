#include "render/gl_shader.h"

#include <gtest/gtest.h>

TEST(IsSoftwareRasterizer, KnowsTheCpuRenderersByTheirRendererText) {
    for (const char* cpu : {"llvmpipe (LLVM 15.0.6, 256 bits)", "softpipe", "Mesa X11 Software Rasterizer",
                            "Google SwiftShader", "GDI Generic", "LLVMPIPE (LLVM 12.0.0, 128 bits)"})
        EXPECT_TRUE(IsSoftwareRasterizer(cpu)) << cpu;
    for (const char* gpu : {"NVIDIA H100 80GB HBM3/PCIe/SSE2", "AMD Radeon RX 7900 XTX (radeonsi, navi31, LLVM 15.0.7)",
                            "Mesa Intel(R) UHD Graphics 770 (ADL-S GT1)", "", "virgl (LLVM pipe on the host)"})
        EXPECT_FALSE(IsSoftwareRasterizer(gpu)) << gpu;
}
