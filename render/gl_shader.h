// Shader programs and textures on the current OpenGL context, with the
// compiler's own words in the event log when something fails.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "render/gl_api.h"

// The compiler's or linker's message for a shader (program false) or a
// program, trimmed; "(no compiler message)" when it has none.
std::string ShaderInfoLog(GLuint object, bool program);
// One stage of a program: its type and source (a null source is left out).
struct ShaderStage {
    GLenum type;
    const char* source;
};

// Compiles the stages and links them into a program; attribute locations
// are bound, and beforeLink runs (transform feedback varyings, say), before
// linking. Returns 0 after logging "<stage> shader creation failed: %s"
// (Vertex, Tessellation control, Tessellation evaluation, Compute, Pixel)
// or "Shader program creation failed: %s".
GLuint BuildStagedProgram(const std::vector<ShaderStage>& stages,
                          const std::vector<std::pair<GLuint, const char*>>& attributes = {},
                          const std::function<void(GLuint)>& beforeLink = nullptr);

// A vertex and a fragment stage.
GLuint BuildProgram(const char* vertexSource, const char* fragmentSource,
                    const std::vector<std::pair<GLuint, const char*>>& attributes = {});

// True for renderers that rasterize on the CPU (Mesa's llvmpipe and
// softpipe, SwiftShader, Windows' GDI fallback). Anisotropic filtering is
// left off there: it costs them dearly, and with it on llvmpipe now and then
// spent minutes on the first frame of a fur run (one rasterizer thread deep
// in the sampler while the other waited).
bool IsSoftwareRasterizer(const std::string& renderer);

