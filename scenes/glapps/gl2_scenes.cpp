// The two OpenGL 2 applications: the triangle and the wavy plane.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "core/event_log.h"
#include "core/settings.h"
#include "render/gl_shader.h"
#include "render/math3d.h"
#include "scenes/glapps/glapp_scenes.h"

namespace glapps {

namespace {

enum : GLuint { kPos = 0, kColor = 1 };

const char* const kTriangleVertex =
    "#version 120\n"
    "attribute vec2 In_Position; attribute vec3 In_Color;\n"
    "uniform float angle; varying vec3 color;\n"
    "void main() {\n"
    "  float c = cos(angle), s = sin(angle);\n"
    "  gl_Position = vec4(c * In_Position.x - s * In_Position.y, s * In_Position.x + c * In_Position.y, 0.0, 1.0);\n"
    "  color = In_Color;\n"
    "}\n";
const char* const kTriangleFragment =
    "#version 120\nvarying vec3 color;\nvoid main() { gl_FragColor = vec4(color, 1.0); }\n";

// Height and slope of four travelling waves; the colour follows the height.
const char* const kWavyVertex =
    "#version 120\n"
    "attribute vec2 In_Position;\n"
    "uniform mat4 viewProj; uniform float time; uniform float amplitude;\n"
    "varying vec3 normal; varying float height;\n"
    "void main() {\n"
    "  vec2 p = In_Position * 8.0;\n"
    "  float h = 0.0; vec2 g = vec2(0.0);\n"
    "  vec3 waves[4];\n"
    "  waves[0] = vec3(0.9, 0.4, 1.3); waves[1] = vec3(-0.5, 1.1, 0.9);\n"
    "  waves[2] = vec3(1.7, -1.2, 2.1); waves[3] = vec3(-2.3, -0.8, 1.7);\n"
    "  for (int i = 0; i < 4; ++i) {\n"
    "    float k = length(waves[i].xy); float a = amplitude / (1.0 + float(i));\n"
    "    float ph = dot(waves[i].xy, p) - time * waves[i].z * 2.0;\n"
    "    h += a * sin(ph); g += a * cos(ph) * waves[i].xy;\n"
    "  }\n"
    "  float r = length(p); h += 0.5 * amplitude * sin(r * 2.5 - time * 3.0);\n"
    "  g += 0.5 * amplitude * cos(r * 2.5 - time * 3.0) * 2.5 * (r > 0.0 ? p / r : vec2(0.0));\n"
    "  height = h; normal = normalize(vec3(-g.x, 1.0, -g.y));\n"
    "  gl_Position = viewProj * vec4(p.x, h, p.y, 1.0);\n"
    "}\n";
const char* const kWavyFragment =
    "#version 120\n"
    "varying vec3 normal; varying float height; uniform float amplitude;\n"
    "void main() {\n"
    "  vec3 n = normalize(normal); vec3 l = normalize(vec3(0.4, 0.8, 0.3));\n"
    "  float t = clamp(0.5 + 0.5 * height / (1.6 * amplitude), 0.0, 1.0);\n"
    "  vec3 base = mix(vec3(0.05, 0.2, 0.6), vec3(0.9, 0.95, 1.0), t);\n"
    "  float d = max(dot(n, l), 0.0);\n"
    "  gl_FragColor = vec4(base * (0.25 + 0.75 * d), 1.0);\n"
    "}\n";

void SetMat(GLuint p, const char* n, const m3d::Mat4& m) {
    gl::UniformMatrix4fv(gl::GetUniformLocation(p, n), 1, 0, m.data());
}

float StartLoad(float fallback) { return gRunExtras.glappLoad > 0.0f ? gRunExtras.glappLoad : fallback; }

}  // namespace

// ---------------------------------------------------------------- triangle

TriangleScene::TriangleScene(int appId) : GlAppScene(appId, 2) {}

bool TriangleScene::InitApp() {
    program_ = BuildProgram(kTriangleVertex, kTriangleFragment, {{kPos, "In_Position"}, {kColor, "In_Color"}});
    if (!program_) return false;
    // Red at the top, green bottom left, blue bottom right.
    const float v[] = {0.0f, 0.8f, 1, 0, 0, -0.75f, -0.6f, 0, 1, 0, 0.75f, -0.6f, 0, 0, 1};
    gl::GenBuffers(1, &vbo_);
    gl::BindBuffer(gl::ARRAY_BUFFER, vbo_);
    gl::BufferData(gl::ARRAY_BUFFER, sizeof v, v, gl::STATIC_DRAW);
    return true;
}

void TriangleScene::DrawApp() {
    gl::Disable(gl::DEPTH_TEST);
    gl::Disable(gl::CULL_FACE);
    gl::UseProgram(program_);
    gl::Uniform1f(gl::GetUniformLocation(program_, "angle"), AnimationTime() * 0.5f);
    gl::BindBuffer(gl::ARRAY_BUFFER, vbo_);
    gl::EnableVertexAttribArray(kPos);
    gl::EnableVertexAttribArray(kColor);
    gl::VertexAttribPointer(kPos, 2, gl::FLOAT, 0, 5 * sizeof(float), nullptr);
    gl::VertexAttribPointer(kColor, 3, gl::FLOAT, 0, 5 * sizeof(float), reinterpret_cast<const void*>(8));
    gl::DrawArrays(gl::TRIANGLES, 0, 3);
    gl::DisableVertexAttribArray(kColor);
    gl::DisableVertexAttribArray(kPos);
    gl::Enable(gl::DEPTH_TEST);
}

void TriangleScene::TerminateApp() {
    if (program_) gl::DeleteProgram(program_);
    if (vbo_) gl::DeleteBuffers(1, &vbo_);
    program_ = vbo_ = 0;
}

std::string TriangleScene::LoadLine() const { return "1 triangle per frame"; }

// ---------------------------------------------------------------- wavy plane

WavyPlaneScene::WavyPlaneScene(int appId) : GlAppScene(appId, 2) {
    side_ = &AddParam("Vertices per side", StartLoad(2048.0f), 16.0f, 4096.0f, 128.0f);
    wireframe_ = &AddParam("Wireframe", 0.0f, 0.0f, 1.0f, 1.0f, true);
    height_ = &AddParam("Wave height", 0.35f, 0.0f, 1.5f, 0.05f);
}

bool WavyPlaneScene::BuildGrid(int side) {
    side = std::max(2, side);
    std::vector<float> pos;
    std::vector<uint32_t> idx;
    try {
        pos.reserve(static_cast<size_t>(side) * side * 2);
        idx.reserve(static_cast<size_t>(side - 1) * (side - 1) * 6);
    } catch (const std::bad_alloc&) {
        gEventLog.Write("Wavy Plane: no memory for %d x %d vertices.", side, side);
        return false;
    }
    for (int z = 0; z < side; ++z)
        for (int x = 0; x < side; ++x)
            pos.insert(pos.end(), {-1.0f + 2.0f * x / (side - 1), -1.0f + 2.0f * z / (side - 1)});
    for (int z = 0; z + 1 < side; ++z)
        for (int x = 0; x + 1 < side; ++x) {
            const uint32_t a = static_cast<uint32_t>(z * side + x), b = a + 1, c = a + side, d = c + 1;
            idx.insert(idx.end(), {a, c, b, b, c, d});
        }
    if (!vbo_) gl::GenBuffers(1, &vbo_);
    if (!ibo_) gl::GenBuffers(1, &ibo_);
    gl::BindBuffer(gl::ARRAY_BUFFER, vbo_);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(pos.size() * sizeof(float)), pos.data(), gl::STATIC_DRAW);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, ibo_);
    gl::BufferData(gl::ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(idx.size() * sizeof(uint32_t)), idx.data(),
                   gl::STATIC_DRAW);
    builtSide_ = side;
    indexCount_ = static_cast<GLsizei>(idx.size());
    return true;
}

