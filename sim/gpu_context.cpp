#include "sim/gpu_context.h"

#include <mutex>
#include <thread>

#include "core/event_log.h"
#include "platform/gl_context.h"
#include "sim/simulation.h"

namespace sim {

namespace {
constexpr GLenum kMajorVersion = 0x821B, kMinorVersion = 0x821C;
}

GpuContext::~GpuContext() {
    for (GLuint p : programs_) api.DeleteProgram(p);
    if (!buffers_.empty()) api.DeleteBuffers(static_cast<GLsizei>(buffers_.size()), buffers_.data());
}

std::unique_ptr<GpuContext> GpuContext::Create(std::string* why) {
    platform::GlContextRequest req;
    req.major = 4;
    req.minor = 3;
    req.core = true;
    auto ctx = std::unique_ptr<GpuContext>(new GpuContext());
    ctx->context_ = platform::CreateOffscreenGlContext(req, why);
    if (!ctx->context_) return nullptr;
    std::string missing = ctx->api.Load(platform::CurrentGlProcAddress);
    if (!missing.empty()) {
        *why = "missing entry points: " + missing;
        return nullptr;
    }
    GLint major = 0, minor = 0;
    ctx->api.GetIntegerv(kMajorVersion, &major);
    ctx->api.GetIntegerv(kMinorVersion, &minor);
    if (major < 4 || (major == 4 && minor < 3)) {
        *why = "the context is older than OpenGL 4.3";
        return nullptr;
    }
    return ctx;
}

GLuint GpuContext::Program(const char* source, std::string* why) {
    GLuint shader = api.CreateShader(gl::COMPUTE_SHADER);
    api.ShaderSource(shader, 1, &source, nullptr);
    api.CompileShader(shader);
    GLint ok = 0;
    api.GetShaderiv(shader, gl::COMPILE_STATUS, &ok);
    char log[1024] = "";
    if (!ok) {
        api.GetShaderInfoLog(shader, sizeof log, nullptr, log);
        api.DeleteShader(shader);
        *why = std::string("compute shader: ") + log;
        return 0;
    }
    GLuint program = api.CreateProgram();
    api.AttachShader(program, shader);
    api.LinkProgram(program);
    api.DeleteShader(shader);
    api.GetProgramiv(program, gl::LINK_STATUS, &ok);
    if (!ok) {
        api.GetProgramInfoLog(program, sizeof log, nullptr, log);
        api.DeleteProgram(program);
        *why = std::string("compute program: ") + log;
        return 0;
    }
    programs_.push_back(program);
    return program;
}

GLuint GpuContext::Buffer(size_t bytes, const void* data) {
    GLuint b = 0;
    api.GenBuffers(1, &b);
    api.BindBuffer(gl::SHADER_STORAGE_BUFFER, b);
    api.BufferData(gl::SHADER_STORAGE_BUFFER, static_cast<GLsizeiptr>(bytes ? bytes : 4), data, gl::DYNAMIC_DRAW);
    buffers_.push_back(b);
    return b;
}

void GpuContext::Bind(GLuint index, GLuint buffer) { api.BindBufferBase(gl::SHADER_STORAGE_BUFFER, index, buffer); }

void GpuContext::Dispatch(GLuint program, size_t items, GLuint groupSize) {
    (void)program;
    GLuint groups = static_cast<GLuint>((items + groupSize - 1) / groupSize);
    if (groups == 0) return;
    api.DispatchCompute(groups, 1, 1);
    api.MemoryBarrier(gl::SHADER_STORAGE_BARRIER_BIT | gl::BUFFER_UPDATE_BARRIER_BIT);
}

bool GpuComputeAvailable(std::string* why) {
    static std::once_flag once;
    static bool available = false;
    static std::string reason;
    std::call_once(once, [] {
        // A thread of its own: making a context current here must not take
        // the caller's context away.
        std::thread probe([] {
            std::string error;
            auto ctx = GpuContext::Create(&error);
            if (ctx && ctx->Program("#version 430\nlayout(local_size_x = 1) in;\nvoid main() {}\n", &error))
                available = true;
            else
                reason = error;
        });
        probe.join();
    });
    if (why) *why = reason;
    return available;
}

}  // namespace sim
