// The OpenGL 4 entry points only the OpenGL 4 benchmark draws with
// (tessellation, instancing, shadow maps). They live in a table of their own,
// loaded once its 4.x context is current, so the OpenGL 2 and 3 back-ends
// never ask a driver for functions their contexts do not have.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "render/gl_api.h"

namespace gl4 {

constexpr GLenum TESS_EVALUATION_SHADER = 0x8E87, TESS_CONTROL_SHADER = 0x8E88, PATCHES = 0x000E,
                 PATCH_VERTICES = 0x8E72;
constexpr GLenum DEPTH_COMPONENT = 0x1902, TEXTURE_COMPARE_MODE = 0x884C, TEXTURE_COMPARE_FUNC = 0x884D,
                 COMPARE_REF_TO_TEXTURE = 0x884E, POLYGON_OFFSET_FILL = 0x8037, NONE = 0,
                 PROGRAM_POINT_SIZE = 0x8642, TEXTURE1 = 0x84C1, TEXTURE2 = 0x84C2, TEXTURE3 = 0x84C3;

#define ARD_GL4_FUNCTIONS(X)                                                                                       \
    X(PatchParameteri, void, (GLenum name, GLint value))                                                           \
    X(DrawElementsInstanced, void, (GLenum mode, GLsizei count, GLenum type, const void* indices, GLsizei n))      \
    X(DrawArraysInstanced, void, (GLenum mode, GLint first, GLsizei count, GLsizei n))                             \
    X(VertexAttribDivisor, void, (GLuint index, GLuint divisor))                                                   \
    X(PolygonOffset, void, (GLfloat factor, GLfloat units))                                                        \
    X(DrawBuffer, void, (GLenum mode))                                                                             \
    X(Uniform2f, void, (GLint loc, GLfloat a, GLfloat b))

struct Api {
#define ARD_GL4_MEMBER(name, ret, params) ret(ARD_GLAPI* name) params = nullptr;
    ARD_GL4_FUNCTIONS(ARD_GL4_MEMBER)
#undef ARD_GL4_MEMBER
    // Fills the table; returns the names that could not be found (comma
    // separated, empty when all were).
    std::string Load(gl::ProcLookup lookup);
};

// Compiles and links a program of vertex, optional tessellation control and
// evaluation, and fragment stages (attribute locations bound before
// linking). Returns 0 after logging the compiler's words, naming the stage.
GLuint BuildStagedProgram(const char* vertex, const char* tessControl, const char* tessEvaluation,
                          const char* fragment, const std::vector<std::pair<GLuint, const char*>>& attributes);

}  // namespace gl4
