// The Direct3D 10 and 11 halves of the shared device code, checked without
// a device: the descriptions each API's helpers build must say the same
// thing in the API's own layout, each API binds its own pass table and
// names itself in its log lines, and a back-end without a window fails
// without touching a device.
// First, as in the device code: <windows.h> renames DrawText.
#include "scenes/fur/fur_d3d11.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "scenes/fur/d3d11_compute_program.h"
#include "scenes/fur/d3d_shaders.h"
#include "scenes/fur/fur_d3d_api.h"

namespace {

PaintBlend BlendAt(int i) { return static_cast<PaintBlend>(i); }

}  // namespace

TEST(FurD3DApi, FactorsMeanTheSameInBothApis) {
    using F = fur_d3d::BlendFactor;
    EXPECT_EQ(D3D10Api::Factor(F::kZero), D3D10_BLEND_ZERO);
    EXPECT_EQ(D3D10Api::Factor(F::kOne), D3D10_BLEND_ONE);
    EXPECT_EQ(D3D10Api::Factor(F::kSrcAlpha), D3D10_BLEND_SRC_ALPHA);
    EXPECT_EQ(D3D10Api::Factor(F::kInvSrcAlpha), D3D10_BLEND_INV_SRC_ALPHA);
    EXPECT_EQ(D3D10Api::Factor(F::kInvSrcColor), D3D10_BLEND_INV_SRC_COLOR);
    EXPECT_EQ(D3D11Api::Factor(F::kZero), D3D11_BLEND_ZERO);
    EXPECT_EQ(D3D11Api::Factor(F::kOne), D3D11_BLEND_ONE);
    EXPECT_EQ(D3D11Api::Factor(F::kSrcAlpha), D3D11_BLEND_SRC_ALPHA);
    EXPECT_EQ(D3D11Api::Factor(F::kInvSrcAlpha), D3D11_BLEND_INV_SRC_ALPHA);
    EXPECT_EQ(D3D11Api::Factor(F::kInvSrcColor), D3D11_BLEND_INV_SRC_COLOR);
}

TEST(FurD3DApi, BlendDescriptionsAgreeBetweenTheApis) {
    for (int i = 0; i < fur_d3d::kBlendCount; ++i) {
        SCOPED_TRACE(i);
        const fur_d3d::BlendMode mode = fur_d3d::BlendModeOf(BlendAt(i));
        const D3D10_BLEND_DESC a = D3D10Api::MakeBlend(mode);
        const D3D11_BLEND_DESC b = D3D11Api::MakeBlend(mode);
        const D3D11_RENDER_TARGET_BLEND_DESC& t = b.RenderTarget[0];
        EXPECT_FALSE(a.AlphaToCoverageEnable);
        EXPECT_FALSE(b.AlphaToCoverageEnable);
        EXPECT_FALSE(b.IndependentBlendEnable);  // target 0's state serves all
        // Direct3D 10 keeps one switch and one mask per target, the factors once.
        for (int k = 0; k < 8; ++k) {
            EXPECT_EQ(a.BlendEnable[k] != 0, mode.enable) << "target " << k;
            EXPECT_EQ(a.RenderTargetWriteMask[k], D3D10_COLOR_WRITE_ENABLE_ALL) << "target " << k;
        }
        EXPECT_EQ(t.BlendEnable != 0, mode.enable);
        EXPECT_EQ(t.RenderTargetWriteMask, D3D11_COLOR_WRITE_ENABLE_ALL);
        EXPECT_EQ(a.SrcBlend, D3D10Api::Factor(mode.src));
        EXPECT_EQ(a.DestBlend, D3D10Api::Factor(mode.dst));
        EXPECT_EQ(a.SrcBlendAlpha, D3D10Api::Factor(mode.srcAlpha));
        EXPECT_EQ(a.DestBlendAlpha, D3D10Api::Factor(mode.dstAlpha));
        EXPECT_EQ(t.SrcBlend, D3D11Api::Factor(mode.src));
        EXPECT_EQ(t.DestBlend, D3D11Api::Factor(mode.dst));
        EXPECT_EQ(t.SrcBlendAlpha, D3D11Api::Factor(mode.srcAlpha));
        EXPECT_EQ(t.DestBlendAlpha, D3D11Api::Factor(mode.dstAlpha));
        EXPECT_EQ(a.BlendOp, D3D10_BLEND_OP_ADD);
        EXPECT_EQ(a.BlendOpAlpha, D3D10_BLEND_OP_ADD);
        EXPECT_EQ(t.BlendOp, D3D11_BLEND_OP_ADD);
        EXPECT_EQ(t.BlendOpAlpha, D3D11_BLEND_OP_ADD);
    }
    const D3D10_BLEND_DESC alpha = D3D10Api::MakeBlend(fur_d3d::BlendModeOf(PaintBlend::kAlpha));
    EXPECT_EQ(alpha.SrcBlend, D3D10_BLEND_SRC_ALPHA);
    EXPECT_EQ(alpha.DestBlend, D3D10_BLEND_INV_SRC_ALPHA);
    const D3D11_BLEND_DESC inverse = D3D11Api::MakeBlend(fur_d3d::BlendModeOf(PaintBlend::kInverseColorAdd));
    EXPECT_EQ(inverse.RenderTarget[0].SrcBlend, D3D11_BLEND_INV_SRC_COLOR);
    EXPECT_EQ(inverse.RenderTarget[0].SrcBlendAlpha, D3D11_BLEND_ONE);
}

