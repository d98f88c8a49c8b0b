// The shader-model-4 text and its constant buffers, checked without a
// device: the C++ mirrors must lay out every field where the HLSL packing
// rules put it, every entry point a technique names must be defined, and
// the text must stay within what every compiler the program meets handles.
#include "scenes/fur/fur_hlsl.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace {

struct Declared {
    std::string name;
    size_t offset;
    size_t size;
};

// Offsets by the cbuffer packing rules: a member never straddles a 16-byte
// register, and matrices start a register of their own.
std::map<std::string, std::vector<Declared>> ParseBuffers(const std::string& text, std::map<std::string, int>* slots) {
    std::map<std::string, std::vector<Declared>> out;
    const std::regex head(R"(cbuffer\s+(\w+)\s*:\s*register\(b(\d+)\)\s*\{([^}]*)\})");
    const std::regex member(R"((float4x4|float4|float3|float2|float|int)\s+(\w+)\s*;)");
    const std::map<std::string, size_t> sizes = {{"float", 4}, {"int", 4}, {"float2", 8},
                                                 {"float3", 12}, {"float4", 16}, {"float4x4", 64}};
    for (auto it = std::sregex_iterator(text.begin(), text.end(), head); it != std::sregex_iterator(); ++it) {
        const std::string name = (*it)[1];
        (*slots)[name] = std::stoi((*it)[2]);
        const std::string body = (*it)[3];
        size_t offset = 0;
        for (auto m = std::sregex_iterator(body.begin(), body.end(), member); m != std::sregex_iterator(); ++m) {
            const std::string type = (*m)[1];
            const size_t size = sizes.at(type);
            const bool wholeRegisters = type == "float4x4";
            if (wholeRegisters || (offset % 16) + size > 16) offset = (offset + 15) / 16 * 16;
            out[name].push_back({(*m)[2], offset, size});
            offset += size;
        }
    }
    return out;
}

TEST(FurHlsl, ConstantBuffersMatchTheirDeclarations) {
    const std::string text = fur_hlsl::Source(50);
    std::map<std::string, int> slots;
    const auto declared = ParseBuffers(text, &slots);
    ASSERT_EQ(declared.size(), 4u);
    for (const fur_hlsl::CbLayout& buffer : fur_hlsl::ConstantBuffers()) {
        SCOPED_TRACE(buffer.name);
        ASSERT_EQ(declared.count(buffer.name), 1u);
        EXPECT_EQ(slots[buffer.name], buffer.slot);
        EXPECT_EQ(buffer.size % 16, 0u) << "constant buffers are whole registers";
        const std::vector<Declared>& fields = declared.at(buffer.name);
        ASSERT_EQ(fields.size(), buffer.fields.size());
        for (size_t i = 0; i < fields.size(); ++i) {
            EXPECT_EQ(fields[i].name, buffer.fields[i].name);
            EXPECT_EQ(fields[i].offset, buffer.fields[i].offset) << fields[i].name;
            EXPECT_EQ(fields[i].size, buffer.fields[i].size) << fields[i].name;
        }
        EXPECT_LE(fields.back().offset + fields.back().size, buffer.size);
    }
    // The fur variables live in cbPerObject under their Direct3D names.
    const auto& object = declared.at("cbPerObject");
    std::set<std::string> names;
    for (const Declared& d : object) names.insert(d.name);
    for (const char* n : {"g_FurLength", "g_Layer", "g_UVScale", "g_worldViewProjection", "g_modelView", "g_viewMatrix",
                          "g_matWorld"})
        EXPECT_TRUE(names.count(n)) << n;
}

TEST(FurHlsl, EveryEntryPointIsDefinedOnceAndTechniquesNameThem) {
    const std::string text = fur_hlsl::Source(8);
    std::set<std::string> entries;
    for (const fur_hlsl::EntryPoint& e : fur_hlsl::EntryPoints()) {
        entries.insert(e.name);
        const std::regex definition(std::string(R"(\b\w+\s+)") + e.name + R"(\s*\()");
        auto begin = std::sregex_iterator(text.begin(), text.end(), definition);
        EXPECT_EQ(std::distance(begin, std::sregex_iterator()), 1) << e.name;
    }
    for (PaintProgram p : {PaintProgram::kBackground, PaintProgram::kSkin, PaintProgram::kFur, PaintProgram::kPostFx,
                           PaintProgram::kHudFlat, PaintProgram::kHudTextured}) {
        EXPECT_TRUE(entries.count(fur_hlsl::D3D11Program(p).vertex));
        EXPECT_TRUE(entries.count(fur_hlsl::D3D11Program(p).pixel));
        EXPECT_STREQ(fur_hlsl::D3D10Technique(p).pass.vertex, fur_hlsl::D3D11Program(p).vertex);
        EXPECT_STREQ(fur_hlsl::D3D10Technique(p).pass.pixel, fur_hlsl::D3D11Program(p).pixel);
    }
    std::set<std::string> techniques;
    for (PaintProgram p : {PaintProgram::kSkin, PaintProgram::kFur, PaintProgram::kPostFx, PaintProgram::kHudFlat,
                           PaintProgram::kHudTextured})
        techniques.insert(fur_hlsl::D3D10Technique(p).name);
    EXPECT_EQ(techniques, (std::set<std::string>{"RenderFur", "RenderFurFlat", "RenderHud", "RenderHudTex", "PostFX"}));
    // The functions of the text are exactly the entry points: no helpers.
    const std::regex function(R"((?:float4|SURFACE_OUTPUT|SCREEN_OUTPUT)\s+(\w+)\s*\()");
    std::set<std::string> defined;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), function); it != std::sregex_iterator(); ++it)
        defined.insert((*it)[1]);
    EXPECT_EQ(defined, entries);
}

