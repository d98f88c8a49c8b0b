// The Direct3D 9 programs checked without a device: every shader is run by
// a small interpreter of the assembly the generator writes, which also
// holds the text to the rules the assembler and the runtime enforce
// (declared inputs and samplers, one constant and one input register per
// instruction, no temporary read before it is written, every constant
// register read lying in the table of its stage), and the results are
// compared with the same computation done in C++.
#include "scenes/fur/fur_d3d9_asm.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "render/math3d.h"
#include "scenes/fur/fur_hlsl.h"
#include "scenes/fur/fur_scene.h"

namespace {

using fur_d3d9::Const;
using fur_d3d9::ShaderStage;
using Vec = std::array<float, 4>;

struct Operand {
    bool negate = false;
    std::string reg;  // "r3", "c24", "oC0", "s1"
    char type = 0;    // r v c o s (oC0 is 'o')
    int swizzle[4] = {0, 1, 2, 3};
    bool mask[4] = {true, true, true, true};
};

Operand Parse(std::string text) {
    Operand o;
    size_t start = text.find_first_not_of(' ');
    text = text.substr(start, text.find_last_not_of(' ') - start + 1);
    if (text[0] == '-') {
        o.negate = true;
        text = text.substr(1);
    }
    const size_t dot = text.find('.');
    o.reg = text.substr(0, dot);
    o.type = o.reg[0];
    if (dot != std::string::npos) {
        const std::string sw = text.substr(dot + 1);
        for (int i = 0; i < 4; ++i) {
            o.mask[i] = sw.find("xyzw"[i]) != std::string::npos;
            o.swizzle[i] = static_cast<int>(std::string("xyzw").find(sw[std::min<size_t>(i, sw.size() - 1)]));
        }
    }
    return o;
}

// Runs one shader on the given inputs and constants, checking the rules as
// it goes; `sample` answers texld.
struct Machine {
    std::map<std::string, Vec> regs;                   // every register's value
    std::map<std::string, std::array<bool, 4>> ready;  // components written (temporaries, outputs) or declared (inputs)
    std::set<std::string> samplers;
    std::vector<std::string> errors;
    std::set<std::pair<int, int>> constantReads;  // (register, component) outside the literals
    std::set<int> literals;
    int texlds = 0;
    std::function<Vec(int sampler, float u, float v)> sample = [](int, float, float) { return Vec{0, 0, 0, 0}; };

    Vec Read(const Operand& o, int component) {
        const int c = o.swizzle[component];
        if (o.type == 'r' || o.type == 'v') {
            if (!ready[o.reg][c]) errors.push_back(o.reg + "." + "xyzw"[c] + " read before it is written or declared");
        } else if (o.type == 'c') {
            const int reg = std::stoi(o.reg.substr(1));
            if (!literals.count(reg)) constantReads.insert({reg, c});
        }
        const float v = regs[o.reg][c];
        return Vec{o.negate ? -v : v};
    }
    float R(const Operand& o, int component) { return Read(o, component)[0]; }

