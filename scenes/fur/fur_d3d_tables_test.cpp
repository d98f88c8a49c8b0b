// The Direct3D 10 and 11 back-ends' choices made without a device: which
// shaders each painter program binds, what the blend modes compute, and the
// HUD stream and read-back helpers.
#include "scenes/fur/fur_d3d_tables.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

const PaintProgram kAllPrograms[] = {PaintProgram::kBackground, PaintProgram::kSkin,    PaintProgram::kFur,
                                     PaintProgram::kPostFx,     PaintProgram::kHudFlat, PaintProgram::kHudTextured};

std::set<std::string> DefinedEntries() {
    std::set<std::string> out;
    for (const fur_hlsl::EntryPoint& e : fur_hlsl::EntryPoints()) out.insert(e.name);
    return out;
}

// Entry points a table uses, with the stage it uses each in.
std::set<std::string> UsedEntries(const fur_d3d::PassTable& t, std::set<std::string>* vertex) {
    std::set<std::string> used;
    auto add = [&](const fur_d3d::Pass& p) {
        used.insert(p.program.vertex);
        used.insert(p.program.pixel);
        vertex->insert(p.program.vertex);
    };
    for (const fur_d3d::Pass& p : t.programs) add(p);
    add(t.lines);
    return used;
}

// One channel of the blend equation (operation: add) with the API's factor
// meanings.
float Factor(fur_d3d::BlendFactor f, const float src[4], int channel) {
    switch (f) {
        case fur_d3d::BlendFactor::kZero: return 0.0f;
        case fur_d3d::BlendFactor::kOne: return 1.0f;
        case fur_d3d::BlendFactor::kSrcAlpha: return src[3];
        case fur_d3d::BlendFactor::kInvSrcAlpha: return 1.0f - src[3];
        case fur_d3d::BlendFactor::kInvSrcColor: return 1.0f - src[channel];
    }
    return -1.0f;
}

std::vector<float> Blend(PaintBlend mode, const float src[4], const float dst[4]) {
    const fur_d3d::BlendMode m = fur_d3d::BlendModeOf(mode);
    if (!m.enable) return {src[0], src[1], src[2], src[3]};
    std::vector<float> out(4);
    for (int c = 0; c < 3; ++c) out[c] = src[c] * Factor(m.src, src, c) + dst[c] * Factor(m.dst, src, c);
    out[3] = src[3] * Factor(m.srcAlpha, src, 3) + dst[3] * Factor(m.dstAlpha, src, 3);
    return out;
}

void ExpectNear(const std::vector<float>& got, const std::vector<float>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-6f) << "channel " << i;
}

}  // namespace

TEST(FurD3DPasses, Direct3D10BindsTheTechniqueTable) {
    const fur_d3d::PassTable t = fur_d3d::TechniquePasses();
    std::set<std::string> names;
    for (PaintProgram p : kAllPrograms) {
        const fur_d3d::Pass& pass = t.For(p);
        ASSERT_NE(pass.technique, nullptr);
        const fur_hlsl::Technique& technique = fur_hlsl::D3D10Technique(p);
        EXPECT_STREQ(pass.technique, technique.name);
        EXPECT_STREQ(pass.program.vertex, technique.pass.vertex);
        EXPECT_STREQ(pass.program.pixel, technique.pass.pixel);
        names.insert(pass.technique);
    }
    EXPECT_EQ(names, (std::set<std::string>{"RenderFur", "RenderFurFlat", "RenderHud", "RenderHudTex", "PostFX"}));
    EXPECT_STREQ(t.For(PaintProgram::kFur).technique, "RenderFur");
    EXPECT_STREQ(t.For(PaintProgram::kSkin).technique, "RenderFurFlat");
    EXPECT_STREQ(t.For(PaintProgram::kPostFx).technique, "PostFX");
    // Lines stay within the table: the flat HUD technique draws them.
    ASSERT_NE(t.lines.technique, nullptr);
    EXPECT_STREQ(t.lines.technique, "RenderHud");
    EXPECT_STREQ(t.lines.program.vertex, t.For(PaintProgram::kHudFlat).program.vertex);
    EXPECT_STREQ(t.lines.program.pixel, t.For(PaintProgram::kHudFlat).program.pixel);
}

