// The OpenGL 3 application: a fractal flame. The particles' positions live
// in two buffers; each frame a vertex program moves every particle through a
// few randomly chosen transforms of the flame and writes it into the other
// buffer (transform feedback, nothing drawn), then the particles are drawn as
// point sprites, added up in a floating-point density buffer, and the density
// is tone-mapped by its logarithm onto the view.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "core/event_log.h"
#include "core/settings.h"
#include "render/gl_shader.h"
#include "scenes/glapps/glapp_scenes.h"

namespace glapps {

namespace {

constexpr GLenum kTransformFeedbackBuffer = 0x8C8E, kInterleavedAttribs = 0x8C8C, kRasterizerDiscard = 0x8C89,
                 kPoints = 0x0000, kRgba16f = 0x881A, kHalfFloat = 0x140B, kProgramPointSize = 0x8642;

// State: position (xy), colour coordinate, and a per-particle random seed.
const char* const kIterateVertex =
    "#version 330\n"
    "in vec4 In_State; out vec4 Out_State;\n"
    "uniform float time; uniform uint frame; uniform int iterations;\n"
    "uint hash(uint x) { x ^= x >> 16; x *= 0x7feb352du; x ^= x >> 15; x *= 0x846ca68bu; x ^= x >> 16; return x; }\n"
    "float rnd(inout uint s) { s = hash(s); return float(s & 0xffffffu) / 16777216.0; }\n"
    "vec2 affine(int i, vec2 p) {\n"
    "  float a = time * 0.15;\n"
    "  if (i == 0) return vec2(0.56 * p.x - 0.32 * p.y + 0.3 * sin(a), 0.36 * p.x + 0.51 * p.y + 0.12);\n"
    "  if (i == 1) return vec2(-0.41 * p.x + 0.55 * p.y - 0.48, 0.62 * p.x + 0.34 * p.y - 0.2 * cos(a));\n"
    "  if (i == 2) return vec2(0.5 * p.x + 0.1 * cos(a) * p.y + 0.5, -0.08 * p.x + 0.5 * p.y + 0.25);\n"
    "  return vec2(0.22 * p.x - 0.7 * p.y, 0.7 * p.x + 0.22 * p.y - 0.1);\n"
    "}\n"
    "vec2 variation(int i, vec2 p) {\n"
    "  float r2 = dot(p, p) + 1e-6; float r = sqrt(r2);\n"
    "  if (i == 0) return vec2(sin(p.x), sin(p.y)) * 1.2;\n"                     // sinusoidal
    "  if (i == 1) return p / r2;\n"                                            // spherical
    "  if (i == 2) { float s = sin(r2), c = cos(r2); return vec2(p.x * s - p.y * c, p.x * c + p.y * s); }\n"  // swirl
    "  float th = atan(p.x, p.y); return vec2(sin(th) / r, cos(th) * r);\n"      // heart-like
    "}\n"
    "void main() {\n"
    "  vec2 p = In_State.xy; float c = In_State.z;\n"
    "  uint s = hash(floatBitsToUint(In_State.w) ^ (frame * 0x9E3779B9u) ^ uint(gl_VertexID));\n"
    "  for (int k = 0; k < iterations; ++k) {\n"
    "    float u = rnd(s); int i = u < 0.35 ? 0 : u < 0.65 ? 1 : u < 0.85 ? 2 : 3;\n"
    "    p = variation(i, affine(i, p));\n"
    "    c = 0.5 * (c + float(i) / 3.0);\n"
    "  }\n"
    "  if (!(abs(p.x) < 1e4 && abs(p.y) < 1e4)) p = vec2(rnd(s), rnd(s)) * 2.0 - 1.0;\n"
    "  Out_State = vec4(p, c, In_State.w);\n"
    "}\n";

const char* const kSplatVertex =
    "#version 330\n"
    "in vec4 In_State; out vec3 color; uniform vec2 scale; uniform float pointSize;\n"
    "void main() {\n"
    "  vec3 a = vec3(1.0, 0.35, 0.05), b = vec3(0.25, 0.45, 1.0), m = vec3(1.0, 0.95, 0.6);\n"
    "  float c = In_State.z; color = c < 0.5 ? mix(a, m, c * 2.0) : mix(m, b, c * 2.0 - 1.0);\n"
    "  gl_Position = vec4(In_State.xy * scale, 0.0, 1.0);\n"
    "  gl_PointSize = pointSize;\n"
    "}\n";
const char* const kSplatFragment =
    "#version 330\n"
    "in vec3 color; out vec4 fragColor;\n"
    "void main() {\n"
    "  vec2 d = gl_PointCoord * 2.0 - 1.0; float w = max(0.0, 1.0 - dot(d, d));\n"
    "  fragColor = vec4(color * w, w);\n"
    "}\n";

// Log-density tone mapping: brightness follows log(1 + density), colour is
// the density-weighted average colour, with a gamma.
const char* const kToneVertex =
    "#version 330\n"
    "out vec2 uv;\n"
    "void main() { vec2 p = vec2(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0);\n"
    "  uv = p * 0.5 + 0.5; gl_Position = vec4(p, 0.0, 1.0); }\n";
// Fades the density kept from earlier frames: the buffer is multiplied by the
// persistence (blending with the source colour as the factor).
const char* const kFadeFragment =
    "#version 330\n"
    "in vec2 uv; out vec4 fragColor; uniform float persistence;\n"
    "void main() { fragColor = vec4(persistence); }\n";

const char* const kToneFragment =
    "#version 330\n"
    "in vec2 uv; out vec4 fragColor; uniform sampler2D density; uniform float logScale; uniform float gamma;\n"
    "void main() {\n"
    "  vec4 d = texture(density, uv);\n"
    "  if (d.a <= 0.0) { fragColor = vec4(0.0, 0.0, 0.0, 1.0); return; }\n"
    "  float b = clamp(log(1.0 + d.a) / logScale, 0.0, 1.0);\n"
    "  fragColor = vec4(pow(b, 1.0 / gamma) * d.rgb / d.a, 1.0);\n"
    "}\n";

}  // namespace

FractalFlameScene::FractalFlameScene(int appId) : GlAppScene(appId, 3) {
    // The settings give the particle count; the test switch overrides it.
    float start = static_cast<float>(StartupOptions.fractal_flame_particles);
    if (gRunExtras.glappLoad > 0.0f) start = gRunExtras.glappLoad;
    count_ = &AddParam("Particles", start, 1000.0f, 16000000.0f, 250000.0f);
    iterations_ = &AddParam("Iterations per frame", 3.0f, 1.0f, 16.0f, 1.0f);
    pointSize_ = &AddParam("Point size", 2.0f, 1.0f, 8.0f, 1.0f);
    gamma_ = &AddParam("Gamma", 2.2f, 1.0f, 4.0f, 0.2f);
    persistence_ = &AddParam("Persistence", 0.8f, 0.0f, 0.95f, 0.05f);
}

bool FractalFlameScene::BuildParticles(int count) {
    count = std::max(1, count);
    std::vector<float> state;
    try {
        state.resize(static_cast<size_t>(count) * 4);
    } catch (const std::bad_alloc&) {
        gEventLog.Write("Fractal Flame: no memory for %d particles.", count);
        return false;
    }
    std::mt19937 rng(2101);
    std::uniform_real_distribution<float> u(-1.0f, 1.0f);
    for (int i = 0; i < count; ++i) {
        float* s = &state[static_cast<size_t>(i) * 4];
        s[0] = u(rng);
        s[1] = u(rng);
        s[2] = 0.5f + 0.5f * u(rng);
        uint32_t seed = static_cast<uint32_t>(rng());
        std::memcpy(&s[3], &seed, 4);
    }
    for (int b = 0; b < 2; ++b) {
        if (!vao_[b]) gl::GenVertexArrays(1, &vao_[b]);
        if (!vbo_[b]) gl::GenBuffers(1, &vbo_[b]);
        gl::BindVertexArray(vao_[b]);
        gl::BindBuffer(gl::ARRAY_BUFFER, vbo_[b]);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(state.size() * sizeof(float)), state.data(),
                       gl::DYNAMIC_DRAW);
        gl::EnableVertexAttribArray(0);
        gl::VertexAttribPointer(0, 4, gl::FLOAT, 0, 0, nullptr);
    }
    gl::BindVertexArray(0);
    builtCount_ = count;
    current_ = 0;
    return true;
}

