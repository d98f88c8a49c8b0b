#include "scenes/fur/fur_d3d_tables.h"

#include <cstring>

#include "core/event_log.h"
#include "monitor/probe_gpu.h"
#include "platform/platform.h"
#include "render/gl_shader.h"

namespace fur_d3d {

namespace {

constexpr PaintProgram kPrograms[kProgramCount] = {PaintProgram::kBackground, PaintProgram::kSkin,
                                                   PaintProgram::kFur,        PaintProgram::kPostFx,
                                                   PaintProgram::kHudFlat,    PaintProgram::kHudTextured};

}  // namespace

PassTable TechniquePasses() {
    PassTable t{};
    for (PaintProgram p : kPrograms) {
        const fur_hlsl::Technique& technique = fur_hlsl::D3D10Technique(p);
        t.programs[static_cast<int>(p)] = Pass{technique.name, technique.pass};
    }
    // A line needs nothing a flat rectangle does not: the same technique.
    t.lines = t.For(PaintProgram::kHudFlat);
    return t;
}

PassTable EntryPointPasses() {
    PassTable t{};
    for (PaintProgram p : kPrograms) t.programs[static_cast<int>(p)] = Pass{nullptr, fur_hlsl::D3D11Program(p)};
    t.lines = Pass{nullptr, fur_hlsl::D3D11LineProgram()};
    return t;
}

std::string Describe(const Pass& pass) {
    const std::string pair = std::string(pass.program.vertex) + ", " + pass.program.pixel;
    if (!pass.technique) return pair;
    return std::string("technique ") + pass.technique + " (" + pair + ")";
}

std::string CompileFailure(const Pass& pass, const std::string& compilerMessage) {
    if (!pass.technique) return compilerMessage;
    return std::string("technique ") + pass.technique + ": " + compilerMessage;
}

BlendMode BlendModeOf(PaintBlend blend) {
    switch (blend) {
        case PaintBlend::kOpaque: break;
        case PaintBlend::kAlpha:
            return {true, BlendFactor::kSrcAlpha, BlendFactor::kInvSrcAlpha, BlendFactor::kSrcAlpha,
                    BlendFactor::kInvSrcAlpha};
        case PaintBlend::kAdditive:
            return {true, BlendFactor::kOne, BlendFactor::kOne, BlendFactor::kOne, BlendFactor::kOne};
        case PaintBlend::kInverseColorAdd:
            // The alpha channel takes the source whole: a colour factor is
            // not allowed there.
            return {true, BlendFactor::kInvSrcColor, BlendFactor::kOne, BlendFactor::kOne, BlendFactor::kOne};
    }
    return {false, BlendFactor::kOne, BlendFactor::kZero, BlendFactor::kOne, BlendFactor::kZero};
}

Topology TopologyOf(PaintPrimitive primitive) {
    switch (primitive) {
        case PaintPrimitive::kTriangles: break;
        case PaintPrimitive::kLineStrip: return Topology::kLineStrip;
        case PaintPrimitive::kLines: return Topology::kLineList;
    }
    return Topology::kTriangleList;
}

size_t StreamCapacity(size_t current, size_t needed) {
    if (needed <= current) return current;
    size_t capacity = current > kMinStreamBytes ? current : kMinStreamBytes;
    while (capacity < needed) capacity *= 2;
    return capacity;
}

void PackRows(const void* mapped, size_t pitch, int width, int height, std::string* out) {
    out->clear();
    if (width <= 0 || height <= 0) return;
    const size_t row = static_cast<size_t>(width) * 4;
    out->resize(row * static_cast<size_t>(height));
    const char* src = static_cast<const char*>(mapped);
    for (int y = 0; y < height; ++y)
        std::memcpy(&(*out)[static_cast<size_t>(y) * row], src + static_cast<size_t>(y) * pitch, row);
}

bool AnisotropicFiltering(bool underWine, const std::string& glRenderer) {
    return !(underWine && IsSoftwareRasterizer(glRenderer));
}

bool AnisotropicFilteringHere() {
    const bool on = AnisotropicFiltering(platform::UnderWine(), ProbeGPU::getGlRenderer());
    if (!on) gEventLog.Write("Anisotropic filtering is off on a software rasterizer.");
    return on;
}

}  // namespace fur_d3d
