// The OpenGL 4 applications: tessellated spheres. 2201 draws one large
// sphere with a fine ripple that the tessellator must resolve; 2202 and 2203
// stand spheres on a plane (2203's plane is tessellated too) whose shading
// takes the spheres' soft shadows; 2204 grows fur shells over the
// tessellated object.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "core/event_log.h"
#include "core/settings.h"
#include "render/math3d.h"
#include "render/mesh.h"
#include "scenes/glapps/glapp_scenes.h"

namespace glapps {

namespace {

// The spheres: centre and radius, 2201 uses the first alone, at the origin.
struct Ball {
    float x, y, z, r;
};
const Ball kBalls[] = {{0.0f, 1.2f, 0.0f, 1.2f},  {-2.8f, 0.8f, -1.2f, 0.8f}, {2.7f, 0.9f, -1.0f, 0.9f},
                       {-1.6f, 0.6f, 2.0f, 0.6f}, {1.9f, 0.7f, 2.2f, 0.7f}};
constexpr int kBallCount = 5;

const char* const kCommon =
    "#version 400 core\n"
    "uniform mat4 viewProj; uniform vec3 lightDir; uniform vec3 eye; uniform float time;\n"
    "uniform vec4 balls[5]; uniform int ballCount; uniform float level; uniform float ripple;\n";

const char* const kVertex =
    "layout(location = 0) in vec3 In_Position; out vec3 vPos;\n"
    "void main() { vPos = In_Position; }\n";

const char* const kControl =
    "layout(vertices = 3) out; in vec3 vPos[]; out vec3 cPos[];\n"
    "void main() {\n"
    "  cPos[gl_InvocationID] = vPos[gl_InvocationID];\n"
    "  if (gl_InvocationID == 0) {\n"
    "    gl_TessLevelInner[0] = level;\n"
    "    gl_TessLevelOuter[0] = level; gl_TessLevelOuter[1] = level; gl_TessLevelOuter[2] = level;\n"
    "  }\n"
    "}\n";

// Sphere: the patch corners are unit directions; the point is pushed onto
// the sphere of the instance's ball and rippled along its normal.
const char* const kSphereEval =
    "layout(triangles, equal_spacing, ccw) in; in vec3 cPos[];\n"
    "uniform float shell; out vec3 wPos; out vec3 wNormal; out vec3 dir;\n"
    "float bump(vec3 d) { return sin(d.x * 23.0 + time) * sin(d.y * 19.0 - time * 0.7) * sin(d.z * 21.0 + time * 0.5); }\n"
    "void main() {\n"
    "  vec3 d = normalize(gl_TessCoord.x * cPos[0] + gl_TessCoord.y * cPos[1] + gl_TessCoord.z * cPos[2]);\n"
    "  vec4 b = balls[gl_PrimitiveID / 20];\n"
    "  float h = 1.0 + ripple * bump(d);\n"
    "  float e = 0.01; vec3 t = normalize(cross(d, abs(d.y) < 0.9 ? vec3(0, 1, 0) : vec3(1, 0, 0)));\n"
    "  vec3 s = cross(d, t);\n"
    "  vec3 pt = normalize(d + e * t) * (1.0 + ripple * bump(normalize(d + e * t)));\n"
    "  vec3 ps = normalize(d + e * s) * (1.0 + ripple * bump(normalize(d + e * s)));\n"
    "  vec3 p = d * h; vec3 n = normalize(cross(pt - p, ps - p)); if (dot(n, d) < 0.0) n = -n;\n"
    "  wPos = b.xyz + b.w * (p + n * shell); wNormal = n; dir = d;\n"
    "  gl_Position = viewProj * vec4(wPos, 1.0);\n"
    "}\n";

// Plane: flat or gently waved; corners are world positions.
const char* const kPlaneEval =
    "layout(triangles, equal_spacing, ccw) in; in vec3 cPos[];\n"
    "uniform float waves; out vec3 wPos; out vec3 wNormal; out vec3 dir;\n"
    "void main() {\n"
    "  vec3 p = gl_TessCoord.x * cPos[0] + gl_TessCoord.y * cPos[1] + gl_TessCoord.z * cPos[2];\n"
    "  float k = 2.2; float h = waves * 0.06 * sin(p.x * k + time) * cos(p.z * k * 0.8 - time * 0.6);\n"
    "  vec2 g = waves * 0.06 * vec2(k * cos(p.x * k + time) * cos(p.z * k * 0.8 - time * 0.6),\n"
    "                            -k * 0.8 * sin(p.x * k + time) * sin(p.z * k * 0.8 - time * 0.6));\n"
    "  wPos = vec3(p.x, h, p.z); wNormal = normalize(vec3(-g.x, 1.0, -g.y)); dir = vec3(0.0);\n"
    "  gl_Position = viewProj * vec4(wPos, 1.0);\n"
    "}\n";

// Soft shadow of every ball on a point: the ray towards the light passes a
// ball at some distance; the penumbra widens with the distance travelled.
const char* const kShadow =
    "float softShadow(vec3 p) {\n"
    "  float lit = 1.0; vec3 l = -lightDir;\n"
    "  for (int i = 0; i < ballCount; ++i) {\n"
    "    vec3 c = balls[i].xyz - p; float t = dot(c, l); if (t <= 0.0) continue;\n"
    "    float d = length(c - t * l); float w = 0.08 + 0.25 * t;\n"
    "    lit *= smoothstep(balls[i].w - w, balls[i].w + w, d);\n"
    "  }\n"
    "  return lit;\n"
    "}\n";

const char* const kSphereFragment =
    "in vec3 wPos; in vec3 wNormal; in vec3 dir; out vec4 fragColor; uniform vec3 baseColor;\n"
    "void main() {\n"
    "  vec3 n = normalize(wNormal); vec3 l = -lightDir; vec3 v = normalize(eye - wPos);\n"
    "  float diff = max(dot(n, l), 0.0); float highlight = pow(max(dot(reflect(-l, n), v), 0.0), 40.0);\n"
    "  vec3 c = baseColor * (0.2 + 0.8 * diff) + vec3(0.6) * highlight;\n"
    "  fragColor = vec4(c, 1.0);\n"
    "}\n";

const char* const kPlaneFragment =
    "in vec3 wPos; in vec3 wNormal; in vec3 dir; out vec4 fragColor;\n"
    "void main() {\n"
    "  vec3 n = normalize(wNormal); float diff = max(dot(n, -lightDir), 0.0);\n"
    "  float check = mod(floor(wPos.x) + floor(wPos.z), 2.0);\n"
    "  vec3 base = mix(vec3(0.55, 0.55, 0.6), vec3(0.75, 0.75, 0.8), check);\n"
    "  float s = softShadow(wPos);\n"
    "  fragColor = vec4(base * (0.25 + 0.75 * diff * s), 1.0);\n"
    "}\n";

// Fur: each shell keeps the strands whose random value clears its height,
// so the coverage thins towards the tips.
const char* const kFurFragment =
    "in vec3 wPos; in vec3 wNormal; in vec3 dir; out vec4 fragColor; uniform float shellFraction;\n"
    "float hash(vec3 q) { return fract(sin(dot(q, vec3(12.9898, 78.233, 37.719))) * 43758.5453); }\n"
    "void main() {\n"
    "  vec3 cell = floor(dir * 180.0); float strand = hash(cell);\n"
    "  if (strand < shellFraction) discard;\n"
    "  vec3 n = normalize(wNormal); float diff = max(dot(n, -lightDir), 0.0);\n"
    "  vec3 c = mix(vec3(0.35, 0.2, 0.08), vec3(0.95, 0.75, 0.45), shellFraction) * (0.35 + 0.65 * diff);\n"
    "  fragColor = vec4(c, 1.0 - shellFraction * 0.6);\n"
    "}\n";

std::string Join(std::initializer_list<const char*> parts) {
    std::string s;
    for (const char* p : parts) s += p;
    return s;
}

GLuint Build(gl4::Api& api, const char* eval, const char* fragment) {
    const std::string v = Join({kCommon, kVertex}), c = Join({kCommon, kControl}), e = Join({kCommon, eval}),
                      f = Join({kCommon, kShadow, fragment});
    return gl4::BuildStagedProgram(v.c_str(), c.c_str(), e.c_str(), f.c_str(), {{0, "In_Position"}});
}

}  // namespace

TessyScene::TessyScene(int appId) : GlAppScene(appId, 4) {
    withPlane_ = appId == 2202 || appId == 2203;
    tessellatedPlane_ = appId == 2203;
    withFur_ = appId == 2204;
    const float level = gRunExtras.glappLoad > 0.0f ? gRunExtras.glappLoad : (appId == 2201 ? 48.0f : 24.0f);
    level_ = &AddParam("Tessellation level", level, 1.0f, 64.0f, 1.0f);
    wireframe_ = &AddParam("Wireframe", 0.0f, 0.0f, 1.0f, 1.0f, true);
    ripple_ = &AddParam("Ripple", appId == 2201 ? 0.04f : 0.02f, 0.0f, 0.2f, 0.01f);
    if (withFur_) shells_ = &AddParam("Fur shells", 16.0f, 1.0f, 64.0f, 1.0f);
}

bool TessyScene::InitApp() {
    sphereProgram_ = Build(gl4_, kSphereEval, kSphereFragment);
    planeProgram_ = withPlane_ ? Build(gl4_, kPlaneEval, kPlaneFragment) : 0;
    furProgram_ = withFur_ ? Build(gl4_, kSphereEval, kFurFragment) : 0;
    if (!sphereProgram_ || (withPlane_ && !planeProgram_) || (withFur_ && !furProgram_)) return false;

    // One icosahedron per ball, in one buffer: the evaluation stage finds its
    // ball from the patch number (20 patches each).
    std::vector<float> pos;
    std::vector<uint32_t> ico, idx;
    Icosahedron(&pos, &ico);
    const int balls = withPlane_ ? kBallCount : 1;
    for (int b = 0; b < balls; ++b)
        for (uint32_t i : ico) idx.push_back(i);
    gl::GenVertexArrays(1, &sphereVao_);
    gl::BindVertexArray(sphereVao_);
    gl::GenBuffers(1, &sphereVbo_);
    gl::BindBuffer(gl::ARRAY_BUFFER, sphereVbo_);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(pos.size() * sizeof(float)), pos.data(), gl::STATIC_DRAW);
    gl::EnableVertexAttribArray(0);
    gl::VertexAttribPointer(0, 3, gl::FLOAT, 0, 0, nullptr);
    gl::GenBuffers(1, &sphereIbo_);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, sphereIbo_);
    gl::BufferData(gl::ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(idx.size() * sizeof(uint32_t)), idx.data(),
                   gl::STATIC_DRAW);
    sphereIndices_ = static_cast<GLsizei>(idx.size());

    if (withPlane_) {
        // The plane as a grid of triangle patches.
        const int n = 8;
        const float half = 6.0f, step = 2.0f * half / n;
        std::vector<float> tri;
        auto corner = [&](int x, int z) { tri.insert(tri.end(), {-half + x * step, 0.0f, -half + z * step}); };
        for (int z = 0; z < n; ++z)
            for (int x = 0; x < n; ++x) {
                corner(x, z), corner(x, z + 1), corner(x + 1, z);
                corner(x + 1, z), corner(x, z + 1), corner(x + 1, z + 1);
            }
        gl::GenVertexArrays(1, &planeVao_);
        gl::BindVertexArray(planeVao_);
        gl::GenBuffers(1, &planeVbo_);
        gl::BindBuffer(gl::ARRAY_BUFFER, planeVbo_);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(tri.size() * sizeof(float)), tri.data(),
                       gl::STATIC_DRAW);
        gl::EnableVertexAttribArray(0);
        gl::VertexAttribPointer(0, 3, gl::FLOAT, 0, 0, nullptr);
        planeVertices_ = static_cast<GLsizei>(tri.size() / 3);
    }
    gl::BindVertexArray(0);
    return true;
}

