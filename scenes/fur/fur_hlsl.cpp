#include "scenes/fur/fur_hlsl.h"

#include <cstring>

#include "scenes/fur/fur_scene.h"

namespace fur_hlsl {

namespace {

#define ARD_FIELD(type, field) CbField{#field, offsetof(type, field), sizeof(type::field)}

constexpr const char* kDeclarations = R"(cbuffer cbPerObject : register(b0)
{
    float4x4 g_worldViewProjection;
    float4x4 g_modelView;
    float4x4 g_viewMatrix;
    float4x4 g_matWorld;
    float g_FurLength;
    float g_Layer;
    float g_UVScale;
    float g_FurFade;
};

cbuffer cbPerFrame : register(b1)
{
    float4x4 g_hudMatrix;
    float elapsedTime;
    int radial_blur_samples;
    float radial_blur_scale_mul;
    float g_framePad;
};

cbuffer cbLights : register(b2)
{
    float4 g_lightPosition0;
    float4 g_lightPosition1;
    float4 g_lightAmbient0;
    float4 g_lightDiffuse0;
    float4 g_lightAmbient1;
    float4 g_lightDiffuse1;
    float4 matAmbient;
    float4 matDiffuse;
    float4 matSpecular;
    float4 matEmissive;
};

cbuffer cbHud : register(b3)
{
    float4 flat_color;
    float4 flat_pos_offset;
};

Texture2D colorMap : register(t0);
Texture2D dotMap : register(t1);
SamplerState samWrap : register(s0);
SamplerState samClamp : register(s1);

struct VS_INPUT
{
    float3 Position : POSITION;
    float3 Normal : NORMAL;
    float2 UV : TEXCOORD0;
};

struct SURFACE_OUTPUT
{
    float4 Position : SV_POSITION;
    float2 UV : TEXCOORD0;
    float3 Normal : TEXCOORD1;
    float3 ToLight0 : TEXCOORD2;
    float3 ToLight1 : TEXCOORD3;
};

struct SCREEN_OUTPUT
{
    float4 Position : SV_POSITION;
    float2 UV : TEXCOORD0;
};

)";

// The vertex stage of the skin and the shells: pushed out along the normal
// by the fur length (0 for the skin), lights moved into eye space.
std::string SurfaceVertex(const char* entry) {
    return std::string("SURFACE_OUTPUT ") + entry + R"((VS_INPUT input)
{
    SURFACE_OUTPUT output;
    float4 p = float4(input.Position + input.Normal * g_FurLength, 1.0);
    float4 eye = mul(g_modelView, p);
    output.Position = mul(g_worldViewProjection, p);
    output.Position.z = (output.Position.z + output.Position.w) * 0.5;
    output.Normal = normalize(mul(g_modelView, float4(input.Normal, 0.0)).xyz);
    float3 l0 = mul(g_viewMatrix, float4(g_lightPosition0.xyz, 1.0)).xyz;
    float3 l1 = mul(g_viewMatrix, float4(g_lightPosition1.xyz, 1.0)).xyz;
    output.ToLight0 = l0 - eye.xyz;
    output.ToLight1 = l1 - eye.xyz;
    output.UV = input.UV * g_UVScale;
    return output;
}

)";
}

// Both lights on colour `c` (a float3 expression's variable), written out in
// place: the text has no user functions.
std::string Shade(const char* c) {
    const std::string v(c);
    return "    float3 n = normalize(input.Normal);\n"
           "    float3 l0 = normalize(input.ToLight0);\n"
           "    float3 l1 = normalize(input.ToLight1);\n"
           "    float3 shaded = g_lightAmbient0.rgb * matAmbient.rgb * " + v + "\n"
           "        + g_lightDiffuse0.rgb * matDiffuse.rgb * saturate(dot(n, l0)) * " + v + "\n"
           "        + g_lightAmbient1.rgb * matAmbient.rgb * " + v + "\n"
           "        + g_lightDiffuse1.rgb * matDiffuse.rgb * saturate(dot(n, l1)) * " + v + ";\n";
}