    void Execute(const std::string& text, ShaderStage stage) {
        std::istringstream in(text);
        std::string line;
        std::getline(in, line);
        if (line != (stage == ShaderStage::kVertex ? "vs_3_0" : "ps_3_0")) errors.push_back("version: " + line);
        while (std::getline(in, line)) {
            if (line.empty() || line.compare(0, 2, "//") == 0) continue;
            std::string op = line.substr(0, line.find(' '));
            std::vector<std::string> fields;
            std::stringstream rest(line.substr(op.size()));
            for (std::string a; std::getline(rest, a, ',');) fields.push_back(a);
            if (op == "def") {
                const std::string reg = Parse(fields.at(0)).reg;
                literals.insert(std::stoi(reg.substr(1)));
                for (int i = 0; i < 4; ++i) regs[reg][i] = std::stof(fields.at(1 + i));
                continue;
            }
            std::vector<Operand> args;
            for (const std::string& f : fields) args.push_back(Parse(f));
            if (op.compare(0, 4, "dcl_") == 0) {
                if (op == "dcl_2d")
                    samplers.insert(args[0].reg);
                else if (args[0].type == 'v')
                    ready[args[0].reg] = {args[0].mask[0], args[0].mask[1], args[0].mask[2], args[0].mask[3]};
                else if (args[0].type == 'o')
                    regs[args[0].reg];  // declared output
                continue;
            }
            std::set<std::string> constants, inputs;
            for (size_t i = 1; i < args.size(); ++i) {
                if (args[i].type == 'c') constants.insert(args[i].reg);
                if (args[i].type == 'v') inputs.insert(args[i].reg);
            }
            if (constants.size() > 1) errors.push_back("two constant registers: " + line);
            if (inputs.size() > 1) errors.push_back("two input registers: " + line);
            const bool saturate = op.size() > 4 && op.compare(op.size() - 4, 4, "_sat") == 0;
            if (saturate) op.resize(op.size() - 4);
            const Operand& d = args[0];
            if (d.type == 'o' && !regs.count(d.reg) && d.reg != "oC0") errors.push_back("undeclared output: " + line);
            Vec out{};
            if (op == "mov" || op == "add" || op == "mul" || op == "mad") {
                for (int i = 0; i < 4; ++i) {
                    if (!d.mask[i]) continue;
                    const float a = R(args[1], i);
                    if (op == "mov")
                        out[i] = a;
                    else if (op == "add")
                        out[i] = a + R(args[2], i);
                    else if (op == "mul")
                        out[i] = a * R(args[2], i);
                    else
                        out[i] = a * R(args[2], i) + R(args[3], i);
                }
            } else if (op == "dp3" || op == "dp4") {
                float s = 0;
                for (int i = 0; i < (op == "dp3" ? 3 : 4); ++i) s += R(args[1], i) * R(args[2], i);
                out = {s, s, s, s};
            } else if (op == "nrm") {
                const float x = R(args[1], 0), y = R(args[1], 1), z = R(args[1], 2);
                const float len = std::sqrt(x * x + y * y + z * z);
                out = {x / len, y / len, z / len, 0};
                if (d.mask[3]) errors.push_back("nrm writes w: " + line);
            } else if (op == "texld") {
                if (stage != ShaderStage::kPixel || !samplers.count(args[2].reg))
                    errors.push_back("undeclared sampler: " + line);
                out = sample(std::stoi(args[2].reg.substr(1)), R(args[1], 0), R(args[1], 1));
                ++texlds;
            } else {
                errors.push_back("unknown instruction: " + line);
            }
            if (d.type != 'r' && d.type != 'o') errors.push_back("writes a read-only register: " + line);
            for (int i = 0; i < 4; ++i) {
                if (!d.mask[i]) continue;
                regs[d.reg][i] = saturate ? std::min(1.0f, std::max(0.0f, out[i])) : out[i];
                ready[d.reg][i] = true;
            }
        }
        const std::string result = stage == ShaderStage::kVertex ? "o0" : "oC0";
        for (int i = 0; i < 4; ++i)
            if (!ready[result][i]) errors.push_back(result + " not written whole");
    }
};

std::string ShaderText(const std::string& name, int samples = 50) {
    for (const fur_d3d9::Shader& s : fur_d3d9::Shaders(samples))
        if (s.name == name) return s.text;
    ADD_FAILURE() << "no shader " << name;
    return {};
}

ShaderStage StageOf(const std::string& name) {
    return name.find("VS") != std::string::npos ? ShaderStage::kVertex : ShaderStage::kPixel;
}

// A run with every constant of the stage filled from `values` (by table
// slot), and the given inputs.
Machine Start(const std::string& name, const std::map<Const, std::vector<float>>& values,
              const std::map<std::string, Vec>& inputs) {
    Machine run;
    for (const auto& [id, v] : values) {
        const fur_d3d9::ConstantSlot& s = fur_d3d9::Slot(id);
        if (s.stage != StageOf(name)) continue;
        for (int r = 0; r < s.registers; ++r)
            for (int c = 0; c < s.components; ++c)
                run.regs["c" + std::to_string(s.reg + r)][s.component + c] = v[r * s.components + c];
    }
    for (const auto& [reg, v] : inputs) run.regs[reg] = v;
    return run;
}

void Finish(Machine& run, const std::string& name, int samples = 50) {
    run.Execute(ShaderText(name, samples), StageOf(name));
    for (const std::string& e : run.errors) ADD_FAILURE() << name << ": " << e;
}

std::vector<float> Rows(const m3d::Mat4& m) {
    std::vector<float> rows(16);
    fur_d3d9::MatrixRows(m.data(), rows.data());
    return rows;
}

void ExpectNear(const Vec& got, const Vec& want, int components = 4) {
    for (int i = 0; i < components; ++i) EXPECT_NEAR(got[i], want[i], 1e-4f) << "component " << i;
}

// ---------------------------------------------------------------- the table

TEST(FurD3D9Asm, EveryTechniqueNamesShadersOfItsStages) {
    std::vector<std::string> names;
    for (const fur_d3d9::Technique& t : fur_d3d9::Techniques()) {
        names.push_back(t.name);
        EXPECT_EQ(StageOf(t.vertexShader), ShaderStage::kVertex);
        EXPECT_EQ(StageOf(t.pixelShader), ShaderStage::kPixel);
        EXPECT_FALSE(ShaderText(t.vertexShader).empty());
        EXPECT_FALSE(ShaderText(t.pixelShader).empty());
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"RenderMeshFur", "RenderMeshFlat", "RenderHud", "RenderHudTex", "PostFx"}));
    for (const fur_d3d9::Shader& s : fur_d3d9::Shaders(50)) EXPECT_EQ(s.stage, StageOf(s.name)) << s.name;
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kFur).name, "RenderMeshFur");
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kSkin).name, "RenderMeshFlat");
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kHudFlat).name, "RenderHud");
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kHudTextured).name, "RenderHudTex");
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kBackground).name, "RenderHudTex");
    EXPECT_STREQ(fur_d3d9::TechniqueFor(PaintProgram::kPostFx).name, "PostFx");
    // Surfaces repeat their textures; pictures and the scene target do not.
    EXPECT_EQ(fur_d3d9::TechniqueFor(PaintProgram::kFur).sampling, fur_d3d9::Sampling::kWrapAnisotropic);
    EXPECT_EQ(fur_d3d9::TechniqueFor(PaintProgram::kSkin).sampling, fur_d3d9::Sampling::kWrapAnisotropic);
    EXPECT_EQ(fur_d3d9::TechniqueFor(PaintProgram::kPostFx).sampling, fur_d3d9::Sampling::kClampLinear);
    EXPECT_EQ(fur_d3d9::TechniqueFor(PaintProgram::kBackground).sampling, fur_d3d9::Sampling::kClampLinear);
}

