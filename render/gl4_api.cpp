#include "render/gl4_api.h"

#include <utility>
#include <vector>

#include "core/event_log.h"
#include "render/gl_shader.h"

namespace gl4 {

std::string Api::Load(gl::ProcLookup lookup) {
    std::string missing;
#define ARD_GL4_LOAD(name, ret, params)                              \
    name = reinterpret_cast<ret(ARD_GLAPI*) params>(lookup("gl" #name)); \
    if (!name) missing += std::string(missing.empty() ? "" : ", ") + "gl" #name;
    ARD_GL4_FUNCTIONS(ARD_GL4_LOAD)
#undef ARD_GL4_LOAD
    return missing;
}

namespace {

const char* StageName(GLenum type) {
    switch (type) {
        case gl::VERTEX_SHADER: return "Vertex";
        case TESS_CONTROL_SHADER: return "Tessellation control";
        case TESS_EVALUATION_SHADER: return "Tessellation evaluation";
        default: return "Pixel";
    }
}

}  // namespace

GLuint BuildStagedProgram(const char* vertex, const char* tessControl, const char* tessEvaluation,
                          const char* fragment, const std::vector<std::pair<GLuint, const char*>>& attributes) {
    const std::pair<GLenum, const char*> stages[] = {{gl::VERTEX_SHADER, vertex},
                                                     {TESS_CONTROL_SHADER, tessControl},
                                                     {TESS_EVALUATION_SHADER, tessEvaluation},
                                                     {gl::FRAGMENT_SHADER, fragment}};
    std::vector<GLuint> shaders;
    bool ok = true;
    for (const auto& st : stages) {
        if (!st.second) continue;
        GLuint s = gl::CreateShader(st.first);
        gl::ShaderSource(s, 1, &st.second, nullptr);
        gl::CompileShader(s);
        GLint compiled = 0;
        gl::GetShaderiv(s, gl::COMPILE_STATUS, &compiled);
        if (!compiled) {
            gEventLog.Write("%s shader creation failed: %s", StageName(st.first), ShaderInfoLog(s, false).c_str());
            gl::DeleteShader(s);
            ok = false;
            break;
        }
        shaders.push_back(s);
    }
    GLuint p = 0;
    if (ok) {
        p = gl::CreateProgram();
        for (GLuint s : shaders) gl::AttachShader(p, s);
        for (const auto& a : attributes) gl::BindAttribLocation(p, a.first, a.second);
        gl::LinkProgram(p);
        GLint linked = 0;
        gl::GetProgramiv(p, gl::LINK_STATUS, &linked);
        if (!linked) {
            gEventLog.Write("Shader program creation failed: %s", ShaderInfoLog(p, true).c_str());
            gl::DeleteProgram(p);
            p = 0;
        }
    }
    for (GLuint s : shaders) gl::DeleteShader(s);
    return p;
}

}  // namespace gl4