void TessyScene::DrawApp() {
    const float t = AnimationTime();
    const float aspect = static_cast<float>(ViewWidth()) / static_cast<float>(std::max(1, ViewHeight()));
    const float orbit = t * 0.3f;
    const float dist = withPlane_ ? 9.0f : 4.2f;
    const m3d::Vec3 eye{std::sin(orbit) * dist, withPlane_ ? 4.5f : 1.8f, std::cos(orbit) * dist};
    const m3d::Vec3 at{0.0f, withPlane_ ? 0.5f : 1.2f, 0.0f};
    const m3d::Mat4 viewProj = m3d::Perspective(50.0f, aspect, 0.1f, 100.0f) * m3d::LookAt(eye, at, {0, 1, 0});
    const m3d::Vec3 light = m3d::Normalize(m3d::Vec3{-0.8f, -0.55f, -0.35f});
    const float level = Value(*level_);
    const float ripple = Value(*ripple_);
    float balls[kBallCount * 4];
    for (int i = 0; i < kBallCount; ++i) {
        // The spheres bob a little, so their shadows move.
        balls[i * 4 + 0] = kBalls[i].x;
        balls[i * 4 + 1] = kBalls[i].y + (withPlane_ ? 0.15f * std::sin(t * 1.3f + static_cast<float>(i)) : 0.0f);
        balls[i * 4 + 2] = kBalls[i].z;
        balls[i * 4 + 3] = kBalls[i].r;
    }
    const int ballCount = withPlane_ ? kBallCount : 1;

    auto setCommon = [&](GLuint p, float tessLevel) {
        gl::UseProgram(p);
        gl::UniformMatrix4fv(gl::GetUniformLocation(p, "viewProj"), 1, 0, viewProj.data());
        gl::Uniform3f(gl::GetUniformLocation(p, "lightDir"), light.x, light.y, light.z);
        gl::Uniform3f(gl::GetUniformLocation(p, "eye"), eye.x, eye.y, eye.z);
        gl::Uniform1f(gl::GetUniformLocation(p, "time"), t);
        gl::Uniform1f(gl::GetUniformLocation(p, "level"), tessLevel);
        gl::Uniform1f(gl::GetUniformLocation(p, "ripple"), ripple);
        gl::Uniform1i(gl::GetUniformLocation(p, "ballCount"), ballCount);
        for (int i = 0; i < kBallCount; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "balls[%d]", i);
            gl::Uniform4f(gl::GetUniformLocation(p, name), balls[i * 4], balls[i * 4 + 1], balls[i * 4 + 2],
                          balls[i * 4 + 3]);
        }
    };

    gl::Enable(gl::DEPTH_TEST);
    gl::DepthFunc(gl::LESS);
    gl::Disable(gl::CULL_FACE);
    gl::ClearColor(0.12f, 0.14f, 0.2f, 1.0f);
    gl::Clear(gl::COLOR_BUFFER_BIT | gl::DEPTH_BUFFER_BIT);
    SetWireframe(Value(*wireframe_) != 0.0f);
    gl4_.PatchParameteri(gl4::PATCH_VERTICES, 3);

    if (withPlane_) {
        setCommon(planeProgram_, tessellatedPlane_ ? level : 1.0f);
        gl::Uniform1f(gl::GetUniformLocation(planeProgram_, "waves"), tessellatedPlane_ ? 1.0f : 0.0f);
        gl::BindVertexArray(planeVao_);
        gl::DrawArrays(gl4::PATCHES, 0, planeVertices_);
    }
    setCommon(sphereProgram_, level);
    gl::Uniform1f(gl::GetUniformLocation(sphereProgram_, "shell"), 0.0f);
    gl::Uniform3f(gl::GetUniformLocation(sphereProgram_, "baseColor"), withFur_ ? 0.3f : 0.85f, withFur_ ? 0.18f : 0.3f,
                  withFur_ ? 0.08f : 0.2f);
    gl::BindVertexArray(sphereVao_);
    gl::DrawElements(gl4::PATCHES, sphereIndices_, gl::UNSIGNED_INT, nullptr);

    if (withFur_) {
        // Shells from the skin outwards, blended over what is below.
        const int shells = static_cast<int>(Value(*shells_));
        setCommon(furProgram_, level);
        gl::Enable(gl::BLEND);
        gl::BlendFunc(gl::SRC_ALPHA, gl::ONE_MINUS_SRC_ALPHA);
        gl::DepthMask(0);
        for (int i = 1; i <= shells; ++i) {
            const float f = static_cast<float>(i) / static_cast<float>(shells);
            gl::Uniform1f(gl::GetUniformLocation(furProgram_, "shell"), 0.12f * f);
            gl::Uniform1f(gl::GetUniformLocation(furProgram_, "shellFraction"), f);
            gl::DrawElements(gl4::PATCHES, sphereIndices_, gl::UNSIGNED_INT, nullptr);
        }
        gl::DepthMask(1);
        gl::Disable(gl::BLEND);
    }
}

void TessyScene::TerminateApp() {
    for (GLuint* p : {&sphereProgram_, &planeProgram_, &furProgram_}) {
        if (*p) gl::DeleteProgram(*p);
        *p = 0;
    }
    for (GLuint* b : {&sphereVbo_, &sphereIbo_, &planeVbo_}) {
        if (*b) gl::DeleteBuffers(1, b);
        *b = 0;
    }
    for (GLuint* a : {&sphereVao_, &planeVao_}) {
        if (*a) gl::DeleteVertexArrays(1, a);
        *a = 0;
    }
}

std::string TessyScene::LoadLine() const {
    char line[128];
    const int level = static_cast<int>(Value(*level_));
    const int patches = 20 * (withPlane_ ? kBallCount : 1);
    if (withFur_)
        std::snprintf(line, sizeof line, "tessellation level %d, %d patches, %d fur shells", level, patches,
                      static_cast<int>(Value(*shells_)));
    else
        std::snprintf(line, sizeof line, "tessellation level %d, %d sphere patches%s", level, patches,
                      withPlane_ ? (tessellatedPlane_ ? ", tessellated plane" : ", plane") : "");
    return line;
}

}  // namespace glapps