TEST(FurD3D9Asm, ConstantSlotsAreNamedOnceAndNeverOverlap) {
    const auto& slots = fur_d3d9::Constants();
    ASSERT_EQ(slots.size(), static_cast<size_t>(Const::kCount));
    std::set<std::string> names;
    std::map<std::tuple<ShaderStage, int, int>, std::string> cells;
    for (size_t i = 0; i < slots.size(); ++i) {
        const fur_d3d9::ConstantSlot& s = slots[i];
        SCOPED_TRACE(s.name);
        EXPECT_EQ(static_cast<size_t>(s.id), i) << "the table follows the enum";
        EXPECT_EQ(&fur_d3d9::Slot(s.id), &s);
        EXPECT_TRUE(names.insert(s.name).second) << "named twice";
        EXPECT_TRUE(s.components == 4 || s.registers == 1) << "only single registers are packed";
        EXPECT_LE(s.component + s.components, 4);
        const int limit = s.stage == ShaderStage::kVertex ? fur_d3d9::kVertexRegisters : fur_d3d9::kPixelRegisters;
        const int literal =
            s.stage == ShaderStage::kVertex ? fur_d3d9::kVertexLiteralRegister : fur_d3d9::kPixelLiteralRegister;
        EXPECT_LE(s.reg + s.registers, limit) << "outside what the back-end uploads";
        EXPECT_LE(limit, literal) << "clear of the literal register";
        for (int r = 0; r < s.registers; ++r)
            for (int c = s.component; c < s.component + s.components; ++c) {
                auto [it, fresh] = cells.insert({{s.stage, s.reg + r, c}, s.name});
                EXPECT_TRUE(fresh) << "shares c" << s.reg + r << "."
                                   << "xyzw"[c] << " with " << it->second;
            }
    }
    for (const char* name :
         {"g_FurLength", "g_Layer", "g_UVScale", "g_worldViewProjection", "g_modelView", "g_viewMatrix", "g_matWorld",
          "g_projectionMatrix", "elapsedTime", "radial_blur_samples", "radial_blur_scale_mul", "flat_color"})
        EXPECT_TRUE(names.count(name)) << name;
    EXPECT_EQ(fur_d3d9::RegisterName(Const::kModelView, 2), "c6");
    EXPECT_EQ(fur_d3d9::RegisterName(Const::kUVScale), "c24.z");
}

