// The programs of the Direct3D 9 fur back-end, written as shader-model-3
// assembly made at start-up, and everything else of that back-end that needs
// no device: the technique table, the one table of constant registers that
// both the text and the constant uploads use, the values that never change
// while a test runs, and the pixel conversions of texture upload and
// read-back. Platform-independent, so that it is checked on every build.
//
// Assembly rather than HLSL: the shader-model-3 HLSL compilers the program
// meets disagree (texture reads, loops, functions), while the assembler
// turns this text into the same byte code everywhere. Conventions, shared
// with the other back-ends: matrices are column-major and act on column
// vectors (each is uploaded as its four rows, so that dp4 with register k
// gives component k); clip depth is moved from OpenGL's -w..w to 0..w by
// z' = (z + w) / 2; every vertex program shifts its clip position by half a
// pixel (up and left), so that pixel centres fall where Direct3D 10 and
// OpenGL put them and textures are read texel for texel.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scenes/fur/fur_painter.h"

namespace fur_d3d9 {

enum class ShaderStage { kVertex, kPixel };

// The values the programs read, each with a fixed place in the vertex or
// pixel constant registers.
enum class Const {
    // vertex stage
    kWorldViewProjection,
    kModelView,
    kViewMatrix,
    kMatWorld,
    kProjectionMatrix,
    kHudMatrix,  // pixels (y down) onto clip space
    kFurLength,
    kLayer,
    kUVScale,
    kLightPosition0,
    kLightPosition1,
    kPixelOffset,  // half a pixel in clip units: (-1 / width, 1 / height)
    // pixel stage
    kFlatColor,
    kFurFade,
    kLightAmbient,   // both lights' ambient times the material's
    kLightDiffuse0,  // light 0's diffuse times the material's
    kLightDiffuse1,
    kRadialBlurScaleMul,
    kRadialBlurSamples,
    kElapsedTime,
    kCount
};

// Where a value lives: `registers` whole registers from `reg` (a matrix: its
// four rows), or, for a scalar packed with others, one component of `reg`.
struct ConstantSlot {
    Const id;
    const char* name;
    ShaderStage stage;
    int reg;
    int registers;
    int component;   // first component: 0 = x ... 3 = w
    int components;  // 4 for whole registers
};
const std::vector<ConstantSlot>& Constants();
const ConstantSlot& Slot(Const id);
// "c24.y" for a packed scalar, "c25" for a register, "c0" for a matrix's
// first row (row k is register reg + k).
std::string RegisterName(Const id, int row = 0);

// Literal registers each program defines with `def` (per stage): kept clear
// of the table above.
constexpr int kVertexLiteralRegister = 32;
constexpr int kPixelLiteralRegister = 16;
// Registers the back-end uploads from (per stage); every slot lies below.
constexpr int kVertexRegisters = 28;
constexpr int kPixelRegisters = 6;

// How a technique's textures are sampled: the surface and dot textures
// repeat and are filtered anisotropically; pictures, text and the scene
// target are clamped and filtered linearly.
enum class Sampling { kWrapAnisotropic, kClampLinear };

struct Technique {
    const char* name;
    const char* vertexShader;
    const char* pixelShader;
    Sampling sampling;
};
// RenderMeshFur, RenderMeshFlat, RenderHud, RenderHudTex, PostFx.
const std::vector<Technique>& Techniques();
const Technique& TechniqueFor(PaintProgram program);

struct Shader {
    std::string name;
    ShaderStage stage;
    std::string text;
};
// Every shader the techniques name, the post effect with `radialBlurSamples`
// taps written out one after the other (clamped by ClampBlurSamples).
std::vector<Shader> Shaders(int radialBlurSamples);

// Instruction slots shader-model-3 guarantees a pixel program, and the most
// taps of the post effect that fit in them.
constexpr int kPixelShader3Slots = 512;
int MaxBlurSamples();
int ClampBlurSamples(int samples);

// Instruction slots a text takes: every instruction one, nrm three; version,
// declarations, definitions and comments none. -1 for an opcode the
// generator never writes.
int InstructionSlots(const std::string& text);

// The constant values that never change while a test runs.
struct LightValues {
    float position0[4], position1[4];  // world space, w = 1
    float ambient[4], diffuse0[4], diffuse1[4];
};
LightValues Lights();

// A column-major matrix as the four rows its registers hold.
void MatrixRows(const float columnMajor[16], float rows[16]);
// The HUD's pixel matrix, as rows.
void HudMatrixRows(int width, int height, float rows[16]);
void PixelOffset(int width, int height, float out[4]);

// RGBA rows into the B, G, R, A bytes of a 32-bit texture, one row at a
// time into rows `pitch` bytes apart.
void RgbaToBgra(const uint8_t* rgba, int width, int height, uint8_t* out, int pitch);
// A B, G, R, X (or A) surface, rows `pitch` bytes apart and top row first,
// into tightly packed RGBA with alpha 255.
void BgrxToRgba(const uint8_t* bgrx, int width, int height, int pitch, std::string* rgba);

}  // namespace fur_d3d9