TEST(FurD3DApi, ViewportsCoverTheWholeView) {
    const D3D10_VIEWPORT a = D3D10Api::MakeViewport(480, 300);
    EXPECT_EQ(a.TopLeftX, 0);
    EXPECT_EQ(a.TopLeftY, 0);
    EXPECT_EQ(a.Width, 480u);
    EXPECT_EQ(a.Height, 300u);
    EXPECT_EQ(a.MinDepth, 0.0f);
    EXPECT_EQ(a.MaxDepth, 1.0f);
    const D3D11_VIEWPORT b = D3D11Api::MakeViewport(480, 300);
    EXPECT_EQ(b.TopLeftX, 0.0f);
    EXPECT_EQ(b.TopLeftY, 0.0f);
    EXPECT_EQ(b.Width, 480.0f);
    EXPECT_EQ(b.Height, 300.0f);
    EXPECT_EQ(b.MinDepth, 0.0f);
    EXPECT_EQ(b.MaxDepth, 1.0f);
}

TEST(FurD3DApi, TopologiesAreTheCommonValues) {
    EXPECT_EQ(fur_d3d::ToTopology(PaintPrimitive::kTriangles), D3D_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
    EXPECT_EQ(fur_d3d::ToTopology(PaintPrimitive::kLineStrip), D3D_PRIMITIVE_TOPOLOGY_LINESTRIP);
    EXPECT_EQ(fur_d3d::ToTopology(PaintPrimitive::kLines), D3D_PRIMITIVE_TOPOLOGY_LINELIST);
}

TEST(FurD3DApi, EachApiBindsItsOwnPassTable) {
    const fur_d3d::PassTable ten = D3D10Api::Passes();
    const fur_d3d::PassTable eleven = D3D11Api::Passes();
    ASSERT_NE(ten.For(PaintProgram::kFur).technique, nullptr);
    EXPECT_STREQ(ten.For(PaintProgram::kFur).technique, "RenderFur");
    EXPECT_STREQ(ten.For(PaintProgram::kHudTextured).technique, "RenderHudTex");
    EXPECT_EQ(eleven.For(PaintProgram::kFur).technique, nullptr);
    EXPECT_STREQ(eleven.lines.program.vertex, "D3D11RenderLineVS");
}

TEST(FurD3DApi, LogLinesNameTheApi) {
    EXPECT_STREQ(D3D10Api::kName, "Direct3D 10");
    EXPECT_STREQ(D3D10Api::kNoWindow, "Direct3D 10 window creation failed!");
    EXPECT_STREQ(D3D10Api::kInitFailed, "D3D10 initialization failed!");
    EXPECT_STREQ(D3D11Api::kName, "Direct3D 11");
    EXPECT_STREQ(D3D11Api::kNoWindow, "Direct3D 11 window creation failed!");
    EXPECT_STREQ(D3D11Api::kInitFailed, "D3D11 initialization failed!");
}

// The device half on its own, without the scene Init sets up first.
template <class Api>
class DeviceProbe : public D3DFurDevice<Api> {
public:
    using D3DFurDevice<Api>::CreateDevice;
    using D3DFurDevice<Api>::HasDevice;

protected:
    const char* ImagePrefix() const override { return "probe"; }
    std::string InitLine() const override { return "probe init ok."; }
};

// (The log line is not read back here: test programs running side by side
// share one log file in the build folder.)
template <class Api>
void ExpectNoDeviceWithoutAWindow() {
    DeviceProbe<Api> probe;
    RenderTarget noWindow;
    noWindow.width = 64;
    noWindow.height = 48;
    EXPECT_FALSE(probe.CreateDevice(noWindow, 64, 48));
    EXPECT_FALSE(probe.HasDevice());
    EXPECT_FALSE(probe.DeviceLost());
    std::string rgba;
    int w = 0, h = 0;
    EXPECT_FALSE(probe.ReadBackFrame(&rgba, &w, &h));  // nothing to read from
    probe.Terminate();  // nothing to release, and safe to repeat
    probe.Terminate();
}

TEST(FurD3DDemo, WithoutAWindowThereIsNoDevice) {
    ExpectNoDeviceWithoutAWindow<D3D10Api>();
    ExpectNoDeviceWithoutAWindow<D3D11Api>();
}

TEST(FurD3DDemo, EachClassSaysWhichApiItIs) {
    cLm4DDemo_D3D10 ten;
    cLm4DDemo_D3D11 eleven;
    EXPECT_EQ(ten.api_id, 10);
    EXPECT_EQ(eleven.api_id, 11);
    EXPECT_FALSE(ten.DeviceLost());
    EXPECT_FALSE(eleven.DeviceLost());
}

// The compute check's program is made here, checksum and all; a runtime
// refuses a program whose checksum is wrong. The system's compiler writes
// the same checksum into what it compiles.
TEST(D3D11ComputeProgram, ChecksumIsTheOneTheSystemCompilerWrites) {
    std::vector<unsigned char> code;
    std::string error;
    ASSERT_TRUE(d3d_shaders::Compile("float4 main(float4 p : POSITION) : SV_POSITION { return p * 2; }", "main",
                                     "vs_4_0", &code, &error))
        << error;
    ASSERT_GT(code.size(), 20u);
    const std::array<uint32_t, 4> sum = d3d11_compute::ContainerChecksum(code.data(), code.size());
    uint32_t written[4];
    std::memcpy(written, code.data() + 4, sizeof written);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(written[i], sum[i]) << i;
}