TEST(FurD3D9Asm, ProgramsKeepTheRulesAndReadOnlyTheirTable) {
    for (const fur_d3d9::Shader& s : fur_d3d9::Shaders(50)) {
        SCOPED_TRACE(s.name);
        Machine run;
        // Every input declared, with values; constants read as zero here.
        for (int i = 0; i < 10; ++i) run.regs["v" + std::to_string(i)] = {0.25f, 0.5f, 0.75f, 1.0f};
        run.sample = [](int, float, float) { return Vec{0.5f, 0.5f, 0.5f, 0.5f}; };
        run.Execute(s.text, s.stage);
        for (const std::string& e : run.errors) ADD_FAILURE() << e;
        for (const auto& [reg, component] : run.constantReads) {
            bool covered = false;
            for (const fur_d3d9::ConstantSlot& slot : fur_d3d9::Constants())
                covered = covered || (slot.stage == s.stage && reg >= slot.reg && reg < slot.reg + slot.registers &&
                                      component >= slot.component && component < slot.component + slot.components);
            EXPECT_TRUE(covered) << "c" << reg << "."
                                 << "xyzw"[component] << " is in no slot of its stage";
        }
        const int literal =
            s.stage == ShaderStage::kVertex ? fur_d3d9::kVertexLiteralRegister : fur_d3d9::kPixelLiteralRegister;
        for (int reg : run.literals) EXPECT_EQ(reg, literal);
        const int slots = fur_d3d9::InstructionSlots(s.text);
        EXPECT_GT(slots, 0);
        EXPECT_LE(slots, fur_d3d9::kPixelShader3Slots);
    }
}

// ------------------------------------------------------------- what they compute

struct Scene {
    m3d::Mat4 world = m3d::RotationY(30.0f) * m3d::Translation({0.2f, -0.1f, 0.3f});
    m3d::Mat4 view = m3d::LookAt({0.5f, 1.0f, 4.0f}, {0, 0, 0}, {0, 1, 0});
    m3d::Mat4 projection = m3d::Perspective(45.0f, 480.0f / 300.0f, 0.5f, 50.0f);
    std::map<Const, std::vector<float>> values;
    Scene() {
        const m3d::Mat4 modelView = view * world;
        values[Const::kWorldViewProjection] = Rows(projection * modelView);
        values[Const::kModelView] = Rows(modelView);
        values[Const::kViewMatrix] = Rows(view);
        values[Const::kFurLength] = {0.15f};
        values[Const::kUVScale] = {2.1f};
        const fur_d3d9::LightValues l = fur_d3d9::Lights();
        values[Const::kLightPosition0].assign(l.position0, l.position0 + 4);
        values[Const::kLightPosition1].assign(l.position1, l.position1 + 4);
        values[Const::kLightAmbient].assign(l.ambient, l.ambient + 4);
        values[Const::kLightDiffuse0].assign(l.diffuse0, l.diffuse0 + 4);
        values[Const::kLightDiffuse1].assign(l.diffuse1, l.diffuse1 + 4);
        values[Const::kFurFade] = {0.4f};
        values[Const::kRadialBlurScaleMul] = {0.9975f};
        std::vector<float> hud(16), offset(4);
        fur_d3d9::HudMatrixRows(480, 300, hud.data());
        fur_d3d9::PixelOffset(480, 300, offset.data());
        values[Const::kHudMatrix] = hud;
        values[Const::kPixelOffset] = offset;
        values[Const::kFlatColor] = {0.2f, 0.4f, 0.6f, 0.8f};
    }
};

