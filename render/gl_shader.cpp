#include "render/gl_shader.h"

#include <cctype>

#include "core/event_log.h"

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

GLuint Compile(GLenum type, const char* source) {
    GLuint s = gl::CreateShader(type);
    gl::ShaderSource(s, 1, &source, nullptr);
    gl::CompileShader(s);
    GLint ok = 0;
    gl::GetShaderiv(s, gl::COMPILE_STATUS, &ok);
    if (!ok) {
        std::string log = ShaderInfoLog(s, false);
        gEventLog.Write(type == gl::VERTEX_SHADER ? "Vertex shader creation failed: %s" : "Pixel shader creation failed: %s",
                        log.c_str());
        gl::DeleteShader(s);
        return 0;
    }
    return s;
}

}  // namespace

GLuint BuildProgram(const char* vertexSource, const char* fragmentSource,
                    const std::vector<std::pair<GLuint, const char*>>& attributes) {
    GLuint vs = Compile(gl::VERTEX_SHADER, vertexSource);
    if (!vs) return 0;
    GLuint fs = Compile(gl::FRAGMENT_SHADER, fragmentSource);
    if (!fs) {
        gl::DeleteShader(vs);
        return 0;
    }
    GLuint p = gl::CreateProgram();
    gl::AttachShader(p, vs);
    gl::AttachShader(p, fs);
    for (const auto& a : attributes) gl::BindAttribLocation(p, a.first, a.second);
    gl::LinkProgram(p);
    gl::DeleteShader(vs);
    gl::DeleteShader(fs);
    GLint ok = 0;
    gl::GetProgramiv(p, gl::LINK_STATUS, &ok);
    if (!ok) {
        std::string log = ShaderInfoLog(p, true);
        gEventLog.Write("Shader program creation failed: %s", log.c_str());
        gl::DeleteProgram(p);
        return 0;
    }
    return p;
}

bool IsSoftwareRasterizer(const std::string& renderer) {
    std::string lower = renderer;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* name : {"llvmpipe", "softpipe", "software rasterizer", "swiftshader", "gdi generic"})
        if (lower.find(name) != std::string::npos) return true;
    return false;
}