TEST(FurD3DPasses, Direct3D11BindsEntryPointsAndUsesThemAll) {
    const fur_d3d::PassTable t = fur_d3d::EntryPointPasses();
    for (PaintProgram p : kAllPrograms) {
        EXPECT_EQ(t.For(p).technique, nullptr);
        EXPECT_STREQ(t.For(p).program.vertex, fur_hlsl::D3D11Program(p).vertex);
        EXPECT_STREQ(t.For(p).program.pixel, fur_hlsl::D3D11Program(p).pixel);
    }
    EXPECT_STREQ(t.lines.program.vertex, fur_hlsl::D3D11LineProgram().vertex);
    EXPECT_STREQ(t.lines.program.pixel, fur_hlsl::D3D11LineProgram().pixel);
    // Nothing the text defines is left uncompiled.
    std::set<std::string> vertex;
    EXPECT_EQ(UsedEntries(t, &vertex), DefinedEntries());
}

TEST(FurD3DPasses, EveryPassNamesDefinedEntriesInTheRightStage) {
    std::set<std::string> vertexEntries;
    for (const fur_hlsl::EntryPoint& e : fur_hlsl::EntryPoints())
        if (e.vertex) vertexEntries.insert(e.name);
    const std::set<std::string> defined = DefinedEntries();
    for (const fur_d3d::PassTable& t : {fur_d3d::TechniquePasses(), fur_d3d::EntryPointPasses()}) {
        std::set<std::string> usedAsVertex;
        for (const std::string& e : UsedEntries(t, &usedAsVertex)) EXPECT_TRUE(defined.count(e)) << e;
        for (const std::string& e : usedAsVertex) EXPECT_TRUE(vertexEntries.count(e)) << e << " is not a vertex entry";
        for (const fur_d3d::Pass& p : t.programs) EXPECT_FALSE(vertexEntries.count(p.program.pixel)) << p.program.pixel;
    }
}

TEST(FurD3DPasses, DescribeNamesTheTechniqueWhenThereIsOne) {
    EXPECT_EQ(fur_d3d::Describe(fur_d3d::TechniquePasses().For(PaintProgram::kFur)),
              "technique RenderFur (Fur_VS_D3D11, Fur_PS_D3D11)");
    EXPECT_EQ(fur_d3d::Describe(fur_d3d::EntryPointPasses().For(PaintProgram::kFur)), "Fur_VS_D3D11, Fur_PS_D3D11");
}

TEST(FurD3DPasses, CompileFailuresLeadWithTheTechnique) {
    const std::string message = "Fur_VS_D3D11: fur(12,5): error X3000: syntax error";
    EXPECT_EQ(fur_d3d::CompileFailure(fur_d3d::TechniquePasses().For(PaintProgram::kFur), message),
              "technique RenderFur: " + message);
    EXPECT_EQ(fur_d3d::CompileFailure(fur_d3d::TechniquePasses().For(PaintProgram::kPostFx), message),
              "technique PostFX: " + message);
    EXPECT_EQ(fur_d3d::CompileFailure(fur_d3d::EntryPointPasses().For(PaintProgram::kFur), message), message);
}

TEST(FurD3DBlend, ModesComputeWhatTheirNamesSay) {
    const float src[4] = {1.0f, 0.5f, 0.0f, 0.25f};
    const float dst[4] = {0.0f, 0.5f, 1.0f, 1.0f};
    ExpectNear(Blend(PaintBlend::kOpaque, src, dst), {1.0f, 0.5f, 0.0f, 0.25f});
    ExpectNear(Blend(PaintBlend::kAlpha, src, dst), {0.25f, 0.5f, 0.75f, 0.25f * 0.25f + 0.75f});
    ExpectNear(Blend(PaintBlend::kAdditive, src, dst), {1.0f, 1.0f, 1.0f, 1.25f});
    // (1 - src) * src + dst per colour channel; alpha adds whole.
    ExpectNear(Blend(PaintBlend::kInverseColorAdd, src, dst), {0.0f, 0.75f, 1.0f, 1.25f});
    EXPECT_FALSE(fur_d3d::BlendModeOf(PaintBlend::kOpaque).enable);
}

