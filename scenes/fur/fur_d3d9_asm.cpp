#include "scenes/fur/fur_d3d9_asm.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "scenes/fur/fur_hlsl.h"
#include "scenes/fur/fur_scene.h"

namespace fur_d3d9 {

namespace {

constexpr ShaderStage kV = ShaderStage::kVertex;
constexpr ShaderStage kP = ShaderStage::kPixel;

const char kComponents[] = "xyzw";

// A float as the assembler reads it: always with a decimal point.
std::string F(float value) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.9g", static_cast<double>(value));
    std::string s(buf);
    if (s.find_first_of(".eEn") == std::string::npos) s += ".0";
    return s;
}

std::string C(Const id, int row = 0) { return RegisterName(id, row); }

// The literal register of a stage, one component: 0.5, 1, 0, and a fourth
// value per stage.
std::string Lit(ShaderStage stage, char component) {
    return "c" + std::to_string(stage == kV ? kVertexLiteralRegister : kPixelLiteralRegister) + "." + component;
}
const char kHalf = 'x', kOne = 'y', kZero = 'z', kFourth = 'w';

class Asm {
public:
    explicit Asm(const char* version) { text_ = std::string(version) + "\n"; }
    Asm& operator()(const std::string& line) {
        text_ += line + "\n";
        return *this;
    }
    Asm& Note(const std::string& comment) { return (*this)("// " + comment); }
    // The literal register: 0.5, 1, 0 and `fourth`.
    Asm& Literals(ShaderStage stage, float fourth) {
        const int reg = stage == kV ? kVertexLiteralRegister : kPixelLiteralRegister;
        return (*this)("def c" + std::to_string(reg) + ", 0.5, 1.0, 0.0, " + F(fourth));
    }
    // dst.xyzw (as masked) = matrix * src, one row per component.
    Asm& Transform(const std::string& dst, const char* mask, const std::string& src, Const matrix) {
        for (const char* m = mask; *m; ++m) {
            const int row = static_cast<int>(std::strchr(kComponents, *m) - kComponents);
            (*this)("dp4 " + dst + "." + *m + ", " + src + ", " + C(matrix, row));
        }
        return *this;
    }
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

// Clip position in r1 (w included) to o0: depth into 0..w, pixel centres
// moved by half a pixel.
void ClipOut(Asm& a) {
    a.Note("depth from -w..w to 0..w; pixel centres half a pixel up and left");
    a("add r1.z, r1.z, r1.w");
    a("mul r1.z, r1.z, " + Lit(kV, kHalf));
    a("mad r1.xy, " + C(Const::kPixelOffset) + ", r1.w, r1");
    a("mov o0, r1");
}

// The skin and the shells: each vertex pushed out along its normal by the
// fur length (0 for the skin); normal and light directions in eye space.
std::string SurfaceVS() {
    Asm a("vs_3_0");
    a("dcl_position v0")("dcl_normal v1")("dcl_texcoord0 v2");
    a("dcl_position o0")("dcl_texcoord0 o1")("dcl_texcoord1 o2")("dcl_texcoord2 o3")("dcl_texcoord3 o4");
    a.Literals(kV, 2.0f);
    a.Note("p = (position + normal * g_FurLength, 1)");
    a("mov r0.xyz, v0");
    a("mov r0.w, " + Lit(kV, kOne));
    a("mad r0.xyz, v1, " + C(Const::kFurLength) + ", r0");
    a.Note("clip position: g_worldViewProjection * p");
    a.Transform("r1", "xyzw", "r0", Const::kWorldViewProjection);
    ClipOut(a);
    a.Note("eye position: g_modelView * p");
    a.Transform("r2", "xyz", "r0", Const::kModelView);
    a.Note("eye normal: g_modelView * (normal, 0), normalised");
    a("dp3 r3.x, v1, " + C(Const::kModelView, 0));
    a("dp3 r3.y, v1, " + C(Const::kModelView, 1));
    a("dp3 r3.z, v1, " + C(Const::kModelView, 2));
    a("nrm r4.xyz, r3");
    a("mov o2.xyz, r4");
    a.Note("towards each light, in eye space: g_viewMatrix * light - eye");
    const Const lights[2] = {Const::kLightPosition0, Const::kLightPosition1};
    for (int i = 0; i < 2; ++i) {
        a("mov r5, " + C(lights[i]));
        a.Transform("r6", "xyz", "r5", Const::kViewMatrix);
        a("add o" + std::to_string(3 + i) + ".xyz, r6, -r2");
    }
    a("mul o1.xy, v2, " + C(Const::kUVScale));
    return a.text();
}

// Shading with both lights of the colour in `color` (xyz) into r5.xyz; the
// interpolated normal and light directions come in v1 to v3.
void Shade(Asm& a, const std::string& color) {
    a.Note("both lights: colour * (ambient + diffuse0 * sat(n.l0) + diffuse1 * sat(n.l1))");
    a("nrm r1.xyz, v1");
    a("nrm r2.xyz, v2");
    a("nrm r3.xyz, v3");
    a("dp3_sat r4.x, r1, r2");
    a("dp3_sat r4.y, r1, r3");
    a("mov r5.xyz, " + C(Const::kLightAmbient));
    a("mad r5.xyz, " + C(Const::kLightDiffuse0) + ", r4.x, r5");
    a("mad r5.xyz, " + C(Const::kLightDiffuse1) + ", r4.y, r5");
    a("mul r5.xyz, r5, " + color);
}

void SurfaceInputs(Asm& a) {
    a("dcl_texcoord0 v0.xy")("dcl_texcoord1 v1.xyz")("dcl_texcoord2 v2.xyz")("dcl_texcoord3 v3.xyz");
}

// The object's opaque surface, darker than the hairs.
std::string SkinPS() {
    Asm a("ps_3_0");
    SurfaceInputs(a);
    a("dcl_2d s0");
    a.Literals(kP, kSkinShadeScale);
    a("texld r0, v0, s0");
    Shade(a, "r0");
    a("mul r5.xyz, r5, " + Lit(kP, kFourth));
    a("mov r5.w, " + Lit(kP, kOne));
    a("mov oC0, r5");
    return a.text();
}

// One shell: the colour times the shell's dots (which repeat more densely),
// the hairs fading out towards their tips (g_FurFade).
std::string FurPS() {
    Asm a("ps_3_0");
    SurfaceInputs(a);
    a("dcl_2d s0")("dcl_2d s1");
    a.Literals(kP, kDotTexCoordScale);
    a("mul r0.xy, v0, " + Lit(kP, kFourth));
    a("texld r6, r0, s1");
    a("texld r0, v0, s0");
    a("mul r0.xyz, r0, r6");
    Shade(a, "r0");
    a("mul r5.w, r6.w, " + C(Const::kFurFade));
    a("mov oC0, r5");
    return a.text();
}

// The HUD and full-view pictures: pixels (y down) through the HUD matrix.
std::string HudVS() {
    Asm a("vs_3_0");
    a("dcl_position v0")("dcl_texcoord0 v1");
    a("dcl_position o0")("dcl_texcoord0 o1");
    a.Literals(kV, 2.0f);
    a("mov r0.xy, v0");
    a("mov r0.z, " + Lit(kV, kZero));
    a("mov r0.w, " + Lit(kV, kOne));
    a.Transform("r1", "xyzw", "r0", Const::kHudMatrix);
    a("mad r1.xy, " + C(Const::kPixelOffset) + ", r1.w, r1");
    a("mov o0, r1");
    a("mov o1.xy, v1");
    return a.text();
}

std::string HudFlatPS() {
    Asm a("ps_3_0");
    a("mov oC0, " + C(Const::kFlatColor));
    return a.text();
}

std::string HudTexPS() {
    Asm a("ps_3_0");
    a("dcl_texcoord0 v0.xy");
    a("dcl_2d s0");
    a("texld r0, v0, s0");
    a("mul r0, r0, " + C(Const::kFlatColor));
    a("mov oC0, r0");
    return a.text();
}

// The unit square onto the whole view; the scene target is read upright
// (its first row is its top).
std::string PostFxVS() {
    Asm a("vs_3_0");
    a("dcl_position v0")("dcl_texcoord0 v1");
    a("dcl_position o0")("dcl_texcoord0 o1");
    a.Literals(kV, 2.0f);
    a("mad r0.xy, v0, " + Lit(kV, kFourth) + ", -" + Lit(kV, kOne));
    a("mov r0.z, " + Lit(kV, kZero));
    a("mov r0.w, " + Lit(kV, kOne));
    a("add r0.xy, r0, " + C(Const::kPixelOffset));
    a("mov o0, r0");
    a("mov r1.x, v1.x");
    a("add r1.y, " + Lit(kV, kOne) + ", -v1.y");
    a("mov o1.xy, r1");
    return a.text();
}

// Instruction slots of the post effect around its taps, and per tap (the
// last tap does not scale).
constexpr int kPostFixedSlots = 5;
constexpr int kPostSlotsPerTap = 4;

// A soft zoom blur: `samples` taps towards the centre, each a little closer
// (the scale times radial_blur_scale_mul), averaged.
std::string PostFxPS(int samples) {
    samples = ClampBlurSamples(samples);
    Asm a("ps_3_0");
    a("dcl_texcoord0 v0.xy");
    a("dcl_2d s0");
    a.Literals(kP, 1.0f / static_cast<float>(samples));
    a("add r0.xy, v0, -" + Lit(kP, kHalf));
    a("mov r1.x, " + Lit(kP, kOne));
    a("mov r2, " + Lit(kP, kZero));
    for (int i = 0; i < samples; ++i) {
        a.Note("tap " + std::to_string(i + 1));
        a("mad r3.xy, r0, r1.x, " + Lit(kP, kHalf));
        a("texld r4, r3, s0");
        a("add r2, r2, r4");
        if (i + 1 < samples) a("mul r1.x, r1.x, " + C(Const::kRadialBlurScaleMul));
    }
    a("mul r2, r2, " + Lit(kP, kFourth));
    a("mov oC0, r2");
    return a.text();
}

#define ARD_SLOT(id, name, stage, reg, registers, component, components) \
    ConstantSlot { Const::id, name, stage, reg, registers, component, components }

}  // namespace

const std::vector<ConstantSlot>& Constants() {
    static const std::vector<ConstantSlot> slots = {
        ARD_SLOT(kWorldViewProjection, "g_worldViewProjection", kV, 0, 4, 0, 4),
        ARD_SLOT(kModelView, "g_modelView", kV, 4, 4, 0, 4),
        ARD_SLOT(kViewMatrix, "g_viewMatrix", kV, 8, 4, 0, 4),
        ARD_SLOT(kMatWorld, "g_matWorld", kV, 12, 4, 0, 4),
        ARD_SLOT(kProjectionMatrix, "g_projectionMatrix", kV, 16, 4, 0, 4),
        ARD_SLOT(kHudMatrix, "g_hudMatrix", kV, 20, 4, 0, 4),
        ARD_SLOT(kFurLength, "g_FurLength", kV, 24, 1, 0, 1),
        ARD_SLOT(kLayer, "g_Layer", kV, 24, 1, 1, 1),
        ARD_SLOT(kUVScale, "g_UVScale", kV, 24, 1, 2, 1),
        ARD_SLOT(kLightPosition0, "g_lightPosition0", kV, 25, 1, 0, 4),
        ARD_SLOT(kLightPosition1, "g_lightPosition1", kV, 26, 1, 0, 4),
        ARD_SLOT(kPixelOffset, "g_pixelOffset", kV, 27, 1, 0, 4),
        ARD_SLOT(kFlatColor, "flat_color", kP, 0, 1, 0, 4),
        ARD_SLOT(kFurFade, "g_FurFade", kP, 1, 1, 0, 1),
        ARD_SLOT(kLightAmbient, "g_lightAmbient", kP, 2, 1, 0, 4),
        ARD_SLOT(kLightDiffuse0, "g_lightDiffuse0", kP, 3, 1, 0, 4),
        ARD_SLOT(kLightDiffuse1, "g_lightDiffuse1", kP, 4, 1, 0, 4),
        ARD_SLOT(kRadialBlurScaleMul, "radial_blur_scale_mul", kP, 5, 1, 0, 1),
        ARD_SLOT(kRadialBlurSamples, "radial_blur_samples", kP, 5, 1, 1, 1),
        ARD_SLOT(kElapsedTime, "elapsedTime", kP, 5, 1, 2, 1),
    };
    return slots;
}

const ConstantSlot& Slot(Const id) {
    for (const ConstantSlot& s : Constants())
        if (s.id == id) return s;
    return Constants().front();  // every id has a slot; the tests hold the table to it
}

std::string RegisterName(Const id, int row) {
    const ConstantSlot& s = Slot(id);
    std::string name = "c" + std::to_string(s.reg + row);
    if (s.components == 1) name += std::string(".") + kComponents[s.component];
    return name;
}

const std::vector<Technique>& Techniques() {
    static const std::vector<Technique> techniques = {
        {"RenderMeshFur", "SurfaceVS", "FurPS", Sampling::kWrapAnisotropic},
        {"RenderMeshFlat", "SurfaceVS", "SkinPS", Sampling::kWrapAnisotropic},
        {"RenderHud", "HudVS", "HudFlatPS", Sampling::kClampLinear},
        {"RenderHudTex", "HudVS", "HudTexPS", Sampling::kClampLinear},
        {"PostFx", "PostFxVS", "PostFxPS", Sampling::kClampLinear},
    };
    return techniques;
}

const Technique& TechniqueFor(PaintProgram program) {
    const std::vector<Technique>& t = Techniques();
    switch (program) {
        case PaintProgram::kFur: return t[0];
        case PaintProgram::kSkin: return t[1];
        case PaintProgram::kHudFlat: return t[2];
        case PaintProgram::kBackground:
        case PaintProgram::kHudTextured: return t[3];
        case PaintProgram::kPostFx: return t[4];
    }
    return t[3];
}

std::vector<Shader> Shaders(int radialBlurSamples) {
    return {
        {"SurfaceVS", kV, SurfaceVS()}, {"SkinPS", kP, SkinPS()},
        {"FurPS", kP, FurPS()},         {"HudVS", kV, HudVS()},
        {"HudFlatPS", kP, HudFlatPS()}, {"HudTexPS", kP, HudTexPS()},
        {"PostFxVS", kV, PostFxVS()},   {"PostFxPS", kP, PostFxPS(radialBlurSamples)},
    };
}

int MaxBlurSamples() { return (kPixelShader3Slots - kPostFixedSlots + 1) / kPostSlotsPerTap; }

int ClampBlurSamples(int samples) { return std::max(1, std::min(samples, MaxBlurSamples())); }

int InstructionSlots(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    int slots = 0;
    bool first = true;
    while (std::getline(in, line)) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line.compare(start, 2, "//") == 0) continue;
        std::string op = line.substr(start, line.find_first_of(" \t", start) - start);
        if (first) {  // the version
            first = false;
            continue;
        }
        if (op.compare(0, 4, "dcl_") == 0 || op == "def") continue;
        if (op.size() > 4 && op.compare(op.size() - 4, 4, "_sat") == 0) op.resize(op.size() - 4);
        static const char* const kSingle[] = {"mov", "add", "mul", "mad", "dp3", "dp4", "texld", "rcp", "rsq"};
        if (op == "nrm") {
            slots += 3;
        } else if (std::find_if(std::begin(kSingle), std::end(kSingle), [&](const char* k) { return op == k; }) !=
                   std::end(kSingle)) {
            slots += 1;
        } else {
            return -1;
        }
    }
    return slots;
}