std::string PostEffect(int samples) {
    if (samples < 1) samples = 1;
    std::string s = R"(SCREEN_OUTPUT PostFxVS(VS_INPUT input)
{
    SCREEN_OUTPUT output;
    output.Position = float4(input.Position.xy * 2.0 - 1.0, 0.0, 1.0);
    // A render target's first row is its top: read it upright.
    output.UV = float2(input.UV.x, 1.0 - input.UV.y);
    return output;
}

float4 PostFxPS(SCREEN_OUTPUT input) : SV_Target
{
    float2 d = input.UV - float2(0.5, 0.5);
    float scale = 1.0;
    float4 sum = float4(0.0, 0.0, 0.0, 0.0);
)";
    // A soft zoom blur: samples towards the centre, each a little closer.
    for (int i = 0; i < samples; ++i) {
        s += "    sum = sum + colorMap.Sample(samClamp, d * scale + float2(0.5, 0.5));\n";
        if (i + 1 < samples) s += "    scale = scale * radial_blur_scale_mul;\n";
    }
    s += "    return sum * " + std::to_string(1.0 / samples) + ";\n}\n\n";
    return s;
}

constexpr const char* kHud = R"(SCREEN_OUTPUT D3D11RenderHudVS(VS_INPUT input)
{
    SCREEN_OUTPUT output;
    output.Position = mul(g_hudMatrix, float4(input.Position.xy + flat_pos_offset.xy, 0.0, 1.0));
    output.UV = input.UV;
    return output;
}

float4 D3D11RenderHudPS(SCREEN_OUTPUT input) : SV_Target
{
    return flat_color;
}

float4 D3D11RenderHudPSTex(SCREEN_OUTPUT input) : SV_Target
{
    return colorMap.Sample(samClamp, input.UV) * flat_color;
}

float4 D3D11RenderLineVS(VS_INPUT input) : SV_POSITION
{
    return mul(g_hudMatrix, float4(input.Position.xy + flat_pos_offset.xy, 0.0, 1.0));
}

float4 D3D11RenderLinePS(float4 position : SV_POSITION) : SV_Target
{
    return flat_color;
}
)";

const Program kBackground = {"D3D11RenderHudVS", "D3D11RenderHudPSTex"};
const Program kSkin = {"TwoLightsTex_VS_D3D11", "TwoLightsTex_PS_D3D11"};
const Program kFur = {"Fur_VS_D3D11", "Fur_PS_D3D11"};
const Program kPost = {"PostFxVS", "PostFxPS"};
const Program kFlat = {"D3D11RenderHudVS", "D3D11RenderHudPS"};
const Program kTextured = {"D3D11RenderHudVS", "D3D11RenderHudPSTex"};
const Program kLine = {"D3D11RenderLineVS", "D3D11RenderLinePS"};

}  // namespace

const std::vector<CbLayout>& ConstantBuffers() {
    static const std::vector<CbLayout> buffers = {
        {"cbPerObject", 0, sizeof(CbPerObject),
         {ARD_FIELD(CbPerObject, g_worldViewProjection), ARD_FIELD(CbPerObject, g_modelView),
          ARD_FIELD(CbPerObject, g_viewMatrix), ARD_FIELD(CbPerObject, g_matWorld), ARD_FIELD(CbPerObject, g_FurLength),
          ARD_FIELD(CbPerObject, g_Layer), ARD_FIELD(CbPerObject, g_UVScale), ARD_FIELD(CbPerObject, g_FurFade)}},
        {"cbPerFrame", 1, sizeof(CbPerFrame),
         {ARD_FIELD(CbPerFrame, g_hudMatrix), ARD_FIELD(CbPerFrame, elapsedTime),
          ARD_FIELD(CbPerFrame, radial_blur_samples), ARD_FIELD(CbPerFrame, radial_blur_scale_mul),
          ARD_FIELD(CbPerFrame, g_framePad)}},
        {"cbLights", 2, sizeof(CbLights),
         {ARD_FIELD(CbLights, g_lightPosition0), ARD_FIELD(CbLights, g_lightPosition1),
          ARD_FIELD(CbLights, g_lightAmbient0), ARD_FIELD(CbLights, g_lightDiffuse0),
          ARD_FIELD(CbLights, g_lightAmbient1), ARD_FIELD(CbLights, g_lightDiffuse1), ARD_FIELD(CbLights, matAmbient),
          ARD_FIELD(CbLights, matDiffuse), ARD_FIELD(CbLights, matSpecular), ARD_FIELD(CbLights, matEmissive)}},
        {"cbHud", 3, sizeof(CbHud), {ARD_FIELD(CbHud, flat_color), ARD_FIELD(CbHud, flat_pos_offset)}},
    };
    return buffers;
}

