// The OpenGL 4 benchmark's GLSL 4.00 programs. Every lit program reads the
// same shadow map, rendered from the sun with the same programs
// (shadowPass = 1 leaves the colour alone; only depth is written).
#pragma once

namespace amark_glsl {

#define ARD_AMARK_HEADER "#version 400 core\n"

// Lighting and the shadow look-up shared by every lit fragment stage.
#define ARD_AMARK_LIGHTING                                                                            \
    "uniform sampler2DShadow shadowMap;\n"                                                            \
    "uniform mat4 lightViewProj;\n"                                                                   \
    "uniform vec3 sunDirection;\n"                                                                    \
    "uniform vec3 eyePosition;\n"                                                                     \
    "uniform int shadowPass;\n"                                                                       \
    "float Shadow(vec3 world) {\n"                                                                    \
    "  vec4 p = lightViewProj * vec4(world, 1.0);\n"                                                  \
    "  vec3 c = p.xyz / p.w * 0.5 + 0.5;\n"                                                           \
    "  if (c.x < 0.0 || c.x > 1.0 || c.y < 0.0 || c.y > 1.0 || c.z > 1.0) return 1.0;\n"            \
    "  vec2 texel = 1.0 / vec2(textureSize(shadowMap, 0));\n"                                         \
    "  float s = 0.0;\n"                                                                              \
    "  for (int y = -1; y <= 1; ++y) for (int x = -1; x <= 1; ++x)\n"                                 \
    "    s += texture(shadowMap, vec3(c.xy + vec2(x, y) * texel, c.z - 0.002));\n"                      \
    "  return s / 9.0;\n"                                                                             \
    "}\n"                                                                                             \
    "vec3 Light(vec3 world, vec3 n, vec3 albedo, float shininess) {\n"                                \
    "  vec3 l = -sunDirection;\n"                                                                     \
    "  vec3 v = normalize(eyePosition - world);\n"                                                    \
    "  float d = max(dot(n, l), 0.0);\n"                                                              \
    "  float sp = pow(max(dot(reflect(-l, n), v), 0.0), shininess) * step(0.0, d);\n"                \
    "  float sh = Shadow(world);\n"                                                                   \
    "  vec3 sky = mix(vec3(0.18, 0.16, 0.14), vec3(0.25, 0.3, 0.4), n.y * 0.5 + 0.5);\n"               \
    "  return albedo * (sky + vec3(1.0, 0.95, 0.85) * d * sh) + vec3(0.4) * sp * sh;\n"               \
    "}\n"

// Sky: a gradient over the whole view from a triangle made of vertex ids.
constexpr const char* kSkyVertex = ARD_AMARK_HEADER
    "out vec2 uv;\n"
    "void main() {\n"
    "  vec2 p = vec2((gl_VertexID << 1) & 2, gl_VertexID & 2);\n"
    "  uv = p;\n"
    "  gl_Position = vec4(p * 2.0 - 1.0, 0.999, 1.0);\n"
    "}\n";
constexpr const char* kSkyFragment = ARD_AMARK_HEADER
    "in vec2 uv; out vec4 fragColor; uniform float time;\n"
    "void main() {\n"
    "  vec3 top = vec3(0.08, 0.14, 0.32), bottom = vec3(0.62, 0.55, 0.48);\n"
    "  float h = clamp(uv.y, 0.0, 1.0);\n"
    "  fragColor = vec4(mix(bottom, top, pow(h, 0.7)) + 0.02 * sin(uv.x * 20.0 + time), 1.0);\n"
    "}\n";

// The ground: patches of three corners, split by the preset's ground
// tessellation level and displaced into low dunes.
constexpr const char* kGroundVertex = ARD_AMARK_HEADER
    "in vec3 In_Position;\n"
    "out vec3 vPos;\n"
    "void main() { vPos = In_Position; }\n";
constexpr const char* kGroundControl = ARD_AMARK_HEADER
    "layout(vertices = 3) out;\n"
    "in vec3 vPos[]; out vec3 tcPos[];\n"
    "uniform float tessLevel;\n"
    "void main() {\n"
    "  tcPos[gl_InvocationID] = vPos[gl_InvocationID];\n"
    "  if (gl_InvocationID == 0) {\n"
    "    gl_TessLevelOuter[0] = tessLevel; gl_TessLevelOuter[1] = tessLevel;\n"
    "    gl_TessLevelOuter[2] = tessLevel; gl_TessLevelInner[0] = tessLevel;\n"
    "  }\n"
    "}\n";
constexpr const char* kGroundEvaluation = ARD_AMARK_HEADER
    "layout(triangles, fractional_even_spacing, ccw) in;\n"
    "in vec3 tcPos[]; out vec3 worldPos; out vec3 worldNormal;\n"
    "uniform mat4 viewProj; uniform float time;\n"
    "float H(vec2 p) {\n"
    "  float r = length(p);\n"
    "  return 0.25 * sin(p.x * 0.9 + time * 0.3) * cos(p.y * 0.7) + 0.12 * sin(r * 2.1 - time)\n"
    "       + 0.05 * sin(p.x * 3.7) * sin(p.y * 4.3);\n"
    "}\n"
    "void main() {\n"
    "  vec3 p = gl_TessCoord.x * tcPos[0] + gl_TessCoord.y * tcPos[1] + gl_TessCoord.z * tcPos[2];\n"
    "  // Flat near the middle, where the flag and the fluid stand.\n"
    "  float fade = smoothstep(3.0, 6.0, length(p.xz));\n"
    "  p.y = H(p.xz) * fade;\n"
    "  float e = 0.05;\n"
    "  float hx = H(p.xz + vec2(e, 0.0)) * fade - H(p.xz - vec2(e, 0.0)) * fade;\n"
    "  float hz = H(p.xz + vec2(0.0, e)) * fade - H(p.xz - vec2(0.0, e)) * fade;\n"
    "  worldNormal = normalize(vec3(-hx, 2.0 * e, -hz));\n"
    "  worldPos = p;\n"
    "  gl_Position = viewProj * vec4(p, 1.0);\n"
    "}\n";
constexpr const char* kGroundFragment = ARD_AMARK_HEADER ARD_AMARK_LIGHTING
    "in vec3 worldPos; in vec3 worldNormal; out vec4 fragColor;\n"
    "void main() {\n"
    "  if (shadowPass == 1) { fragColor = vec4(1.0); return; }\n"
    "  vec2 c = floor(worldPos.xz);\n"
    "  float checker = mod(c.x + c.y, 2.0);\n"
    "  vec3 albedo = mix(vec3(0.55, 0.5, 0.42), vec3(0.42, 0.38, 0.32), checker);\n"
    "  fragColor = vec4(Light(worldPos, normalize(worldNormal), albedo, 16.0), 1.0);\n"
    "}\n";

// Spheres: a coarse sphere's triangles as patches, refined by the sphere's
// tessellation level, pushed onto the true sphere and rippled.
constexpr const char* kSphereVertex = kGroundVertex;
constexpr const char* kSphereControl = kGroundControl;
constexpr const char* kSphereEvaluation = ARD_AMARK_HEADER
    "layout(triangles, fractional_odd_spacing, ccw) in;\n"
    "in vec3 tcPos[]; out vec3 worldPos; out vec3 worldNormal;\n"
    "uniform mat4 viewProj; uniform vec4 sphere; uniform float time; uniform float ripple;\n"
    "void main() {\n"
    "  vec3 d = normalize(gl_TessCoord.x * tcPos[0] + gl_TessCoord.y * tcPos[1] + gl_TessCoord.z * tcPos[2]);\n"
    "  float bump = ripple * sin(d.x * 9.0 + time * 2.0) * sin(d.y * 11.0) * sin(d.z * 7.0 + time);\n"
    "  worldPos = sphere.xyz + d * sphere.w * (1.0 + bump);\n"
    "  worldNormal = d;\n"
    "  gl_Position = viewProj * vec4(worldPos, 1.0);\n"
    "}\n";
constexpr const char* kSphereFragment = ARD_AMARK_HEADER ARD_AMARK_LIGHTING
    "in vec3 worldPos; in vec3 worldNormal; out vec4 fragColor; uniform vec3 albedo;\n"
    "void main() {\n"
    "  if (shadowPass == 1) { fragColor = vec4(1.0); return; }\n"
    "  fragColor = vec4(Light(worldPos, normalize(worldNormal), albedo, 48.0), 1.0);\n"
    "}\n";

// Plain lit meshes (flag, pole) and the asteroids, one instance per
// (offset, scale) and (axis, phase) pair.
constexpr const char* kMeshVertex = ARD_AMARK_HEADER
    "in vec3 In_Position; in vec3 In_Normal; in vec4 In_Offset; in vec4 In_Spin;\n"
    "out vec3 worldPos; out vec3 worldNormal; out float shade;\n"
    "uniform mat4 viewProj; uniform mat4 model; uniform int instanced; uniform float time;\n"
    "mat3 Rotation(vec3 axis, float a) {\n"
    "  float c = cos(a), s = sin(a); vec3 t = (1.0 - c) * axis;\n"
    "  return mat3(t.x * axis.x + c, t.x * axis.y + s * axis.z, t.x * axis.z - s * axis.y,\n"
    "              t.y * axis.x - s * axis.z, t.y * axis.y + c, t.y * axis.z + s * axis.x,\n"
    "              t.z * axis.x + s * axis.y, t.z * axis.y - s * axis.x, t.z * axis.z + c);\n"
    "}\n"
    "void main() {\n"
    "  vec3 p = In_Position; vec3 n = In_Normal; shade = 1.0;\n"
    "  if (instanced == 1) {\n"
    "    mat3 r = Rotation(normalize(In_Spin.xyz), In_Spin.w + time * (0.3 + fract(In_Spin.w)));\n"
    "    // The field turns slowly about the vertical axis.\n"
    "    float orbit = time * 0.05 / (1.0 + 0.1 * length(In_Offset.xz));\n"
    "    mat3 o = Rotation(vec3(0.0, 1.0, 0.0), orbit);\n"
    "    p = o * (r * p * In_Offset.w + In_Offset.xyz); n = o * r * n;\n"
    "    shade = 0.75 + 0.25 * fract(In_Spin.w * 7.0);\n"
    "  } else {\n"
    "    p = (model * vec4(p, 1.0)).xyz; n = mat3(model) * n;\n"
    "  }\n"
    "  worldPos = p; worldNormal = n;\n"
    "  gl_Position = viewProj * vec4(p, 1.0);\n"
    "}\n";
constexpr const char* kMeshFragment = ARD_AMARK_HEADER ARD_AMARK_LIGHTING
    "in vec3 worldPos; in vec3 worldNormal; in float shade; out vec4 fragColor;\n"
    "uniform vec3 albedo; uniform int flagPattern;\n"
    "void main() {\n"
    "  if (shadowPass == 1) { fragColor = vec4(1.0); return; }\n"
    "  vec3 n = normalize(worldNormal);\n"
    "  if (!gl_FrontFacing) n = -n;\n"
    "  vec3 a = albedo * shade;\n"
    "  if (flagPattern == 1) a = mix(vec3(0.75, 0.08, 0.06), vec3(0.95, 0.85, 0.2), step(0.5, fract(worldPos.y * 2.0)));\n"
    "  fragColor = vec4(Light(worldPos, n, a, 24.0), 1.0);\n"
    "}\n";

// Fluid particles as round, shaded point sprites.
constexpr const char* kParticleVertex = ARD_AMARK_HEADER
    "in vec3 In_Position; out float depthShade;\n"
    "uniform mat4 viewProj; uniform float pointScale;\n"
    "void main() {\n"
    "  gl_Position = viewProj * vec4(In_Position, 1.0);\n"
    "  gl_PointSize = max(2.0, pointScale / gl_Position.w);\n"
    "  depthShade = clamp(In_Position.y * 0.3 + 0.5, 0.3, 1.0);\n"
    "}\n";
constexpr const char* kParticleFragment = ARD_AMARK_HEADER
    "in float depthShade; out vec4 fragColor;\n"
    "void main() {\n"
    "  vec2 c = gl_PointCoord * 2.0 - 1.0; float r2 = dot(c, c);\n"
    "  if (r2 > 1.0) discard;\n"
    "  vec3 n = vec3(c.x, -c.y, sqrt(1.0 - r2));\n"
    "  float d = max(dot(n, normalize(vec3(0.4, 0.7, 0.6))), 0.0);\n"
    "  fragColor = vec4(vec3(0.1, 0.35, 0.8) * (0.35 + 0.65 * d) * depthShade + pow(d, 24.0) * 0.6, 1.0);\n"
    "}\n";

}  // namespace amark_glsl
