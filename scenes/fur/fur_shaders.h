// The fur test's GLSL programs, one text for both OpenGL back-ends: the
// OpenGL 2 back-end compiles it as GLSL 1.20, the OpenGL 3 back-end as GLSL
// 1.50 (core or compatibility), where it also uses the combined matrices.
#pragma once

namespace fur_glsl {

// Prepended to every shader of the OpenGL 2 back-end.
constexpr const char* kHeader120 =
    "#version 120\n"
    "#define IN attribute\n#define VOUT varying\n#define FIN varying\n#define TEX texture2D\n"
    "#define FRAG_DECL\n#define FRAG gl_FragColor\n";
// ... and of the OpenGL 3 back-end (vertex and fragment stages differ in their outputs).
constexpr const char* kHeader150 =
    "#version 150\n#define GL3\n"
    "#define IN in\n#define VOUT out\n#define FIN in\n#define TEX texture\n"
    "#define FRAG_DECL out vec4 fragColor;\n#define FRAG fragColor\n";

// Two fixed lights in world space, moved into eye space by the view matrix;
// shading per fragment with both.
#define ARD_FUR_LIGHTING                                                                              \
    "uniform vec4 lightAmbient0; uniform vec4 lightDiffuse0;\n"                                       \
    "uniform vec4 lightAmbient1; uniform vec4 lightDiffuse1;\n"                                       \
    "uniform vec4 materialAmbient; uniform vec4 materialDiffuse;\n"                                   \
    "vec3 Shade(vec3 n, vec3 l0, vec3 l1, vec3 c) {\n"                                                \
    "  vec3 r = lightAmbient0.rgb * materialAmbient.rgb * c\n"                                        \
    "         + lightDiffuse0.rgb * materialDiffuse.rgb * clamp(dot(n, l0), 0.0, 1.0) * c;\n"         \
    "  r += lightAmbient1.rgb * materialAmbient.rgb * c\n"                                            \
    "     + lightDiffuse1.rgb * materialDiffuse.rgb * clamp(dot(n, l1), 0.0, 1.0) * c;\n"             \
    "  return r;\n"                                                                                   \
    "}\n"

// Skin and fur share the vertex stage; the fur pushes each vertex out along
// its normal by FurLength (0 for the skin).
constexpr const char* kSurfaceVertex =
    "IN vec3 In_Position; IN vec3 In_Normal; IN vec2 In_UV;\n"
    "uniform mat4 projectionMatrix; uniform mat4 viewMatrix; uniform mat4 modelMatrix;\n"
    "#ifdef GL3\n"
    "uniform mat4 WorldViewProjectionMatrix; uniform mat4 ModelViewMatrix; uniform mat4 NormalMatrix;\n"
    "uniform mat4 ViewMatrix;\n"
    "#endif\n"
    "uniform float FurLength; uniform float UVScale;\n"
    "uniform vec3 lightPosition0; uniform vec3 lightPosition1;\n"
    "VOUT vec2 uv; VOUT vec3 normal; VOUT vec3 toLight0; VOUT vec3 toLight1;\n"
    "void main() {\n"
    "  vec4 p = vec4(In_Position + In_Normal * FurLength, 1.0);\n"
    "#ifdef GL3\n"
    "  vec4 eye = ModelViewMatrix * p;\n"
    "  gl_Position = WorldViewProjectionMatrix * p;\n"
    "  normal = normalize((NormalMatrix * vec4(In_Normal, 0.0)).xyz);\n"
    "  vec3 l0 = (ViewMatrix * vec4(lightPosition0, 1.0)).xyz;\n"
    "  vec3 l1 = (ViewMatrix * vec4(lightPosition1, 1.0)).xyz;\n"
    "#else\n"
    "  vec4 eye = viewMatrix * modelMatrix * p;\n"
    "  gl_Position = projectionMatrix * eye;\n"
    "  normal = normalize((viewMatrix * modelMatrix * vec4(In_Normal, 0.0)).xyz);\n"
    "  vec3 l0 = (viewMatrix * vec4(lightPosition0, 1.0)).xyz;\n"
    "  vec3 l1 = (viewMatrix * vec4(lightPosition1, 1.0)).xyz;\n"
    "#endif\n"
    "  toLight0 = l0 - eye.xyz;\n"
    "  toLight1 = l1 - eye.xyz;\n"
    "  uv = In_UV * UVScale;\n"
    "}\n";

constexpr const char* kSkinFragment =
    "FRAG_DECL\n"
    "uniform sampler2D colorMap;\n"
    "FIN vec2 uv; FIN vec3 normal; FIN vec3 toLight0; FIN vec3 toLight1;\n" ARD_FUR_LIGHTING
    "void main() {\n"
    "  vec3 c = TEX(colorMap, uv).rgb;\n"
    "  vec3 n = normalize(normal);\n"
    "  FRAG = vec4(Shade(n, normalize(toLight0), normalize(toLight1), c) * 0.35, 1.0);\n"
    "}\n";

// Each shell samples its dot texture twice as densely as the colour; the
// hairs fade out towards their tips with the fifth power of the layer.
constexpr const char* kFurFragment =
    "FRAG_DECL\n"
    "uniform sampler2D t0; uniform sampler2D t1;\n"
    "uniform float Layer; uniform float elapsedTime;\n"
    "FIN vec2 uv; FIN vec3 normal; FIN vec3 toLight0; FIN vec3 toLight1;\n" ARD_FUR_LIGHTING
    "void main() {\n"
    "  vec4 c1 = TEX(t1, uv * 2.0);\n"
    "  float k = pow(1.0 - Layer, 5.0);\n"
    "  vec4 c0 = TEX(t0, uv);\n"
    "  c1.a *= k;\n"
    "  c0.rgb *= c1.rgb;\n"
    "  vec3 n = normalize(normal);\n"
    "  FRAG = vec4(Shade(n, normalize(toLight0), normalize(toLight1), c0.rgb), c1.a);\n"
    "}\n";

// Full-screen passes: the unit square mapped onto the view.
constexpr const char* kScreenVertex =
    "IN vec3 In_Position; IN vec2 In_UV;\n"
    "uniform mat4 WorldViewProjectionMatrix;\n"
    "VOUT vec2 uv;\n"
    "void main() { gl_Position = WorldViewProjectionMatrix * vec4(In_Position, 1.0); uv = In_UV; }\n";

constexpr const char* kBackgroundFragment =
    "FRAG_DECL\n"
    "uniform sampler2D colorMap;\n"
    "FIN vec2 uv;\n"
    "void main() { FRAG = TEX(colorMap, uv); }\n";

// A soft zoom blur: samples towards the centre, each a little closer.
constexpr const char* kRadialBlurFragment =
    "FRAG_DECL\n"
    "uniform sampler2D sceneBuffer; uniform sampler2D tileTex;\n"
    "uniform int radial_blur_samples; uniform float radial_blur_scale_mul; uniform float elapsedTime;\n"
    "FIN vec2 uv;\n"
    "void main() {\n"
    "  vec4 sum = vec4(0.0);\n"
    "  float scale = 1.0;\n"
    "  int n = radial_blur_samples > 0 ? radial_blur_samples : 1;\n"
    "  for (int i = 0; i < n; ++i) {\n"
    "    sum += TEX(sceneBuffer, (uv - vec2(0.5)) * scale + vec2(0.5));\n"
    "    scale *= radial_blur_scale_mul;\n"
    "  }\n"
    "  FRAG = sum / float(n);\n"
    "}\n";

// The HUD in pixels, top-down: flat rectangles, text from the font atlas and
// textured quads (logos, panels).
constexpr const char* kHudVertex =
    "IN vec3 In_Position; IN vec2 In_UV;\n"
    "uniform mat4 WorldViewProjectionMatrix;\n"
    "VOUT vec2 uv;\n"
    "void main() { gl_Position = WorldViewProjectionMatrix * vec4(In_Position, 1.0); uv = In_UV; }\n";

constexpr const char* kFlatFragment =
    "FRAG_DECL\n"
    "uniform vec4 color;\n"
    "FIN vec2 uv;\n"
    "void main() { FRAG = color; }\n";

// Pictures and text of the HUD: the texture times the colour (a font atlas
// is white, its alpha the coverage).
constexpr const char* kTexturedFragment =
    "FRAG_DECL\n"
    "uniform sampler2D colorMap; uniform vec4 color;\n"
    "FIN vec2 uv;\n"
    "void main() { FRAG = TEX(colorMap, uv) * color; }\n";

}  // namespace fur_glsl