TEST(FurD3DBlend, AlphaNeverTakesAColourFactor) {
    for (int i = 0; i < fur_d3d::kBlendCount; ++i) {
        const fur_d3d::BlendMode m = fur_d3d::BlendModeOf(static_cast<PaintBlend>(i));
        EXPECT_NE(m.srcAlpha, fur_d3d::BlendFactor::kInvSrcColor) << i;
        EXPECT_NE(m.dstAlpha, fur_d3d::BlendFactor::kInvSrcColor) << i;
    }
}

TEST(FurD3DTopology, PrimitivesMapOneToOne) {
    EXPECT_EQ(fur_d3d::TopologyOf(PaintPrimitive::kTriangles), fur_d3d::Topology::kTriangleList);
    EXPECT_EQ(fur_d3d::TopologyOf(PaintPrimitive::kLineStrip), fur_d3d::Topology::kLineStrip);
    EXPECT_EQ(fur_d3d::TopologyOf(PaintPrimitive::kLines), fur_d3d::Topology::kLineList);
}

TEST(FurD3DStream, GrowsByDoublingAndNeverShrinks) {
    EXPECT_EQ(fur_d3d::StreamCapacity(0, 1), fur_d3d::kMinStreamBytes);
    EXPECT_EQ(fur_d3d::StreamCapacity(0, fur_d3d::kMinStreamBytes), fur_d3d::kMinStreamBytes);
    EXPECT_EQ(fur_d3d::StreamCapacity(0, fur_d3d::kMinStreamBytes + 1), 2 * fur_d3d::kMinStreamBytes);
    EXPECT_EQ(fur_d3d::StreamCapacity(0, 5 * fur_d3d::kMinStreamBytes), 8 * fur_d3d::kMinStreamBytes);
    // Enough already: kept, even for a small draw.
    EXPECT_EQ(fur_d3d::StreamCapacity(4 * fur_d3d::kMinStreamBytes, 10), 4 * fur_d3d::kMinStreamBytes);
    EXPECT_EQ(fur_d3d::StreamCapacity(2 * fur_d3d::kMinStreamBytes, 3 * fur_d3d::kMinStreamBytes),
              4 * fur_d3d::kMinStreamBytes);
    EXPECT_EQ(fur_d3d::StreamCapacity(0, 0), 0u);
}

TEST(FurD3DReadBack, PackRowsDropsThePitchPadding) {
    // Two rows of three texels, each row padded to 16 bytes.
    std::vector<unsigned char> mapped(32, 0xEE);
    for (int y = 0; y < 2; ++y)
        for (int b = 0; b < 12; ++b) mapped[static_cast<size_t>(y) * 16 + b] = static_cast<unsigned char>(y * 100 + b);
    std::string out = "stale";
    fur_d3d::PackRows(mapped.data(), 16, 3, 2, &out);
    ASSERT_EQ(out.size(), 24u);
    for (int y = 0; y < 2; ++y)
        for (int b = 0; b < 12; ++b)
            EXPECT_EQ(static_cast<unsigned char>(out[static_cast<size_t>(y) * 12 + b]), y * 100 + b) << y << "," << b;
    fur_d3d::PackRows(mapped.data(), 16, 0, 2, &out);
    EXPECT_TRUE(out.empty());
}

TEST(FurD3DTables, AnisotropyIsOffOnlyForWineOverASoftwareRasterizer) {
    EXPECT_FALSE(fur_d3d::AnisotropicFiltering(true, "llvmpipe (LLVM 15.0.6, 256 bits)"));
    EXPECT_FALSE(fur_d3d::AnisotropicFiltering(true, "Gallium 0.4 on softpipe"));
    EXPECT_TRUE(fur_d3d::AnisotropicFiltering(true, "NVIDIA GeForce RTX 4090/PCIe/SSE2"));
    // On Windows itself the OpenGL driver says nothing about Direct3D's: a
    // machine with only the system's OpenGL still has a hardware device.
    EXPECT_TRUE(fur_d3d::AnisotropicFiltering(false, "GDI Generic"));
    EXPECT_TRUE(fur_d3d::AnisotropicFiltering(false, "llvmpipe (LLVM 15.0.6, 256 bits)"));
    // No probe result: nothing known against it.
    EXPECT_TRUE(fur_d3d::AnisotropicFiltering(true, ""));
}