bool FractalFlameScene::InitApp() {
    // The iteration is a vertex stage alone, its output caught by transform feedback.
    const char* varying = "Out_State";
    iterateProgram_ = BuildStagedProgram({{gl::VERTEX_SHADER, kIterateVertex}}, {{0, "In_State"}}, [&](GLuint p) {
        extra_.TransformFeedbackVaryings(p, 1, &varying, kInterleavedAttribs);
    });
    if (!iterateProgram_) return false;
    splatProgram_ = BuildProgram(kSplatVertex, kSplatFragment, {{0, "In_State"}});
    toneProgram_ = BuildProgram(kToneVertex, kToneFragment);
    fadeProgram_ = BuildProgram(kToneVertex, kFadeFragment);
    if (!fadeProgram_) return false;
    if (!splatProgram_ || !toneProgram_) return false;
    gl::GenVertexArrays(1, &quadVao_);

    gl::GenTextures(1, &densityTex_);
    gl::BindTexture(gl::TEXTURE_2D, densityTex_);
    gl::TexImage2D(gl::TEXTURE_2D, 0, static_cast<GLint>(kRgba16f), ViewWidth(), ViewHeight(), 0, gl::RGBA, kHalfFloat,
                   nullptr);
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER, static_cast<GLint>(gl::NEAREST));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAG_FILTER, static_cast<GLint>(gl::NEAREST));
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::GenFramebuffers(1, &densityFbo_);
    gl::BindFramebuffer(gl::FRAMEBUFFER, densityFbo_);
    gl::FramebufferTexture2D(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::TEXTURE_2D, densityTex_, 0);
    const bool complete = gl::CheckFramebufferStatus(gl::FRAMEBUFFER) == gl::FRAMEBUFFER_COMPLETE;
    gl::BindFramebuffer(gl::FRAMEBUFFER, Context()->DefaultFramebuffer());
    if (!complete) {
        gEventLog.Write("Fractal Flame: the floating-point density buffer could not be made.");
        return false;
    }
    return BuildParticles(static_cast<int>(Value(*count_)));
}

