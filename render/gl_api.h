// The OpenGL entry points the program uses, loaded by the program itself from
// one list, through whatever the context offers (wglGetProcAddress with
// opengl32 as fallback, SDL_GL_GetProcAddress, eglGetProcAddress), so no
// loader library is needed. Called as gl::Clear(...).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#if defined(_WIN32)
#define ARD_GLAPI __stdcall
#else
#define ARD_GLAPI
#endif

using GLenum = unsigned int;
using GLboolean = unsigned char;
using GLbitfield = unsigned int;
using GLint = int;
using GLuint = unsigned int;
using GLsizei = int;
using GLfloat = float;
using GLdouble = double;
using GLchar = char;
using GLubyte = unsigned char;
using GLsizeiptr = ptrdiff_t;
using GLintptr = ptrdiff_t;
using GLushort = unsigned short;

namespace gl {

constexpr GLenum DEPTH_BUFFER_BIT = 0x00000100, COLOR_BUFFER_BIT = 0x00004000;
constexpr GLenum POINTS = 0x0000, LINES = 0x0001, LINE_LOOP = 0x0002, LINE_STRIP = 0x0003, TRIANGLES = 0x0004,
                 TRIANGLE_STRIP = 0x0005, QUADS = 0x0007;
constexpr GLenum NEVER = 0x0200, LESS = 0x0201, LEQUAL = 0x0203;
constexpr GLenum SRC_COLOR = 0x0300, ONE_MINUS_SRC_COLOR = 0x0301, SRC_ALPHA = 0x0302, ONE_MINUS_SRC_ALPHA = 0x0303;
constexpr GLenum ZERO = 0, ONE = 1;
constexpr GLenum CULL_FACE = 0x0B44, DEPTH_TEST = 0x0B71, BLEND = 0x0BE2, TEXTURE_2D = 0x0DE1, LIGHTING = 0x0B50,
                 LINE_STIPPLE = 0x0B24, MULTISAMPLE = 0x809D, SCISSOR_TEST = 0x0C11;
constexpr GLenum UNSIGNED_BYTE = 0x1401, UNSIGNED_SHORT = 0x1403, UNSIGNED_INT = 0x1405, FLOAT = 0x1406;
constexpr GLenum RGBA = 0x1908, RGB = 0x1907, ALPHA = 0x1906, RED = 0x1903, RGBA8 = 0x8058, R8 = 0x8229,
                 DEPTH_COMPONENT24 = 0x81A6, DEPTH24_STENCIL8 = 0x88F0;
constexpr GLenum VENDOR = 0x1F00, RENDERER = 0x1F01, VERSION = 0x1F02, EXTENSIONS = 0x1F03,
                 SHADING_LANGUAGE_VERSION = 0x8B8C;
constexpr GLenum MAX_TEXTURE_SIZE = 0x0D33, MAX_VIEWPORT_DIMS = 0x0D3A, MAJOR_VERSION = 0x821B,
                 MINOR_VERSION = 0x821C, SAMPLES = 0x80A9;
constexpr GLenum TEXTURE_MAG_FILTER = 0x2800, TEXTURE_MIN_FILTER = 0x2801, TEXTURE_WRAP_S = 0x2802,
                 TEXTURE_WRAP_T = 0x2803, NEAREST = 0x2600, LINEAR = 0x2601, LINEAR_MIPMAP_LINEAR = 0x2703,
                 CLAMP_TO_EDGE = 0x812F, REPEAT = 0x2901, TEXTURE_MAX_ANISOTROPY = 0x84FE, GENERATE_MIPMAP = 0x8191,
                 TEXTURE_MAX_LEVEL = 0x813D;
constexpr GLenum TEXTURE0 = 0x84C0, TEXTURE1 = 0x84C1;
constexpr GLenum UNPACK_ALIGNMENT = 0x0CF5, PACK_ALIGNMENT = 0x0D05;
constexpr GLenum FRAMEBUFFER = 0x8D40, READ_FRAMEBUFFER = 0x8CA8, DRAW_FRAMEBUFFER = 0x8CA9,
                 RENDERBUFFER = 0x8D41, COLOR_ATTACHMENT0 = 0x8CE0, DEPTH_ATTACHMENT = 0x8D00,
                 DEPTH_STENCIL_ATTACHMENT = 0x821A, FRAMEBUFFER_COMPLETE = 0x8CD5;
constexpr GLenum MODELVIEW = 0x1700, PROJECTION = 0x1701;
constexpr GLenum VERTEX_ARRAY = 0x8074, TEXTURE_COORD_ARRAY = 0x8078, COLOR_ARRAY = 0x8076, NORMAL_ARRAY = 0x8075;
constexpr GLenum ALL_ATTRIB_BITS = 0x000FFFFF, CLIENT_ALL_ATTRIB_BITS = 0xFFFFFFFF;
constexpr GLenum ARRAY_BUFFER = 0x8892, ELEMENT_ARRAY_BUFFER = 0x8893, STATIC_DRAW = 0x88E4, DYNAMIC_DRAW = 0x88E8,
                 STREAM_DRAW = 0x88E0;
constexpr GLenum VERTEX_SHADER = 0x8B31, FRAGMENT_SHADER = 0x8B30, COMPILE_STATUS = 0x8B81, LINK_STATUS = 0x8B82,
                 INFO_LOG_LENGTH = 0x8B84;
constexpr GLenum NO_ERROR = 0;
constexpr GLenum BACK = 0x0405, FRONT = 0x0404, COLOR_ATTACHMENT0_READ = 0x8CE0;

// X-macro list: name, return type, parameters.
#define ARD_GL_FUNCTIONS(X)                                                                                      \
    X(Clear, void, (GLbitfield mask))                                                                          \
    X(ClearColor, void, (GLfloat r, GLfloat g, GLfloat b, GLfloat a))                                          \
    X(ClearDepth, void, (GLdouble d))                                                                          \
    X(Viewport, void, (GLint x, GLint y, GLsizei w, GLsizei h))                                                \
    X(Enable, void, (GLenum cap))                                                                              \
    X(Disable, void, (GLenum cap))                                                                             \
    X(BlendFunc, void, (GLenum s, GLenum d))                                                                   \
    X(DepthFunc, void, (GLenum f))                                                                             \
    X(DepthMask, void, (GLboolean f))                                                                          \
    X(GetError, GLenum, (void))                                                                                \
    X(GetString, const GLubyte*, (GLenum name))                                                                \
    X(GetIntegerv, void, (GLenum name, GLint* data))                                                           \
    X(GetFloatv, void, (GLenum name, GLfloat* data))                                                           \
    X(Finish, void, (void))                                                                                    \
    X(Flush, void, (void))                                                                                     \
    X(PixelStorei, void, (GLenum name, GLint v))                                                               \
    X(ReadPixels, void, (GLint x, GLint y, GLsizei w, GLsizei h, GLenum f, GLenum t, void* p))                 \
    X(ReadBuffer, void, (GLenum mode))                                                                         \
    X(GenTextures, void, (GLsizei n, GLuint* t))                                                               \
    X(DeleteTextures, void, (GLsizei n, const GLuint* t))                                                      \
    X(BindTexture, void, (GLenum target, GLuint t))                                                            \
    X(TexImage2D, void, (GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*))          \
    X(TexParameteri, void, (GLenum target, GLenum name, GLint v))                                              \
    X(TexParameterf, void, (GLenum target, GLenum name, GLfloat v))                                            \
    X(LineWidth, void, (GLfloat w))                                                                            \
    X(MatrixMode, void, (GLenum m))                                                                            \
    X(LoadIdentity, void, (void))                                                                              \
    X(LoadMatrixf, void, (const GLfloat* m))                                                                   \
    X(Ortho, void, (GLdouble l, GLdouble r, GLdouble b, GLdouble t, GLdouble n, GLdouble f))                   \
    X(PushMatrix, void, (void))                                                                                \
    X(PopMatrix, void, (void))                                                                                 \
    X(PushAttrib, void, (GLbitfield mask))                                                                     \
    X(PopAttrib, void, (void))                                                                                 \
    X(PushClientAttrib, void, (GLbitfield mask))                                                               \
    X(PopClientAttrib, void, (void))                                                                           \
    X(Color4f, void, (GLfloat r, GLfloat g, GLfloat b, GLfloat a))                                             \
    X(LineStipple, void, (GLint factor, GLushort pattern))                                                     \
    X(EnableClientState, void, (GLenum a))                                                                     \
    X(DisableClientState, void, (GLenum a))                                                                    \
    X(VertexPointer, void, (GLint size, GLenum type, GLsizei stride, const void* p))                           \
    X(TexCoordPointer, void, (GLint size, GLenum type, GLsizei stride, const void* p))                         \
    X(DrawArrays, void, (GLenum mode, GLint first, GLsizei count))                                             \
    X(DrawElements, void, (GLenum mode, GLsizei count, GLenum type, const void* indices))                      \
    X(ActiveTexture, void, (GLenum t))                                                                         \
    X(GenerateMipmap, void, (GLenum target))                                                                   \
    X(GenFramebuffers, void, (GLsizei n, GLuint* f))                                                           \
    X(DeleteFramebuffers, void, (GLsizei n, const GLuint* f))                                                  \
    X(BindFramebuffer, void, (GLenum target, GLuint f))                                                        \
    X(FramebufferRenderbuffer, void, (GLenum, GLenum, GLenum, GLuint))                                         \
    X(FramebufferTexture2D, void, (GLenum, GLenum, GLenum, GLuint, GLint))                                     \
    X(CheckFramebufferStatus, GLenum, (GLenum target))                                                         \
    X(BlitFramebuffer, void, (GLint, GLint, GLint, GLint, GLint, GLint, GLint, GLint, GLbitfield, GLenum))     \
    X(GenRenderbuffers, void, (GLsizei n, GLuint* r))                                                          \
    X(DeleteRenderbuffers, void, (GLsizei n, const GLuint* r))                                                 \
    X(BindRenderbuffer, void, (GLenum target, GLuint r))                                                       \
    X(RenderbufferStorage, void, (GLenum, GLenum, GLsizei, GLsizei))                                           \
    X(RenderbufferStorageMultisample, void, (GLenum, GLsizei, GLenum, GLsizei, GLsizei))                       \
    X(CreateShader, GLuint, (GLenum type))                                                                     \
    X(ShaderSource, void, (GLuint s, GLsizei n, const GLchar* const* src, const GLint* len))                   \
    X(CompileShader, void, (GLuint s))                                                                         \
    X(GetShaderiv, void, (GLuint s, GLenum name, GLint* v))                                                    \
    X(GetShaderInfoLog, void, (GLuint s, GLsizei max, GLsizei* len, GLchar* log))                              \
    X(DeleteShader, void, (GLuint s))                                                                          \
    X(CreateProgram, GLuint, (void))                                                                           \
    X(AttachShader, void, (GLuint p, GLuint s))                                                                \
    X(LinkProgram, void, (GLuint p))                                                                           \
    X(GetProgramiv, void, (GLuint p, GLenum name, GLint* v))                                                   \
    X(GetProgramInfoLog, void, (GLuint p, GLsizei max, GLsizei* len, GLchar* log))                             \
    X(DeleteProgram, void, (GLuint p))                                                                         \
    X(UseProgram, void, (GLuint p))                                                                            \
    X(BindAttribLocation, void, (GLuint p, GLuint index, const GLchar* name))                                  \
    X(GetUniformLocation, GLint, (GLuint p, const GLchar* name))                                               \
    X(Uniform1i, void, (GLint loc, GLint v))                                                                   \
    X(Uniform1f, void, (GLint loc, GLfloat v))                                                                 \
    X(Uniform3f, void, (GLint loc, GLfloat a, GLfloat b, GLfloat c))                                           \
    X(Uniform4f, void, (GLint loc, GLfloat a, GLfloat b, GLfloat c, GLfloat d))                                \
    X(UniformMatrix4fv, void, (GLint loc, GLsizei n, GLboolean t, const GLfloat* v))                           \
    X(GenBuffers, void, (GLsizei n, GLuint* b))                                                                \
    X(DeleteBuffers, void, (GLsizei n, const GLuint* b))                                                       \
    X(BindBuffer, void, (GLenum target, GLuint b))                                                             \
    X(BufferData, void, (GLenum target, GLsizeiptr size, const void* data, GLenum usage))                      \
    X(BufferSubData, void, (GLenum target, GLintptr off, GLsizeiptr size, const void* data))                   \
    X(EnableVertexAttribArray, void, (GLuint i))                                                               \
    X(DisableVertexAttribArray, void, (GLuint i))                                                              \
    X(VertexAttribPointer, void, (GLuint i, GLint size, GLenum t, GLboolean n, GLsizei stride, const void* p)) \
    X(GenVertexArrays, void, (GLsizei n, GLuint* a))                                                           \
    X(DeleteVertexArrays, void, (GLsizei n, const GLuint* a))                                                  \
    X(BindVertexArray, void, (GLuint a))

#define ARD_GL_DECLARE(name, ret, params) using name##Fn = ret(ARD_GLAPI*) params; extern name##Fn name;
ARD_GL_FUNCTIONS(ARD_GL_DECLARE)
#undef ARD_GL_DECLARE

// Fills every entry point through the given lookup; returns the names that
// could not be found (comma separated, empty when all were).
using ProcLookup = void* (*)(const char* name);
const char* LoadFunctions(ProcLookup lookup);

// Compute shaders (OpenGL 4.3). These entry points live in a table of their
// own, filled per context, so a worker thread with a context of its own
// never writes the render thread's entry points above.
constexpr GLenum COMPUTE_SHADER = 0x91B9, SHADER_STORAGE_BUFFER = 0x90D2, SHADER_STORAGE_BARRIER_BIT = 0x00002000,
                 BUFFER_UPDATE_BARRIER_BIT = 0x00000200, MAX_COMPUTE_WORK_GROUP_INVOCATIONS = 0x90EB;

#define ARD_GL_COMPUTE_FUNCTIONS(X)                                                                              \
    X(GetError, GLenum, (void))                                                                                \
    X(GetString, const GLubyte*, (GLenum name))                                                                \
    X(GetIntegerv, void, (GLenum name, GLint* data))                                                           \
    X(Finish, void, (void))                                                                                    \
    X(CreateShader, GLuint, (GLenum type))                                                                     \
    X(ShaderSource, void, (GLuint s, GLsizei n, const GLchar* const* src, const GLint* len))                   \
    X(CompileShader, void, (GLuint s))                                                                         \
    X(GetShaderiv, void, (GLuint s, GLenum name, GLint* v))                                                    \
    X(GetShaderInfoLog, void, (GLuint s, GLsizei max, GLsizei* len, GLchar* log))                              \
    X(DeleteShader, void, (GLuint s))                                                                          \
    X(CreateProgram, GLuint, (void))                                                                           \
    X(AttachShader, void, (GLuint p, GLuint s))                                                                \
    X(LinkProgram, void, (GLuint p))                                                                           \
    X(GetProgramiv, void, (GLuint p, GLenum name, GLint* v))                                                   \
    X(GetProgramInfoLog, void, (GLuint p, GLsizei max, GLsizei* len, GLchar* log))                             \
    X(DeleteProgram, void, (GLuint p))                                                                         \
    X(UseProgram, void, (GLuint p))                                                                            \
    X(GetUniformLocation, GLint, (GLuint p, const GLchar* name))                                               \
    X(Uniform1i, void, (GLint loc, GLint v))                                                                   \
    X(Uniform1ui, void, (GLint loc, GLuint v))                                                                 \
    X(Uniform1f, void, (GLint loc, GLfloat v))                                                                 \
    X(Uniform3f, void, (GLint loc, GLfloat a, GLfloat b, GLfloat c))                                           \
    X(Uniform4f, void, (GLint loc, GLfloat a, GLfloat b, GLfloat c, GLfloat d))                                \
    X(GenBuffers, void, (GLsizei n, GLuint* b))                                                                \
    X(DeleteBuffers, void, (GLsizei n, const GLuint* b))                                                       \
    X(BindBuffer, void, (GLenum target, GLuint b))                                                             \
    X(BindBufferBase, void, (GLenum target, GLuint index, GLuint b))                                           \
    X(BufferData, void, (GLenum target, GLsizeiptr size, const void* data, GLenum usage))                      \
    X(BufferSubData, void, (GLenum target, GLintptr off, GLsizeiptr size, const void* data))                   \
    X(GetBufferSubData, void, (GLenum target, GLintptr off, GLsizeiptr size, void* data))                      \
    X(DispatchCompute, void, (GLuint x, GLuint y, GLuint z))                                                   \
    X(MemoryBarrier, void, (GLbitfield barriers))

struct ComputeApi {
#define ARD_GL_MEMBER(name, ret, params) ret(ARD_GLAPI* name) params = nullptr;
    ARD_GL_COMPUTE_FUNCTIONS(ARD_GL_MEMBER)
#undef ARD_GL_MEMBER
    // Fills the table through the given lookup; returns the names that could
    // not be found (comma separated, empty when all were).
    std::string Load(ProcLookup lookup);
};

}  // namespace gl