bool WavyPlaneScene::InitApp() {
    program_ = BuildProgram(kWavyVertex, kWavyFragment, {{kPos, "In_Position"}});
    return program_ && BuildGrid(static_cast<int>(Value(*side_)));
}

void WavyPlaneScene::DrawApp() {
    const int side = static_cast<int>(Value(*side_));
    if (side != builtSide_ && !BuildGrid(side)) side_->value = static_cast<float>(builtSide_);
    const float aspect = static_cast<float>(ViewWidth()) / static_cast<float>(std::max(1, ViewHeight()));
    const m3d::Mat4 viewProj = m3d::Perspective(50.0f, aspect, 0.1f, 100.0f) *
                               m3d::LookAt({0.0f, 5.5f, 9.5f}, {0.0f, -0.5f, 0.0f}, {0.0f, 1.0f, 0.0f});
    gl::Enable(gl::DEPTH_TEST);
    gl::Disable(gl::CULL_FACE);
    gl::UseProgram(program_);
    SetMat(program_, "viewProj", viewProj);
    gl::Uniform1f(gl::GetUniformLocation(program_, "time"), AnimationTime());
    gl::Uniform1f(gl::GetUniformLocation(program_, "amplitude"), Value(*height_));
    SetWireframe(Value(*wireframe_) != 0.0f);
    gl::BindBuffer(gl::ARRAY_BUFFER, vbo_);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, ibo_);
    gl::EnableVertexAttribArray(kPos);
    gl::VertexAttribPointer(kPos, 2, gl::FLOAT, 0, 0, nullptr);
    gl::DrawElements(gl::TRIANGLES, indexCount_, gl::UNSIGNED_INT, nullptr);
    gl::DisableVertexAttribArray(kPos);
}

void WavyPlaneScene::TerminateApp() {
    if (program_) gl::DeleteProgram(program_);
    if (vbo_) gl::DeleteBuffers(1, &vbo_);
    if (ibo_) gl::DeleteBuffers(1, &ibo_);
    program_ = vbo_ = ibo_ = 0;
}

std::string WavyPlaneScene::LoadLine() const {
    char line[96];
    std::snprintf(line, sizeof line, "%d x %d vertices, %d triangles", builtSide_, builtSide_,
                  2 * (builtSide_ - 1) * (builtSide_ - 1));
    return line;
}

}  // namespace glapps
