// An offscreen OpenGL 4.3 context with its own entry point table, for the
// compute passes of one simulation thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "render/gl_api.h"

namespace platform {
class GlContext;
}

namespace sim {

class GpuContext {
public:
    // Makes the context current on the calling thread; null with *why otherwise.
    static std::unique_ptr<GpuContext> Create(std::string* why);
    ~GpuContext();

    // Compiles and links a compute program; 0 with the compiler's words in *why.
    GLuint Program(const char* source, std::string* why);
    // A shader storage buffer of `bytes`, filled from data when given.
    GLuint Buffer(size_t bytes, const void* data);
    void Bind(GLuint index, GLuint buffer);
    // Enough groups of `groupSize` for `items`, then a storage barrier.
    void Dispatch(GLuint program, size_t items, GLuint groupSize);

    gl::ComputeApi api;

private:
    GpuContext() = default;
    std::unique_ptr<platform::GlContext> context_;
    std::vector<GLuint> programs_, buffers_;
};

}  // namespace sim
