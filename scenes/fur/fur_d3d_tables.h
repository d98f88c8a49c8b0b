// What the Direct3D 10 and 11 fur back-ends decide without a device: which
// vertex and pixel pair each painter program binds, how the painter's blend
// modes and primitives become pipeline state, how the HUD vertex stream
// grows, and how a mapped read-back becomes tightly packed rows. Kept apart
// from the device code so that it is the same, and tested, on every build.
#pragma once

#include <cstddef>
#include <string>

#include "scenes/fur/fur_hlsl.h"
#include "scenes/fur/fur_painter.h"

namespace fur_d3d {

// PaintProgram values run from 0 to kProgramCount - 1.
constexpr int kProgramCount = static_cast<int>(PaintProgram::kHudTextured) + 1;

// A vertex and pixel pair bound together, and the name the log gives it
// when one of its shaders cannot be made.
struct Pass {
    const char* technique;  // nullptr where the API names plain entry points
    fur_hlsl::Program program;
};

// The passes of one API: one per PaintProgram, and the one the flat HUD's
// lines are drawn with.
struct PassTable {
    Pass programs[kProgramCount];
    Pass lines;
    const Pass& For(PaintProgram p) const { return programs[static_cast<int>(p)]; }
};

// Direct3D 10: the technique table; lines go through the flat HUD technique.
PassTable TechniquePasses();
// Direct3D 11: the entry points by name, lines with their own pair.
PassTable EntryPointPasses();

// How a log line names a pass: "technique RenderFur (Fur_VS_D3D11,
// Fur_PS_D3D11)" or "Fur_VS_D3D11, Fur_PS_D3D11".
std::string Describe(const Pass& pass);

// A compiler's message about one of the pass's shaders, led by the
// technique's name where the pass has one.
std::string CompileFailure(const Pass& pass, const std::string& compilerMessage);

// Blend factors the painter's modes need; the back-ends map each onto the
// API's own enumeration.
enum class BlendFactor { kZero, kOne, kSrcAlpha, kInvSrcAlpha, kInvSrcColor };

struct BlendMode {
    bool enable;
    BlendFactor src, dst;            // colour
    BlendFactor srcAlpha, dstAlpha;  // alpha: never a colour factor, which the APIs refuse there
};
BlendMode BlendModeOf(PaintBlend blend);
constexpr int kBlendCount = static_cast<int>(PaintBlend::kInverseColorAdd) + 1;

enum class Topology { kTriangleList, kLineStrip, kLineList };
Topology TopologyOf(PaintPrimitive primitive);

// Bytes of the HUD vertex stream for a draw of `needed` bytes when it holds
// `current` now: unchanged while it is enough, else doubled from at least
// kMinStreamBytes until it is.
constexpr size_t kMinStreamBytes = 64 * 1024;
size_t StreamCapacity(size_t current, size_t needed);

// `height` rows of `width` RGBA texels, `pitch` bytes apart in `mapped`,
// into `out` without the padding.
void PackRows(const void* mapped, size_t pitch, int width, int height, std::string* out);

// Whether the repeating sampler filters anisotropically. Not where Direct3D
// is Wine's, drawn by a software rasterizer (the OpenGL renderer the start-up
// probe found): its anisotropic sampling can take a frame minutes, or for
// ever, and the run then never ends. The GL back-end makes the same choice.
bool AnisotropicFiltering(bool underWine, const std::string& glRenderer);
// The choice for this process, logged when filtering is plain.
bool AnisotropicFilteringHere();

}  // namespace fur_d3d
