#include "render/gl4_api.h"

#include <utility>
#include <vector>

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

GLuint BuildStagedProgram(const char* vertex, const char* tessControl, const char* tessEvaluation,
                          const char* fragment, const std::vector<std::pair<GLuint, const char*>>& attributes) {
    return ::BuildStagedProgram({{gl::VERTEX_SHADER, vertex},
                                 {TESS_CONTROL_SHADER, tessControl},
                                 {TESS_EVALUATION_SHADER, tessEvaluation},
                                 {gl::FRAGMENT_SHADER, fragment}},
                                attributes);
}

}  // namespace gl4