TEST(FurD3D9Asm, SurfaceVertexProgramMatchesTheOpenGLMath) {
    Scene s;
    const m3d::Vec3 position{0.3f, -0.2f, 0.9f}, normal = m3d::Normalize({0.2f, 0.9f, -0.3f});
    Machine run = Start("SurfaceVS", s.values,
                        {{"v0", {position.x, position.y, position.z, 1}},
                         {"v1", {normal.x, normal.y, normal.z, 1}},
                         {"v2", {0.25f, 0.75f, 0, 1}}});
    Finish(run, "SurfaceVS");
    const m3d::Vec3 p3 = position + normal * 0.15f;
    const m3d::Vec4 p{p3.x, p3.y, p3.z, 1.0f};
    const m3d::Vec4 clip = m3d::Transform(s.projection * s.view * s.world, p);
    ExpectNear(run.regs["o0"], {clip.x - clip.w / 480.0f, clip.y + clip.w / 300.0f, (clip.z + clip.w) / 2, clip.w});
    ExpectNear(run.regs["o1"], {0.25f * 2.1f, 0.75f * 2.1f}, 2);
    const m3d::Vec3 n = m3d::Normalize(m3d::TransformDirection(s.view * s.world, normal));
    ExpectNear(run.regs["o2"], {n.x, n.y, n.z}, 3);
    const m3d::Vec3 eye = m3d::TransformPoint(s.view * s.world, p3);
    for (int i = 0; i < 2; ++i) {
        const m3d::Vec3 light = m3d::TransformPoint(s.view, kFurLights[i].position) - eye;
        ExpectNear(run.regs[i == 0 ? "o3" : "o4"], {light.x, light.y, light.z}, 3);
    }
}

// Both lights as the other back-ends write them, from the separate light and
// material colours.
m3d::Vec3 Shaded(const m3d::Vec3& n, const m3d::Vec3& l0, const m3d::Vec3& l1, const m3d::Vec3& c) {
    const fur_hlsl::CbLights l = fur_hlsl::Lights();
    const float d0 = std::min(1.0f, std::max(0.0f, m3d::Dot(m3d::Normalize(n), m3d::Normalize(l0))));
    const float d1 = std::min(1.0f, std::max(0.0f, m3d::Dot(m3d::Normalize(n), m3d::Normalize(l1))));
    float out[3];
    const float cc[3] = {c.x, c.y, c.z};
    for (int i = 0; i < 3; ++i)
        out[i] = l.g_lightAmbient0[i] * l.matAmbient[i] * cc[i] + l.g_lightDiffuse0[i] * l.matDiffuse[i] * d0 * cc[i] +
                 l.g_lightAmbient1[i] * l.matAmbient[i] * cc[i] + l.g_lightDiffuse1[i] * l.matDiffuse[i] * d1 * cc[i];
    return {out[0], out[1], out[2]};
}

const m3d::Vec3 kNormal{0.1f, 0.8f, 0.3f}, kToLight0{1.0f, 2.0f, 0.5f}, kToLight1{-2.0f, 0.5f, 1.5f};

std::map<std::string, Vec> SurfaceInputs() {
    return {{"v0", {0.3f, 0.6f, 0, 0}},
            {"v1", {kNormal.x, kNormal.y, kNormal.z, 0}},
            {"v2", {kToLight0.x, kToLight0.y, kToLight0.z, 0}},
            {"v3", {kToLight1.x, kToLight1.y, kToLight1.z, 0}}};
}

TEST(FurD3D9Asm, SkinIsTheShadedColourDarkened) {
    Scene s;
    Machine run = Start("SkinPS", s.values, SurfaceInputs());
    run.sample = [](int sampler, float u, float v) {
        EXPECT_EQ(sampler, 0);
        EXPECT_NEAR(u, 0.3f, 1e-6f);
        EXPECT_NEAR(v, 0.6f, 1e-6f);
        return Vec{0.9f, 0.6f, 0.3f, 1.0f};
    };
    Finish(run, "SkinPS");
    const m3d::Vec3 want = Shaded(kNormal, kToLight0, kToLight1, {0.9f, 0.6f, 0.3f}) * kSkinShadeScale;
    ExpectNear(run.regs["oC0"], {want.x, want.y, want.z, 1.0f});
}