void FractalFlameScene::DrawApp() {
    const int count = static_cast<int>(Value(*count_));
    if (count != builtCount_ && !BuildParticles(count)) count_->value = static_cast<float>(builtCount_);
    GLint target = 0;
    gl::GetIntegerv(0x8CA6 /* DRAW_FRAMEBUFFER_BINDING */, &target);

    // 1. Iterate: every particle through the flame's transforms, into the other buffer.
    const int next = 1 - current_;
    gl::UseProgram(iterateProgram_);
    gl::Uniform1f(gl::GetUniformLocation(iterateProgram_, "time"), AnimationTime());
    extra_.Uniform1ui(gl::GetUniformLocation(iterateProgram_, "frame"), frameCounter_++);
    gl::Uniform1i(gl::GetUniformLocation(iterateProgram_, "iterations"), static_cast<int>(Value(*iterations_)));
    gl::Enable(kRasterizerDiscard);
    gl::BindVertexArray(vao_[current_]);
    extra_.BindBufferBase(kTransformFeedbackBuffer, 0, vbo_[next]);
    extra_.BeginTransformFeedback(kPoints);
    gl::DrawArrays(kPoints, 0, builtCount_);
    extra_.EndTransformFeedback();
    extra_.BindBufferBase(kTransformFeedbackBuffer, 0, 0);
    gl::Disable(kRasterizerDiscard);
    current_ = next;

    // 2. Splat: additive point sprites into the density buffer.
    gl::BindFramebuffer(gl::FRAMEBUFFER, densityFbo_);
    gl::Viewport(0, 0, ViewWidth(), ViewHeight());
    gl::Disable(gl::DEPTH_TEST);
    gl::Enable(gl::BLEND);
    // The density accumulates over frames and fades by the persistence; a
    // new buffer starts empty.
    const float persistence = Value(*persistence_);
    if (!densityFresh_ || persistence <= 0.0f) {
        gl::ClearColor(0.0f, 0.0f, 0.0f, 0.0f);
        gl::Clear(gl::COLOR_BUFFER_BIT);
        densityFresh_ = true;
    } else {
        gl::BlendFunc(gl::ZERO, gl::SRC_COLOR);
        gl::UseProgram(fadeProgram_);
        gl::Uniform1f(gl::GetUniformLocation(fadeProgram_, "persistence"), persistence);
        gl::BindVertexArray(quadVao_);
        gl::DrawArrays(gl::TRIANGLES, 0, 3);
    }
    gl::BlendFunc(gl::ONE, gl::ONE);
    gl::Enable(kProgramPointSize);
    gl::UseProgram(splatProgram_);
    const float aspect = static_cast<float>(ViewWidth()) / static_cast<float>(std::max(1, ViewHeight()));
    const float zoom = 0.55f;
    extra_.Uniform2f(gl::GetUniformLocation(splatProgram_, "scale"), zoom / aspect, zoom);
    gl::Uniform1f(gl::GetUniformLocation(splatProgram_, "pointSize"), Value(*pointSize_));
    gl::BindVertexArray(vao_[current_]);
    gl::DrawArrays(kPoints, 0, builtCount_);
    gl::Disable(kProgramPointSize);
    gl::Disable(gl::BLEND);

    // 3. Tone-map onto the view. The scale puts the brightest pixels that an
    // even spread of all particles would give near the top of the range.
    gl::BindFramebuffer(gl::FRAMEBUFFER, static_cast<GLuint>(target));
    gl::UseProgram(toneProgram_);
    gl::ActiveTexture(gl::TEXTURE0);
    gl::BindTexture(gl::TEXTURE_2D, densityTex_);
    gl::Uniform1i(gl::GetUniformLocation(toneProgram_, "density"), 0);
    const float pixels = static_cast<float>(ViewWidth()) * static_cast<float>(ViewHeight());
    const float typical = static_cast<float>(builtCount_) / std::max(1.0f, pixels) * Value(*pointSize_) /
                          (1.0f - std::min(0.95f, persistence));
    gl::Uniform1f(gl::GetUniformLocation(toneProgram_, "logScale"), std::log(1.0f + 40.0f * std::max(typical, 0.05f)));
    gl::Uniform1f(gl::GetUniformLocation(toneProgram_, "gamma"), Value(*gamma_));
    gl::BindVertexArray(quadVao_);
    gl::DrawArrays(gl::TRIANGLES, 0, 3);
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::Enable(gl::DEPTH_TEST);
}

void FractalFlameScene::TerminateApp() {
    densityFresh_ = false;
    for (GLuint* p : {&iterateProgram_, &splatProgram_, &toneProgram_, &fadeProgram_}) {
        if (*p) gl::DeleteProgram(*p);
        *p = 0;
    }
    for (int b = 0; b < 2; ++b) {
        if (vbo_[b]) gl::DeleteBuffers(1, &vbo_[b]);
        if (vao_[b]) gl::DeleteVertexArrays(1, &vao_[b]);
        vbo_[b] = vao_[b] = 0;
    }
    if (quadVao_) gl::DeleteVertexArrays(1, &quadVao_);
    if (densityFbo_) gl::DeleteFramebuffers(1, &densityFbo_);
    if (densityTex_) gl::DeleteTextures(1, &densityTex_);
    quadVao_ = densityFbo_ = densityTex_ = 0;
}

std::string FractalFlameScene::LoadLine() const {
    char line[96];
    std::snprintf(line, sizeof line, "%d particles", builtCount_);
    return line;
}

}  // namespace glapps
