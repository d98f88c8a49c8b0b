// The shader-model-4 programs of the Direct3D 10 and 11 fur back-ends: one
// HLSL text, made at start-up with the post effect's loop unrolled, its four
// constant buffers mirrored by the structures below, and the tables that
// name the entry points each back-end's techniques use.
//
// The text keeps to what every HLSL compiler the program meets handles
// alike: straight-line code without loops, user functions or the ?:
// operator, and only the common intrinsics (mul, dot, normalize, saturate,
// pow). Clip-space depth comes out in Direct3D's 0..1 range from the
// OpenGL-style projection the scene uses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "scenes/fur/fur_painter.h"

namespace fur_hlsl {

// Matrices are stored column after column (HLSL's default packing), so
// mul(M, v) is the OpenGL-style product.
struct CbPerObject {
    float g_worldViewProjection[16];
    float g_modelView[16];
    float g_viewMatrix[16];
    float g_matWorld[16];
    float g_FurLength;
    float g_Layer;
    float g_UVScale;
    float g_FurFade;
};

struct CbPerFrame {
    float g_hudMatrix[16];  // pixels, y down, onto clip space
    float elapsedTime;
    int32_t radial_blur_samples;
    float radial_blur_scale_mul;
    float g_framePad;
};

struct CbLights {
    float g_lightPosition0[4];
    float g_lightPosition1[4];
    float g_lightAmbient0[4];
    float g_lightDiffuse0[4];
    float g_lightAmbient1[4];
    float g_lightDiffuse1[4];
    float matAmbient[4];
    float matDiffuse[4];
    float matSpecular[4];
    float matEmissive[4];
};

struct CbHud {
    float flat_color[4];
    float flat_pos_offset[4];  // added to HUD positions, in pixels
};

// A field of a constant buffer as the C++ side lays it out.
struct CbField {
    const char* name;
    size_t offset;
    size_t size;
};
struct CbLayout {
    const char* name;  // the cbuffer's name in the text
    int slot;          // its register
    size_t size;       // bytes of the structure (a multiple of 16)
    std::vector<CbField> fields;
};
// The four buffers, slot 0 to 3.
const std::vector<CbLayout>& ConstantBuffers();

// The whole text; radialBlurSamples (at least 1) samples of the post effect.
std::string Source(int radialBlurSamples);

// A program: vertex and pixel entry points of the text.
struct Program {
    const char* vertex;
    const char* pixel;
};

// By PaintProgram (lines of the flat HUD use the line program).
const Program& D3D11Program(PaintProgram program);
const Program& D3D11LineProgram();

// The Direct3D 10 back-end's techniques, each a pass over the same text.
struct Technique {
    const char* name;
    Program pass;
};
const Technique& D3D10Technique(PaintProgram program);

// Every entry point the text defines, for compiling them all at start-up.
struct EntryPoint {
    const char* name;
    bool vertex;  // else a pixel shader
};
std::vector<EntryPoint> EntryPoints();

// Values that never change while a test runs.
CbLights Lights();
// Pixels (y down) onto clip space for a view of this size.
void HudMatrix(int width, int height, float out[16]);

}  // namespace fur_hlsl