TEST(FurD3D9Asm, ShellIsColourTimesDotsFadingWithItsLayer) {
    Scene s;
    Machine run = Start("FurPS", s.values, SurfaceInputs());
    run.sample = [](int sampler, float u, float v) {
        if (sampler == 1) {  // the dots repeat more densely
            EXPECT_NEAR(u, 0.3f * kDotTexCoordScale, 1e-6f);
            EXPECT_NEAR(v, 0.6f * kDotTexCoordScale, 1e-6f);
            return Vec{0.5f, 1.0f, 0.25f, 0.8f};
        }
        EXPECT_NEAR(u, 0.3f, 1e-6f);
        return Vec{0.9f, 0.6f, 0.4f, 1.0f};
    };
    Finish(run, "FurPS");
    const m3d::Vec3 want = Shaded(kNormal, kToLight0, kToLight1, {0.45f, 0.6f, 0.1f});
    ExpectNear(run.regs["oC0"], {want.x, want.y, want.z, 0.8f * 0.4f});
    EXPECT_EQ(run.texlds, 2);
}

TEST(FurD3D9Asm, HudPixelsLandHalfAPixelUpAndLeft) {
    Scene s;
    // Direct3D 9 puts pixel centres on whole screen coordinates: pixel (x, y)
    // must come out at x - 0.5, y - 0.5 to cover what OpenGL covers.
    for (const auto& [x, y] : {std::pair<float, float>{0, 0}, {480, 300}, {100, 50}}) {
        Machine run = Start("HudVS", s.values, {{"v0", {x, y, 0, 1}}, {"v1", {0.25f, 0.5f, 0, 0}}});
        Finish(run, "HudVS");
        const Vec& o = run.regs["o0"];
        ASSERT_NEAR(o[3], 1.0f, 1e-6f);
        EXPECT_NEAR((o[0] + 1.0f) * 240.0f, x - 0.5f, 1e-3f);
        EXPECT_NEAR((1.0f - o[1]) * 150.0f, y - 0.5f, 1e-3f);
        ExpectNear(run.regs["o1"], {0.25f, 0.5f}, 2);
    }
    Machine flat = Start("HudFlatPS", s.values, {});
    Finish(flat, "HudFlatPS");
    ExpectNear(flat.regs["oC0"], {0.2f, 0.4f, 0.6f, 0.8f});
    Machine textured = Start("HudTexPS", s.values, {{"v0", {0.1f, 0.2f, 0, 0}}});
    textured.sample = [](int, float, float) { return Vec{1.0f, 0.5f, 0.25f, 0.5f}; };
    Finish(textured, "HudTexPS");
    ExpectNear(textured.regs["oC0"], {0.2f, 0.2f, 0.15f, 0.4f});
}

TEST(FurD3D9Asm, PostEffectCoversTheViewAndReadsTheTargetUpright) {
    Scene s;
    // The unit square's corner (0, 0) is the view's bottom left, where the
    // target's last row (v = 1) is.
    Machine run = Start("PostFxVS", s.values, {{"v0", {0, 0, 0, 1}}, {"v1", {0, 0, 0, 0}}});
    Finish(run, "PostFxVS");
    ExpectNear(run.regs["o0"], {-1.0f - 1.0f / 480.0f, -1.0f + 1.0f / 300.0f, 0.0f, 1.0f});
    ExpectNear(run.regs["o1"], {0.0f, 1.0f}, 2);
}

