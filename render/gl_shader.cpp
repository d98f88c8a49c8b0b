#include "render/gl_shader.h"

#include <cctype>
#include <functional>

#include "core/event_log.h"
#include "render/gl4_api.h"

std::string ShaderInfoLog(GLuint object, bool program) {
    GLint length = 0;
    if (program)
        gl::GetProgramiv(object, gl::INFO_LOG_LENGTH, &length);
    else
        gl::GetShaderiv(object, gl::INFO_LOG_LENGTH, &length);
    if (length <= 1) return std::string("(no compiler message)");
    std::string log(static_cast<size_t>(length), '\0');
    if (program)
        gl::GetProgramInfoLog(object, length, nullptr, &log[0]);
    else
        gl::GetShaderInfoLog(object, length, nullptr, &log[0]);
    while (!log.empty() && (log.back() == '\0' || log.back() == '\n')) log.pop_back();
    return log;
}

namespace {

// The stage's name in the log; fragment programs are "pixel" shaders there.
const char* StageName(GLenum type) {
    switch (type) {
        case gl::VERTEX_SHADER: return "Vertex";
        case gl4::TESS_CONTROL_SHADER: return "Tessellation control";
        case gl4::TESS_EVALUATION_SHADER: return "Tessellation evaluation";
        case gl::COMPUTE_SHADER: return "Compute";
        default: return "Pixel";
    }
}

}  // namespace

GLuint BuildStagedProgram(const std::vector<ShaderStage>& stages,
                          const std::vector<std::pair<GLuint, const char*>>& attributes,
                          const std::function<void(GLuint)>& beforeLink) {
    std::vector<GLuint> shaders;
    bool ok = true;
    for (const ShaderStage& st : stages) {
        if (!st.source) continue;
        GLuint s = gl::CreateShader(st.type);
        gl::ShaderSource(s, 1, &st.source, nullptr);
        gl::CompileShader(s);
        GLint compiled = 0;
        gl::GetShaderiv(s, gl::COMPILE_STATUS, &compiled);
        if (!compiled) {
            gEventLog.Write("%s shader creation failed: %s", StageName(st.type), ShaderInfoLog(s, false).c_str());
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
        if (beforeLink) beforeLink(p);
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

GLuint BuildProgram(const char* vertexSource, const char* fragmentSource,
                    const std::vector<std::pair<GLuint, const char*>>& attributes) {
    return BuildStagedProgram({{gl::VERTEX_SHADER, vertexSource}, {gl::FRAGMENT_SHADER, fragmentSource}}, attributes);
}

bool IsSoftwareRasterizer(const std::string& renderer) {
    std::string lower = renderer;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* name : {"llvmpipe", "softpipe", "software rasterizer", "swiftshader", "gdi generic"})
        if (lower.find(name) != std::string::npos) return true;
    return false;
}