LightValues Lights() {
    const fur_hlsl::CbLights l = fur_hlsl::Lights();
    LightValues v{};
    std::memcpy(v.position0, l.g_lightPosition0, sizeof v.position0);
    std::memcpy(v.position1, l.g_lightPosition1, sizeof v.position1);
    v.position0[3] = v.position1[3] = 1.0f;
    for (int i = 0; i < 3; ++i) {
        v.ambient[i] = (l.g_lightAmbient0[i] + l.g_lightAmbient1[i]) * l.matAmbient[i];
        v.diffuse0[i] = l.g_lightDiffuse0[i] * l.matDiffuse[i];
        v.diffuse1[i] = l.g_lightDiffuse1[i] * l.matDiffuse[i];
    }
    v.ambient[3] = v.diffuse0[3] = v.diffuse1[3] = 1.0f;
    return v;
}

void MatrixRows(const float columnMajor[16], float rows[16]) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) rows[r * 4 + c] = columnMajor[c * 4 + r];
}

void HudMatrixRows(int width, int height, float rows[16]) {
    float columns[16];
    fur_hlsl::HudMatrix(width, height, columns);
    MatrixRows(columns, rows);
}

void PixelOffset(int width, int height, float out[4]) {
    out[0] = -1.0f / static_cast<float>(width > 0 ? width : 1);
    out[1] = 1.0f / static_cast<float>(height > 0 ? height : 1);
    out[2] = out[3] = 0.0f;
}

void RgbaToBgra(const uint8_t* rgba, int width, int height, uint8_t* out, int pitch) {
    for (int y = 0; y < height; ++y) {
        const uint8_t* s = rgba + static_cast<size_t>(y) * width * 4;
        uint8_t* d = out + static_cast<size_t>(y) * pitch;
        for (int x = 0; x < width; ++x, s += 4, d += 4) {
            d[0] = s[2];
            d[1] = s[1];
            d[2] = s[0];
            d[3] = s[3];
        }
    }
}

void BgrxToRgba(const uint8_t* bgrx, int width, int height, int pitch, std::string* rgba) {
    rgba->assign(static_cast<size_t>(width) * height * 4, '\0');
    for (int y = 0; y < height; ++y) {
        const uint8_t* s = bgrx + static_cast<size_t>(y) * pitch;
        char* d = &(*rgba)[static_cast<size_t>(y) * width * 4];
        for (int x = 0; x < width; ++x, s += 4, d += 4) {
            d[0] = static_cast<char>(s[2]);
            d[1] = static_cast<char>(s[1]);
            d[2] = static_cast<char>(s[0]);
            d[3] = static_cast<char>(0xFF);
        }
    }
}

}  // namespace fur_d3d9