std::string Source(int radialBlurSamples) {
    std::string s = kDeclarations;
    s += SurfaceVertex("TwoLightsTex_VS_D3D11");
    s += "float4 TwoLightsTex_PS_D3D11(SURFACE_OUTPUT input) : SV_Target\n{\n"
         "    float3 c = colorMap.Sample(samWrap, input.UV).rgb;\n" +
         Shade("c") + "    return float4(shaded * " + std::to_string(kSkinShadeScale) + ", 1.0);\n}\n\n";
    s += SurfaceVertex("Fur_VS_D3D11");
    // Each shell samples its dot texture twice as densely as the colour;
    // the hairs fade out towards their tips (g_FurFade).
    s += "float4 Fur_PS_D3D11(SURFACE_OUTPUT input) : SV_Target\n{\n"
         "    float4 dots = dotMap.Sample(samWrap, input.UV * " + std::to_string(kDotTexCoordScale) + ");\n"
         "    float4 c0 = colorMap.Sample(samWrap, input.UV);\n"
         "    float3 c = c0.rgb * dots.rgb;\n" +
         Shade("c") + "    return float4(shaded, dots.a * g_FurFade);\n}\n\n";
    s += PostEffect(radialBlurSamples);
    s += kHud;
    return s;
}

const Program& D3D11Program(PaintProgram program) {
    switch (program) {
        case PaintProgram::kBackground: return kBackground;
        case PaintProgram::kSkin: return kSkin;
        case PaintProgram::kFur: return kFur;
        case PaintProgram::kPostFx: return kPost;
        case PaintProgram::kHudFlat: return kFlat;
        case PaintProgram::kHudTextured: break;
    }
    return kTextured;
}

const Program& D3D11LineProgram() { return kLine; }

const Technique& D3D10Technique(PaintProgram program) {
    static const Technique fur = {"RenderFur", kFur};
    static const Technique flat = {"RenderFurFlat", kSkin};
    static const Technique hud = {"RenderHud", kFlat};
    static const Technique hudTex = {"RenderHudTex", kTextured};
    static const Technique post = {"PostFX", kPost};
    switch (program) {
        case PaintProgram::kBackground: return hudTex;
        case PaintProgram::kSkin: return flat;
        case PaintProgram::kFur: return fur;
        case PaintProgram::kPostFx: return post;
        case PaintProgram::kHudFlat: return hud;
        case PaintProgram::kHudTextured: break;
    }
    return hudTex;
}

std::vector<EntryPoint> EntryPoints() {
    return {{kSkin.vertex, true},  {kSkin.pixel, false},  {kFur.vertex, true},     {kFur.pixel, false},
            {kPost.vertex, true},  {kPost.pixel, false},  {kFlat.vertex, true},    {kFlat.pixel, false},
            {kTextured.pixel, false}, {kLine.vertex, true}, {kLine.pixel, false}};
}

CbLights Lights() {
    CbLights l{};
    for (int i = 0; i < 2; ++i) {
        float* pos = i == 0 ? l.g_lightPosition0 : l.g_lightPosition1;
        pos[0] = kFurLights[i].position.x;
        pos[1] = kFurLights[i].position.y;
        pos[2] = kFurLights[i].position.z;
        pos[3] = 1.0f;
        std::memcpy(i == 0 ? l.g_lightAmbient0 : l.g_lightAmbient1, kFurLights[i].ambient, sizeof l.g_lightAmbient0);
        std::memcpy(i == 0 ? l.g_lightDiffuse0 : l.g_lightDiffuse1, kFurLights[i].diffuse, sizeof l.g_lightDiffuse0);
    }
    std::memcpy(l.matAmbient, kFurMaterialAmbient, sizeof l.matAmbient);
    std::memcpy(l.matDiffuse, kFurMaterialDiffuse, sizeof l.matDiffuse);
    return l;
}

void HudMatrix(int width, int height, float out[16]) {
    std::memcpy(out, PixelViewMatrix(width, height).data(), 16 * sizeof(float));
}

}  // namespace fur_hlsl