TEST(FurHlsl, TheTextAvoidsWhatSomeCompilersGetWrong) {
    for (int samples : {1, 50}) {
        const std::string text = fur_hlsl::Source(samples);
        for (const char* banned : {"for", "while", "do", "sin", "cos", "sqrt", "exp", "frac", "step", "smoothstep",
                                   "clip", "discard", "unroll", "loop", "technique", "tex2D"}) {
            EXPECT_FALSE(std::regex_search(text, std::regex(std::string("\\b") + banned + "\\b"))) << banned;
        }
        EXPECT_EQ(text.find('?'), std::string::npos);
        // The post effect is unrolled to the asked number of samples.
        size_t count = 0;
        for (size_t at = text.find("colorMap.Sample(samClamp, d * scale"); at != std::string::npos;
             at = text.find("colorMap.Sample(samClamp, d * scale", at + 1))
            ++count;
        EXPECT_EQ(count, static_cast<size_t>(samples));
        EXPECT_NE(text.find("return sum * " + std::to_string(1.0 / samples)), std::string::npos);
    }
    // A count below one still draws one sample.
    EXPECT_NE(fur_hlsl::Source(0).find("colorMap.Sample(samClamp, d * scale"), std::string::npos);
}

TEST(FurHlsl, LightsAndPixelMatrix) {
    const fur_hlsl::CbLights l = fur_hlsl::Lights();
    EXPECT_FLOAT_EQ(l.g_lightPosition0[0], kFurLights[0].position.x);
    EXPECT_FLOAT_EQ(l.g_lightPosition1[1], kFurLights[1].position.y);
    EXPECT_FLOAT_EQ(l.g_lightPosition0[3], 1.0f);
    EXPECT_FLOAT_EQ(l.g_lightDiffuse1[2], kFurLights[1].diffuse[2]);
    EXPECT_FLOAT_EQ(l.matDiffuse[0], kFurMaterialDiffuse[0]);

    // Pixel corners land on the clip corners, y down, column-major.
    float m[16];
    fur_hlsl::HudMatrix(640, 360, m);
    auto apply = [&](float x, float y, float* cx, float* cy) {
        *cx = m[0] * x + m[4] * y + m[12];
        *cy = m[1] * x + m[5] * y + m[13];
    };
    float cx, cy;
    apply(0, 0, &cx, &cy);
    EXPECT_FLOAT_EQ(cx, -1.0f);
    EXPECT_FLOAT_EQ(cy, 1.0f);
    apply(640, 360, &cx, &cy);
    EXPECT_FLOAT_EQ(cx, 1.0f);
    EXPECT_FLOAT_EQ(cy, -1.0f);
    EXPECT_FLOAT_EQ(m[15], 1.0f);
}

TEST(MipChain, HalvesDownToOneTexelAveragingBlocks) {
    Image base;
    base.width = 4;
    base.height = 2;
    // Columns of 0 and 200 in red, rows of 100 and 0 in alpha.
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) base.rgba.insert(base.rgba.end(), {static_cast<unsigned char>(x % 2 ? 200 : 0), 7, 0,
                                                                    static_cast<unsigned char>(y ? 0 : 100)});
    const std::vector<Image> levels = MipChain(base);
    ASSERT_EQ(levels.size(), 3u);  // 4x2, 2x1, 1x1
    EXPECT_EQ(levels[1].width, 2);
    EXPECT_EQ(levels[1].height, 1);
    EXPECT_EQ(levels[2].width, 1);
    EXPECT_EQ(levels[2].height, 1);
    EXPECT_EQ(levels[1].rgba, (std::vector<unsigned char>{100, 7, 0, 50, 100, 7, 0, 50}));
    EXPECT_EQ(levels[2].rgba, (std::vector<unsigned char>{100, 7, 0, 50}));

    // A tall picture keeps its one column.
    Image tall;
    tall.width = 1;
    tall.height = 4;
    tall.rgba = {0, 0, 0, 0, 40, 40, 40, 40, 80, 80, 80, 80, 120, 120, 120, 120};
    const std::vector<Image> t = MipChain(tall);
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[1].rgba, (std::vector<unsigned char>{20, 20, 20, 20, 100, 100, 100, 100}));
    EXPECT_EQ(t[2].rgba, (std::vector<unsigned char>{60, 60, 60, 60}));
    EXPECT_TRUE(MipChain(Image()).empty());
}

}  // namespace
