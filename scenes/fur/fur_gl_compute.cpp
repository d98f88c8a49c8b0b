// The compute check of the OpenGL back-ends: a shader computes values the
// processor knows in advance, and the read-back is compared value by value.
#include <string>
#include <vector>

#include "core/event_log.h"
#include "platform/gl_context.h"
#include "render/gl_shader.h"
#include "runner/frame_verify.h"
#include "scenes/fur/fur_gl.h"

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
    computeExpected_.resize(kComputeValues);
    for (int i = 0; i < kComputeValues; ++i) computeExpected_[static_cast<size_t>(i)] = ComputeCheckValue(static_cast<uint32_t>(i));
    return true;
}

int cLm4DDemo_GL::RunComputeCheck() {
    if (!context_ || amark_mode) return -1;
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
    int wrong = 0;
    for (int i = 0; i < kComputeValues; ++i) wrong += got[static_cast<size_t>(i)] != computeExpected_[static_cast<size_t>(i)];
    return wrong;
}

