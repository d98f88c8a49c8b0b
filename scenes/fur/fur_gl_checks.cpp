// The burn-in checks of the OpenGL back-ends: the check frame's own small
// target, and the compute check, in which a shader computes values the
// processor knows in advance and the read-back is compared value by value.
#include <algorithm>
#include <string>
#include <vector>

#include "core/event_log.h"
#include "platform/gl_context.h"
#include "render/gl_shader.h"
#include "runner/frame_verify.h"
#include "scenes/fur/fur_gl.h"

bool cLm4DDemo_GL::BeginCheckScene(int* width, int* height) {
    if (!checkFbo_) {
        const int side = std::max(width_, height_);
        const double scale = side > kCheckFrameSide ? static_cast<double>(kCheckFrameSide) / side : 1.0;
        checkWidth_ = std::max(1, static_cast<int>(width_ * scale));
        checkHeight_ = std::max(1, static_cast<int>(height_ * scale));
        gl::GenRenderbuffers(1, &checkColor_);
        gl::BindRenderbuffer(gl::RENDERBUFFER, checkColor_);
        gl::RenderbufferStorage(gl::RENDERBUFFER, gl::RGBA8, checkWidth_, checkHeight_);
        gl::GenRenderbuffers(1, &checkDepth_);
        gl::BindRenderbuffer(gl::RENDERBUFFER, checkDepth_);
        gl::RenderbufferStorage(gl::RENDERBUFFER, gl::DEPTH24_STENCIL8, checkWidth_, checkHeight_);
        gl::GenFramebuffers(1, &checkFbo_);
        gl::BindFramebuffer(gl::FRAMEBUFFER, checkFbo_);
        gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::RENDERBUFFER, checkColor_);
        gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::DEPTH_STENCIL_ATTACHMENT, gl::RENDERBUFFER, checkDepth_);
        const bool ok = gl::CheckFramebufferStatus(gl::FRAMEBUFFER) == gl::FRAMEBUFFER_COMPLETE;
        gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
        if (!ok) {
            FreeCheckTarget();
            return false;
        }
    }
    // The scene is drawn for the whole view; the viewport shrinks it to the
    // check target.
    ClearTarget(checkFbo_, checkWidth_, checkHeight_);
    *width = checkWidth_;
    *height = checkHeight_;
    return true;
}

bool cLm4DDemo_GL::ReadCheckScene(std::string* rgba) {
    ReadFramebuffer(checkFbo_, checkWidth_, checkHeight_, rgba);
    gl::Viewport(0, 0, width_, height_);
    return true;
}

void cLm4DDemo_GL::FreeCheckTarget() {
    if (checkFbo_) gl::DeleteFramebuffers(1, &checkFbo_);
    if (checkColor_) gl::DeleteRenderbuffers(1, &checkColor_);
    if (checkDepth_) gl::DeleteRenderbuffers(1, &checkDepth_);
    checkFbo_ = checkColor_ = checkDepth_ = 0;
}

namespace {

// ComputeCheckValue of the runner, index by index, in the shading language.
const char* const kComputeCheckSource =
    "#version 430\n"
    "layout(local_size_x = 64) in;\n"
    "layout(std430, binding = 0) buffer Values { uint v[]; };\n"
    "void main() {\n"
    "    uint x = gl_GlobalInvocationID.x * 2654435761u + 1u;\n"
    "    for (int k = 0; k < ROUNDS; ++k) {\n"
    "        x ^= x << 13;\n"
    "        x ^= x >> 17;\n"
    "        x ^= x << 5;\n"
    "        x = x * 1664525u + 1013904223u;\n"
    "    }\n"
    "    v[gl_GlobalInvocationID.x] = x;\n"
    "}\n";
constexpr GLenum kDynamicCopy = 0x88EA;

}  // namespace

bool cLm4DDemo_GL::SetUpComputeCheck() {
    if (glMajor_ * 10 + glMinor_ < 43 || !compute_.Load(platform::CurrentGlProcAddress).empty()) return false;
    std::string source = kComputeCheckSource;
    source.replace(source.find("ROUNDS"), 6, std::to_string(kComputeRounds));
    computeProgram_ = BuildStagedProgram({{gl::COMPUTE_SHADER, source.c_str()}});
    if (!computeProgram_) {
        gEventLog.Write("Verification: the compute check's program did not build; no compute check.");
        return false;
    }
    compute_.GenBuffers(1, &computeBuffer_);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, computeBuffer_);
    compute_.BufferData(gl::SHADER_STORAGE_BUFFER, kComputeValues * sizeof(uint32_t), nullptr, kDynamicCopy);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, 0);
    return true;
}

int cLm4DDemo_GL::RunComputeCheck() {
    if (!context_) return -1;
    if (computeState_ == 0) computeState_ = SetUpComputeCheck() ? 1 : -1;
    if (computeState_ < 0) return -1;
    // Cleared first: results left from the last check must not pass for this one's.
    std::vector<uint32_t> got(kComputeValues, 0u);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, computeBuffer_);
    compute_.BufferSubData(gl::SHADER_STORAGE_BUFFER, 0, kComputeValues * sizeof(uint32_t), got.data());
    compute_.UseProgram(computeProgram_);
    compute_.BindBufferBase(gl::SHADER_STORAGE_BUFFER, 0, computeBuffer_);
    compute_.DispatchCompute(kComputeValues / 64, 1, 1);
    compute_.MemoryBarrier(gl::BUFFER_UPDATE_BARRIER_BIT);
    compute_.GetBufferSubData(gl::SHADER_STORAGE_BUFFER, 0, kComputeValues * sizeof(uint32_t), got.data());
    compute_.BindBufferBase(gl::SHADER_STORAGE_BUFFER, 0, 0);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, 0);
    compute_.UseProgram(0);
    return CountComputeMismatches(got.data());
}