TEST(FurD3D9Asm, RadialBlurIsUnrolledToTheAskedTaps) {
    Scene s;
    for (int samples : {1, 2, 50}) {
        SCOPED_TRACE(samples);
        Machine run = Start("PostFxPS", s.values, {{"v0", {0.8f, 0.3f, 0, 0}}});
        run.sample = [](int, float u, float v) { return Vec{u, v, 1.0f, 1.0f}; };
        Finish(run, "PostFxPS", samples);
        EXPECT_EQ(run.texlds, samples);
        Vec want{0, 0, 1, 1};
        float scale = 1.0f;
        for (int i = 0; i < samples; ++i, scale *= 0.9975f) {
            want[0] += ((0.8f - 0.5f) * scale + 0.5f) / samples;
            want[1] += ((0.3f - 0.5f) * scale + 0.5f) / samples;
        }
        ExpectNear(run.regs["oC0"], want);
    }
}

TEST(FurD3D9Asm, RadialBlurStaysWithinThePixelProgramSlots) {
    const int most = fur_d3d9::MaxBlurSamples();
    EXPECT_GE(most, 50) << "the default sample count must fit";
    const int slots = fur_d3d9::InstructionSlots(ShaderText("PostFxPS", most));
    EXPECT_LE(slots, fur_d3d9::kPixelShader3Slots);
    EXPECT_GT(slots + 4, fur_d3d9::kPixelShader3Slots) << "one more tap would still fit";
    EXPECT_EQ(fur_d3d9::ClampBlurSamples(most + 1), most);
    EXPECT_EQ(fur_d3d9::ClampBlurSamples(0), 1);
    EXPECT_EQ(fur_d3d9::ClampBlurSamples(-5), 1);
    Machine run;
    run.regs["v0"] = {0.5f, 0.5f, 0, 0};
    run.Execute(ShaderText("PostFxPS", 100000), ShaderStage::kPixel);
    EXPECT_EQ(run.texlds, most);
    EXPECT_EQ(fur_d3d9::InstructionSlots("ps_3_0\nnrm r0.xyz, v0\ntexld r1, r0, s0\n"), 4);
    EXPECT_EQ(fur_d3d9::InstructionSlots("ps_3_0\nlrp r0, r1, r2, r3\n"), -1);
}

// ------------------------------------------------------------------ values

TEST(FurD3D9Asm, LightsCombineLightAndMaterialColours) {
    const fur_hlsl::CbLights l = fur_hlsl::Lights();
    const fur_d3d9::LightValues v = fur_d3d9::Lights();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(v.ambient[i], (l.g_lightAmbient0[i] + l.g_lightAmbient1[i]) * l.matAmbient[i]);
        EXPECT_FLOAT_EQ(v.diffuse1[i], l.g_lightDiffuse1[i] * l.matDiffuse[i]);
        EXPECT_FLOAT_EQ(v.position1[i], kFurLights[1].position.x * (i == 0) + kFurLights[1].position.y * (i == 1) +
                                            kFurLights[1].position.z * (i == 2));
    }
    EXPECT_EQ(v.position0[3], 1.0f) << "dp4 with the view matrix needs w = 1";
}

TEST(FurD3D9Asm, MatrixRowsAreTheTranspose) {
    const m3d::Mat4 t = m3d::Translation({3, 4, 5});
    const std::vector<float> rows = Rows(t);
    EXPECT_EQ(rows[3], 3.0f);  // row 0 ends in the x translation
    EXPECT_EQ(rows[7], 4.0f);
    EXPECT_EQ(rows[11], 5.0f);
    EXPECT_EQ(rows[12], 0.0f);
}

TEST(FurD3D9Asm, PixelsSwapRedAndBlueBothWays) {
    const uint8_t rgba[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};  // 2x2
    uint8_t texture[2 * 12] = {};                                                    // rows 12 bytes apart
    fur_d3d9::RgbaToBgra(rgba, 2, 2, texture, 12);
    const uint8_t want[] = {3, 2, 1, 4, 7, 6, 5, 8, 0, 0, 0, 0, 11, 10, 9, 12, 15, 14, 13, 16, 0, 0, 0, 0};
    EXPECT_EQ(std::vector<uint8_t>(texture, texture + 24), std::vector<uint8_t>(want, want + 24));
    std::string back;
    fur_d3d9::BgrxToRgba(texture, 2, 2, 12, &back);
    EXPECT_EQ(back, std::string("\x01\x02\x03\xFF\x05\x06\x07\xFF\x09\x0A\x0B\xFF\x0D\x0E\x0F\xFF", 16));
}

}  // namespace
