#include "scenes/fur/fur_gl.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/event_log.h"
#include "core/settings.h"
#include "platform/compiler.h"
#include "platform/gpu_choice.h"
#include "render/gl_shader.h"
#include "runner/run_facts.h"
#include "runner/run_stats.h"
#include "scenes/fur/fur_shaders.h"
#include "monitor/monitor_shell.h"
#include "scenes/fur/gpu_readings.h"

namespace {

enum Attribute : GLuint { kPosition = 0, kNormal = 1, kUv = 2 };

const char* GlText(GLenum name) {
    const GLubyte* s = gl::GetString(name);
    return s ? reinterpret_cast<const char*>(s) : "n.a.";
}

std::string Source(const char* header, const char* body) { return std::string(header) + body; }

GLint Loc(GLuint program, const char* name) { return gl::GetUniformLocation(program, name); }

void SetMatrix(GLuint program, const char* name, const m3d::Mat4& m) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::UniformMatrix4fv(l, 1, 0, m.data());
}

void SetInt(GLuint program, const char* name, int v) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::Uniform1i(l, v);
}

void SetFloat(GLuint program, const char* name, float v) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::Uniform1f(l, v);
}

void SetVec4(GLuint program, const char* name, const float* v) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::Uniform4f(l, v[0], v[1], v[2], v[3]);
}

// Pictures are stored top row first, textures bottom row first: turned over
// on the way so that v = 1 is the picture's top.
GLuint Upload(const Image& image, bool mipmapped, float anisotropy, bool repeat) {
    if (image.empty()) return 0;
    const Image flipped = FlippedRows(image);
    return UploadTexture(flipped.rgba.data(), image.width, image.height, mipmapped, anisotropy, repeat);
}

// Where the run draws when a GPU was chosen: through the chosen device, or,
// where OpenGL cannot choose, on the one it was given, and the log says so.
void LogGpuChoice(const platform::GlContext& context) {
    const platform::GpuChoice& gpu = platform::CurrentGpuChoice();
    if (gpu.index <= 0) return;
    const std::string device = context.ChosenDevice();
    if (!device.empty()) {
        gEventLog.Write("OpenGL: drawing on GPU %d (%s) through %s.", gpu.index, gpu.name.c_str(), device.c_str());
        return;
    }
#if defined(_WIN32)
    gEventLog.Write("OpenGL: /gpu=%d not applied: OpenGL on Windows draws on the GPU the driver chose (no GPU affinity "
                    "extension is used).",
                    gpu.index);
#else
    gEventLog.Write("OpenGL: /gpu=%d not applied: OpenGL in a window draws on the GPU the display server chose (run "
                    "with /headless to choose).",
                    gpu.index);
#endif
}

}  // namespace

cLm4DDemo_GL::~cLm4DDemo_GL() { Terminate(); }

cLm4DDemo_GL::Dialect cLm4DDemo_OpenGL_2::ChooseDialect() const { return Dialect{2, 0, false, fur_glsl::kHeader120, false}; }

void cLm4DDemo_OpenGL_2::LogSuccess(int major, int minor) const {
    gEventLog.Write("OpenGL 2 (%d.%d) context init ok.", major, minor);
}

cLm4DDemo_GL::Dialect cLm4DDemo_OpenGL_3::ChooseDialect() const {
    return Dialect{3, 3, StartupOptions.gl3_core_profile, fur_glsl::kHeader150, true};
}

void cLm4DDemo_OpenGL_3::LogSuccess(int major, int minor) const {
    gEventLog.Write("OpenGL 3 (%d.%d) context with %s profile init ok.", major, minor,
                    StartupOptions.gl3_core_profile ? "core" : "compatibility");
}

bool cLm4DDemo_GL::Init(const RenderTarget& target, int width, int height) {
    width_ = width;
    height_ = height;
    if (!InitScene(width, height)) return false;

    dialect_ = ChooseDialect();
    platform::GlContextRequest req;
    req.major = dialect_.major;
    req.minor = dialect_.minor;
    req.core = dialect_.core;
    req.samples = AaSampleCount(StartupOptions.aa_mode);
    std::string error;
    context_ = platform::CreateGlContext(target, req, &error);
    if (!context_) {
        gEventLog.Write("%s", target.headless ? "OpenGL initialization failed!" : WindowFailureLine());
        gEventLog.Write("OpenGL: %s", error.c_str());
        return false;
    }
    const char* missing = gl::LoadFunctions(platform::CurrentGlProcAddress);
    int major = 0, minor = 0;
    if (gl::GetString) std::sscanf(GlText(gl::VERSION), "%d.%d", &major, &minor);
    if (major < dialect_.major || (major == dialect_.major && minor < dialect_.minor)) {
        gEventLog.Write("%s", MinimumLine());
        return false;
    }
    if (*missing) {
        gEventLog.Write("OpenGL initialization failed!");
        gEventLog.Write("OpenGL: missing entry points: %s", missing);
        return false;
    }
    glMajor_ = major;
    glMinor_ = minor;
    gEventLog.Write("OpenGL version: %s", GlText(gl::VERSION));
    gEventLog.Write("OpenGL vendor: %s", GlText(gl::VENDOR));
    gEventLog.Write("OpenGL renderer: %s", GlText(gl::RENDERER));
    LogGpuChoice(*context_);
    renderer_text = GlText(gl::RENDERER);
    anisotropic_ = !IsSoftwareRasterizer(renderer_text);
    if (!anisotropic_) gEventLog.Write("Anisotropic filtering is off on a software rasterizer.");
    driver_text = GlText(gl::VERSION);
    RunFacts.msaaSamples = context_->Samples();
    RunFacts.clientWidth = width;
    RunFacts.clientHeight = height;
    if (dialect_.useVao)
        gEventLog.Write("OpenGL 3 VAO (Vertex Array Objects) supported. VAO will be used for furry mesh rendering.");

    const std::vector<std::pair<GLuint, const char*>> attribs = {
        {kPosition, "In_Position"}, {kNormal, "In_Normal"}, {kUv, "In_UV"}};
    const char* h = dialect_.header;
    bgProgram_ = BuildProgram(Source(h, fur_glsl::kScreenVertex).c_str(),
                               Source(h, fur_glsl::kBackgroundFragment).c_str(), attribs);
    skinProgram_ = BuildProgram(Source(h, fur_glsl::kSurfaceVertex).c_str(), Source(h, fur_glsl::kSkinFragment).c_str(),
                         attribs);
    furProgram_ = BuildProgram(Source(h, fur_glsl::kSurfaceVertex).c_str(), Source(h, fur_glsl::kFurFragment).c_str(), attribs);
    blurProgram_ = BuildProgram(Source(h, fur_glsl::kScreenVertex).c_str(), Source(h, fur_glsl::kRadialBlurFragment).c_str(),
                         attribs);
    flatProgram_ = BuildProgram(Source(h, fur_glsl::kHudVertex).c_str(), Source(h, fur_glsl::kFlatFragment).c_str(), attribs);
    textProgram_ = BuildProgram(Source(h, fur_glsl::kHudVertex).c_str(), Source(h, fur_glsl::kTextFragment).c_str(), attribs);
    texturedProgram_ =
        BuildProgram(Source(h, fur_glsl::kHudVertex).c_str(), Source(h, fur_glsl::kTexturedFragment).c_str(), attribs);
    if (!bgProgram_ || !skinProgram_ || !furProgram_ || !blurProgram_ || !flatProgram_ || !textProgram_ || !texturedProgram_) return false;

    // Uniforms that never change.
    const m3d::Mat4 screen = FullScreenMatrix();
    gl::UseProgram(bgProgram_);
    SetInt(bgProgram_, "colorMap", 0);
    SetMatrix(bgProgram_, "WorldViewProjectionMatrix", screen);
    for (GLuint p : {skinProgram_, furProgram_}) {
        gl::UseProgram(p);
        SetInt(p, "colorMap", 0);
        SetInt(p, "t0", 0);
        SetInt(p, "t1", 1);
        SetFloat(p, "UVScale", kFurUvScaleAtCreation);
        SetMatrix(p, "projectionMatrix", scene_.camera.projection);
        SetMatrix(p, "viewMatrix", scene_.camera.view);
        SetMatrix(p, "ViewMatrix", scene_.camera.view);
        SetFloat(p, "FurLength", 0.0f);
        const FurLight* l = kFurLights;
        for (int i = 0; i < 2; ++i) {
            GLint pos = Loc(p, i == 0 ? "lightPosition0" : "lightPosition1");
            if (pos >= 0) gl::Uniform3f(pos, l[i].position.x, l[i].position.y, l[i].position.z);
        }
        SetVec4(p, "lightAmbient0", l[0].ambient);
        SetVec4(p, "lightDiffuse0", l[0].diffuse);
        SetVec4(p, "lightAmbient1", l[1].ambient);
        SetVec4(p, "lightDiffuse1", l[1].diffuse);
        SetVec4(p, "materialAmbient", kFurMaterialAmbient);
        SetVec4(p, "materialDiffuse", kFurMaterialDiffuse);
    }
    gl::UseProgram(blurProgram_);
    SetInt(blurProgram_, "sceneBuffer", 0);
    SetInt(blurProgram_, "tileTex", 1);
    SetInt(blurProgram_, "radial_blur_samples", scene_.params.radialBlurSamples);
    SetFloat(blurProgram_, "radial_blur_scale_mul", scene_.params.radialBlurScaleMul);
    SetMatrix(blurProgram_, "WorldViewProjectionMatrix", screen);
    const m3d::Mat4 hud = PixelViewMatrix(width_, height_);
    for (GLuint p : {flatProgram_, textProgram_, texturedProgram_}) {
        gl::UseProgram(p);
        SetMatrix(p, "WorldViewProjectionMatrix", hud);
        SetInt(p, "colorMap", 0);
    }
    gl::UseProgram(textProgram_);
    SetInt(textProgram_, "coverageInRed", dialect_.core ? 1 : 0);
    gl::UseProgram(0);

    furMesh_ = UploadMesh(scene_.meshes.fur);
    skinMesh_ = UploadMesh(scene_.meshes.skin);
    quad_ = UploadMesh(UnitSquare());
    gl::GenBuffers(1, &hudVbo_);
    if (dialect_.useVao) gl::GenVertexArrays(1, &hudVao_);

    bgTexture_ = Upload(background_, true, Anisotropy(4.0f), true);
    furTexture_ = Upload(furColor_, true, Anisotropy(4.0f), true);
    if (!bgTexture_) gEventLog.Write("Bkg texture loading failed (see the log file for more details).");
    if (!furTexture_) {
        gEventLog.Write("Fur texture loading failed (see the log file for more details).");
        // Without its picture the fur is drawn in plain light grey, not black.
        const unsigned char grey[4] = {200, 200, 200, 255};
        furTexture_ = UploadTexture(grey, 1, 1, false, 0.0f, true);
    }
    makerLogoTex_ = Upload(makerLogo_, false, 0.0f, false);
    productLogoTex_ = Upload(productLogo_, false, 0.0f, false);
    apiLogoTex_ = Upload(apiLogo_, false, 0.0f, false);
    gpuLogoTex_ = Upload(gpuLogo_, false, 0.0f, false);
    if (!UploadDotTextures()) return false;
    postActive_ = CreatePostTarget();

    std::string fontFile = FindHudFontFile(DataFolder());
    if (fontFile.empty() || !font_.Build(fontFile, 15.0f, &error) || !smallFont_.Build(fontFile, 11.0f, &error)) {
        gEventLog.Write("HUD font \"Arial\" not available: %s", fontFile.empty() ? "no font file found" : error.c_str());
    } else {
        fontTexture_ = UploadAlphaTexture(font_.alpha().data(), font_.width(), font_.height(), dialect_.core);
        smallFontTexture_ =
            UploadAlphaTexture(smallFont_.alpha().data(), smallFont_.width(), smallFont_.height(), dialect_.core);
    }
    LogSuccess(major, minor);
    return true;
}

bool cLm4DDemo_GL::CreatePostTarget() {
    gl::GenTextures(1, &postColor_);
    gl::BindTexture(gl::TEXTURE_2D, postColor_);
    gl::TexImage2D(gl::TEXTURE_2D, 0, static_cast<GLint>(gl::RGBA8), width_, height_, 0, gl::RGBA, gl::UNSIGNED_BYTE,
                   nullptr);
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER, static_cast<GLint>(gl::LINEAR));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAG_FILTER, static_cast<GLint>(gl::LINEAR));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_S, static_cast<GLint>(gl::CLAMP_TO_EDGE));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_T, static_cast<GLint>(gl::CLAMP_TO_EDGE));
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::GenRenderbuffers(1, &postDepth_);
    gl::BindRenderbuffer(gl::RENDERBUFFER, postDepth_);
    gl::RenderbufferStorage(gl::RENDERBUFFER, gl::DEPTH24_STENCIL8, width_, height_);
    gl::GenFramebuffers(1, &postFbo_);
    gl::BindFramebuffer(gl::FRAMEBUFFER, postFbo_);
    gl::FramebufferTexture2D(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::TEXTURE_2D, postColor_, 0);
    gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::DEPTH_STENCIL_ATTACHMENT, gl::RENDERBUFFER, postDepth_);
    bool ok = gl::CheckFramebufferStatus(gl::FRAMEBUFFER) == gl::FRAMEBUFFER_COMPLETE;
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    if (!ok) {
        gEventLog.Write("Post-processing target creation failed: the post effect is off.");
        gl::DeleteFramebuffers(1, &postFbo_);
        postFbo_ = 0;
    }
    return ok && blurProgram_ != 0;
}

bool cLm4DDemo_GL::CreateCheckTarget() {
    const int side = std::max(width_, height_);
    const double scale = side > kCheckFrameSide ? static_cast<double>(kCheckFrameSide) / side : 1.0;
    checkWidth_ = std::max(1, static_cast<int>(width_ * scale));
    checkHeight_ = std::max(1, static_cast<int>(height_ * scale));
    gl::GenRenderbuffers(1, &checkColor_);
    gl::BindRenderbuffer(gl::RENDERBUFFER, checkColor_);
    gl::RenderbufferStorage(gl::RENDERBUFFER, gl::RGBA8, checkWidth_, checkHeight_);
    gl::GenRenderbuffers(1, &checkDepth_);
    gl::BindRenderbuffer(gl::RENDERBUFFER, checkDepth_);
    gl::RenderbufferStorage(gl::RENDERBUFFER, gl::DEPTH24_STENCIL8, checkWidth_, checkHeight_);
    gl::GenFramebuffers(1, &checkFbo_);
    gl::BindFramebuffer(gl::FRAMEBUFFER, checkFbo_);
    gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::RENDERBUFFER, checkColor_);
    gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::DEPTH_STENCIL_ATTACHMENT, gl::RENDERBUFFER, checkDepth_);
    const bool ok = gl::CheckFramebufferStatus(gl::FRAMEBUFFER) == gl::FRAMEBUFFER_COMPLETE;
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    if (!ok) FreeCheckTarget();
    return ok;
}

void cLm4DDemo_GL::FreeCheckTarget() {
    if (checkFbo_) gl::DeleteFramebuffers(1, &checkFbo_);
    if (checkColor_) gl::DeleteRenderbuffers(1, &checkColor_);
    if (checkDepth_) gl::DeleteRenderbuffers(1, &checkDepth_);
    checkFbo_ = checkColor_ = checkDepth_ = 0;
}

bool cLm4DDemo_GL::DrawCheckFrame(CheckFrame* out) {
    // The benchmark object's stages are no fixed state; it checks its own way.
    if (!context_ || amark_mode || !furProgram_) return false;
    if (!checkFbo_ && !CreateCheckTarget()) return false;
    const float elapsed = elapsed_;
    const int binds = lastBinds_;
    elapsed_ = kCheckAnimationSeconds;
    drawingCheck_ = true;
    gl::BindFramebuffer(gl::FRAMEBUFFER, checkFbo_);
    gl::Viewport(0, 0, checkWidth_, checkHeight_);
    gl::ClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    gl::ClearDepth(1.0);
    gl::Enable(gl::DEPTH_TEST);
    gl::Clear(gl::COLOR_BUFFER_BIT | gl::DEPTH_BUFFER_BIT);
    DrawFurBackground();
    DrawFurryObject();
    std::vector<uint8_t> pixels(static_cast<size_t>(checkWidth_) * checkHeight_ * 4);
    gl::PixelStorei(gl::PACK_ALIGNMENT, 1);
    gl::ReadPixels(0, 0, checkWidth_, checkHeight_, gl::RGBA, gl::UNSIGNED_BYTE, pixels.data());
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    drawingCheck_ = false;
    elapsed_ = elapsed;
    lastBinds_ = binds;
    // Top row first, as every read-back of this program.
    const size_t row = static_cast<size_t>(checkWidth_) * 4;
    out->width = checkWidth_;
    out->height = checkHeight_;
    out->rgba.resize(pixels.size());
    for (int y = 0; y < checkHeight_; ++y)
        std::memcpy(&out->rgba[static_cast<size_t>(y) * row], &pixels[static_cast<size_t>(checkHeight_ - 1 - y) * row], row);
    return true;
}

namespace {

// ComputeCheckValue of the runner, index by index, in the shading language.
const char* const kComputeCheckSource =
    "#version 430\n"
    "layout(local_size_x = 64) in;\n"
    "layout(std430, binding = 0) buffer Values { uint v[]; };\n"
    "void main() {\n"
    "    uint x = gl_GlobalInvocationID.x * 2654435761u + 1u;\n"
    "    for (int k = 0; k < ROUNDS; ++k) {\n"
    "        x ^= x << 13;\n"
    "        x ^= x >> 17;\n"
    "        x ^= x << 5;\n"
    "        x = x * 1664525u + 1013904223u;\n"
    "    }\n"
    "    v[gl_GlobalInvocationID.x] = x;\n"
    "}\n";
constexpr GLenum kDynamicCopy = 0x88EA;

}  // namespace

bool cLm4DDemo_GL::SetUpComputeCheck() {
    if (glMajor_ * 10 + glMinor_ < 43 || !compute_.Load(platform::CurrentGlProcAddress).empty()) return false;
    std::string source = kComputeCheckSource;
    source.replace(source.find("ROUNDS"), 6, std::to_string(kComputeRounds));
    const char* text = source.c_str();
    GLuint shader = compute_.CreateShader(gl::COMPUTE_SHADER);
    compute_.ShaderSource(shader, 1, &text, nullptr);
    compute_.CompileShader(shader);
    GLint ok = 0;
    compute_.GetShaderiv(shader, gl::COMPILE_STATUS, &ok);
    if (ok) {
        computeProgram_ = compute_.CreateProgram();
        compute_.AttachShader(computeProgram_, shader);
        compute_.LinkProgram(computeProgram_);
        compute_.GetProgramiv(computeProgram_, gl::LINK_STATUS, &ok);
    }
    compute_.DeleteShader(shader);
    if (!ok) {
        gEventLog.Write("Verification: the compute check's program did not build; no compute check.");
        if (computeProgram_) compute_.DeleteProgram(computeProgram_);
        computeProgram_ = 0;
        return false;
    }
    compute_.GenBuffers(1, &computeBuffer_);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, computeBuffer_);
    compute_.BufferData(gl::SHADER_STORAGE_BUFFER, kComputeValues * sizeof(uint32_t), nullptr, kDynamicCopy);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, 0);
    computeExpected_.resize(kComputeValues);
    for (int i = 0; i < kComputeValues; ++i) computeExpected_[static_cast<size_t>(i)] = ComputeCheckValue(static_cast<uint32_t>(i));
    return true;
}

int cLm4DDemo_GL::RunComputeCheck() {
    if (!context_ || amark_mode) return -1;
    if (computeState_ == 0) computeState_ = SetUpComputeCheck() ? 1 : -1;
    if (computeState_ < 0) return -1;
    // Cleared first: results left from the last check must not pass for this one's.
    std::vector<uint32_t> got(kComputeValues, 0u);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, computeBuffer_);
    compute_.BufferSubData(gl::SHADER_STORAGE_BUFFER, 0, kComputeValues * sizeof(uint32_t), got.data());
    compute_.UseProgram(computeProgram_);
    compute_.BindBufferBase(gl::SHADER_STORAGE_BUFFER, 0, computeBuffer_);
    compute_.DispatchCompute(kComputeValues / 64, 1, 1);
    compute_.MemoryBarrier(gl::BUFFER_UPDATE_BARRIER_BIT);
    compute_.GetBufferSubData(gl::SHADER_STORAGE_BUFFER, 0, kComputeValues * sizeof(uint32_t), got.data());
    compute_.BindBufferBase(gl::SHADER_STORAGE_BUFFER, 0, 0);
    compute_.BindBuffer(gl::SHADER_STORAGE_BUFFER, 0);
    compute_.UseProgram(0);
    int wrong = 0;
    for (int i = 0; i < kComputeValues; ++i) wrong += got[static_cast<size_t>(i)] != computeExpected_[static_cast<size_t>(i)];
    return wrong;
}

void cLm4DDemo_GL::Terminate() {
    CloseTemperatureLog();
    if (!context_) return;
    if (computeProgram_) compute_.DeleteProgram(computeProgram_);
    if (computeBuffer_) compute_.DeleteBuffers(1, &computeBuffer_);
    computeProgram_ = computeBuffer_ = 0;
    computeState_ = 0;
    FreeCheckTarget();
    ReleaseDotTextures();
    for (GLuint* p : {&bgProgram_, &skinProgram_, &furProgram_, &blurProgram_, &flatProgram_, &textProgram_, &texturedProgram_}) {
        if (*p) gl::DeleteProgram(*p);
        *p = 0;
    }
    for (GpuMesh* m : {&furMesh_, &skinMesh_, &quad_}) FreeMesh(*m);
    for (GLuint* t : {&bgTexture_, &furTexture_, &makerLogoTex_, &productLogoTex_, &apiLogoTex_, &gpuLogoTex_, &fontTexture_,
                      &smallFontTexture_, &postColor_}) {
        if (*t) gl::DeleteTextures(1, t);
        *t = 0;
    }
    if (hudVbo_) gl::DeleteBuffers(1, &hudVbo_);
    if (hudVao_) gl::DeleteVertexArrays(1, &hudVao_);
    if (postFbo_) gl::DeleteFramebuffers(1, &postFbo_);
    if (postDepth_) gl::DeleteRenderbuffers(1, &postDepth_);
    hudVbo_ = hudVao_ = postFbo_ = postDepth_ = 0;
    context_.reset();
}

bool cLm4DDemo_GL::UploadDotTextures() {
    const DotSet* set = scene_.params.layerTextures;
    if (!set) return false;
    ReleaseDotTextures();
    for (const std::vector<uint8_t>& layer : set->layers)
        dotTextures_.push_back(UploadTexture(layer.data(), set->size, set->size, true, Anisotropy(16.0f), true));
    return true;
}

void cLm4DDemo_GL::ReleaseDotTextures() {
    if (!dotTextures_.empty()) gl::DeleteTextures(static_cast<GLsizei>(dotTextures_.size()), dotTextures_.data());
    dotTextures_.clear();
}

namespace {

// Position, normal and texture coordinate from the bound vertex buffer, in
// the mesh layout of 8 floats per vertex.
void PointMeshAttributes() {
    const GLsizei stride = kMeshFloatsPerVertex * sizeof(float);
    gl::EnableVertexAttribArray(kPosition);
    gl::EnableVertexAttribArray(kNormal);
    gl::EnableVertexAttribArray(kUv);
    gl::VertexAttribPointer(kPosition, 3, gl::FLOAT, 0, stride, reinterpret_cast<void*>(0));
    gl::VertexAttribPointer(kNormal, 3, gl::FLOAT, 0, stride, reinterpret_cast<void*>(3 * sizeof(float)));
    gl::VertexAttribPointer(kUv, 2, gl::FLOAT, 0, stride, reinterpret_cast<void*>(6 * sizeof(float)));
}

}  // namespace

cLm4DDemo_GL::GpuMesh cLm4DDemo_GL::UploadMesh(const Mesh& mesh) {
    GpuMesh m;
    if (mesh.empty()) return m;
    if (dialect_.useVao) {
        gl::GenVertexArrays(1, &m.vao);
        gl::BindVertexArray(m.vao);
    }
    gl::GenBuffers(1, &m.vbo);
    gl::BindBuffer(gl::ARRAY_BUFFER, m.vbo);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(mesh.vertices.size() * sizeof(float)),
                   mesh.vertices.data(), gl::STATIC_DRAW);
    gl::GenBuffers(1, &m.ibo);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, m.ibo);
    gl::BufferData(gl::ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(mesh.indices.size() * sizeof(uint32_t)),
                   mesh.indices.data(), gl::STATIC_DRAW);
    m.count = static_cast<GLsizei>(mesh.indices.size());
    if (dialect_.useVao) {
        PointMeshAttributes();
        gl::BindVertexArray(0);
    }
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, 0);
    return m;
}

void cLm4DDemo_GL::DrawMesh(const GpuMesh& m) {
    if (!m.count) return;
    if (dialect_.useVao) {
        gl::BindVertexArray(m.vao);
        gl::DrawElements(gl::TRIANGLES, m.count, gl::UNSIGNED_INT, nullptr);
        gl::BindVertexArray(0);
        return;
    }
    gl::BindBuffer(gl::ARRAY_BUFFER, m.vbo);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, m.ibo);
    PointMeshAttributes();
    gl::DrawElements(gl::TRIANGLES, m.count, gl::UNSIGNED_INT, nullptr);
    gl::DisableVertexAttribArray(kNormal);
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, 0);
}

void cLm4DDemo_GL::FreeMesh(GpuMesh& m) {
    if (m.vbo) gl::DeleteBuffers(1, &m.vbo);
    if (m.ibo) gl::DeleteBuffers(1, &m.ibo);
    if (m.vao) gl::DeleteVertexArrays(1, &m.vao);
    m = GpuMesh();
}

void cLm4DDemo_GL::DrawScreenQuad(GLuint program) {
    gl::UseProgram(program);
    DrawMesh(quad_);
}

void cLm4DDemo_GL::ClearScreen() {
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ClearColor(0.0f, 0.0f, 0.1f, 1.0f);
    gl::Clear(gl::COLOR_BUFFER_BIT);
    Present();
}

void cLm4DDemo_GL::Frame(float frameSeconds) {
    Advance(frameSeconds);
    SampleTemperatures();
    DrawFrame();
    Present();
}

void cLm4DDemo_GL::Present() { context_->SwapBuffers(); }

uint64_t cLm4DDemo_GL::FramesFinished() { return context_ ? context_->FramesFinished() : kFramesNotTracked; }

void cLm4DDemo_GL::FinishFrames() {
    if (context_) context_->FinishFrames();
}

void cLm4DDemo_GL::PendingCustomImages() {
    Image image;
    if (TakeCustomImage(CustomImageKind::kFur, &image)) {
        GLuint t = Upload(image, true, Anisotropy(4.0f), true);
        if (t) {
            if (furTexture_) gl::DeleteTextures(1, &furTexture_);
            furTexture_ = t;
        } else {
            gEventLog.Write("%s - Unable to load fur color image [%s]", ImageFailurePrefix(),
                            StartupOptions.fur_custom_diffuse_map);
        }
    }
    if (TakeCustomImage(CustomImageKind::kBackground, &image)) {
        GLuint t = Upload(image, true, Anisotropy(4.0f), true);
        if (t) {
            if (bgTexture_) gl::DeleteTextures(1, &bgTexture_);
            bgTexture_ = t;
        } else {
            gEventLog.Write("%s - Unable to load bkg image [%s]", ImageFailurePrefix(), StartupOptions.fur_custom_bkg_map);
        }
    }
}

void cLm4DDemo_GL::SetSurfaceUniforms(GLuint program, const m3d::Mat4& model) {
    SetMatrix(program, "modelMatrix", model);
    const m3d::Mat4 modelView = scene_.camera.view * model;
    SetMatrix(program, "ModelViewMatrix", modelView);
    SetMatrix(program, "NormalMatrix", modelView);  // rotations only: the normal matrix is the model-view
    SetMatrix(program, "WorldViewProjectionMatrix", scene_.camera.projection * modelView);
}

void cLm4DDemo_GL::DrawScene() {
    DrawFurBackground();
    DrawFurryObject();
}

void cLm4DDemo_GL::DrawFurBackground() {
    // Background: straight onto the view, no depth.
    if (bgTexture_) {
        gl::Disable(gl::DEPTH_TEST);
        gl::DepthMask(0);
        gl::Disable(gl::CULL_FACE);
        gl::Disable(gl::BLEND);
        gl::ActiveTexture(gl::TEXTURE0);
        gl::BindTexture(gl::TEXTURE_2D, bgTexture_);
        DrawScreenQuad(bgProgram_);
        gl::Enable(gl::DEPTH_TEST);
        gl::DepthMask(1);
    }
}

void cLm4DDemo_GL::DrawFurryObject() {
    lastBinds_ = 0;
    if ((!render_furry_object && !drawingCheck_) || !furProgram_) return;

    const m3d::Mat4 model = ModelMatrix();
    if (!dialect_.core) {
        // The compatibility pipeline's matrices follow the scene for anything drawn the old way.
        gl::MatrixMode(gl::PROJECTION);
        gl::LoadMatrixf(scene_.camera.projection.data());
        gl::MatrixMode(gl::MODELVIEW);
        gl::LoadMatrixf((scene_.camera.view * model).data());
    }
    gl::ActiveTexture(gl::TEXTURE0);
    gl::BindTexture(gl::TEXTURE_2D, furTexture_);
    gl::Enable(gl::DEPTH_TEST);
    gl::DepthFunc(gl::LESS);
    gl::DepthMask(1);
    gl::Disable(gl::CULL_FACE);
    gl::Disable(gl::BLEND);

    // The skin, once, opaque.
    gl::UseProgram(skinProgram_);
    SetSurfaceUniforms(skinProgram_, model);
    SetFloat(skinProgram_, "UVScale", kFurUvScale);
    SetFloat(skinProgram_, "FurLength", 0.0f);
    DrawMesh(skinMesh_);

    // The shells, innermost first; a dot texture is bound only when the
    // shell's index changes.
    gl::Enable(gl::BLEND);
    gl::BlendFunc(gl::SRC_ALPHA, gl::ONE_MINUS_SRC_ALPHA);
    gl::UseProgram(furProgram_);
    SetSurfaceUniforms(furProgram_, model);
    SetFloat(furProgram_, "elapsedTime", elapsed_);
    SetFloat(furProgram_, "UVScale", kFurUvScale);
    const GLint furLength = Loc(furProgram_, "FurLength"), layer = Loc(furProgram_, "Layer");
    gl::ActiveTexture(gl::TEXTURE1);
    int bound = -1;
    for (int i = 0; i < scene_.params.numShells; ++i) {
        FurShell s = FurShellAt(scene_.params, i);
        gl::Uniform1f(furLength, s.furLength);
        gl::Uniform1f(layer, s.layer);
        if (s.texture != bound && s.texture < static_cast<int>(dotTextures_.size())) {
            gl::BindTexture(gl::TEXTURE_2D, dotTextures_[static_cast<size_t>(s.texture)]);
            bound = s.texture;
            ++lastBinds_;
        }
        DrawMesh(furMesh_);
    }
    gl::Disable(gl::CULL_FACE);
    gl::Disable(gl::BLEND);
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::ActiveTexture(gl::TEXTURE0);
}

void cLm4DDemo_GL::DrawLogos() {
    struct Logo {
        GLuint texture;
        bool shown;
        int x, y, w, h;
        GLenum src, dst;
    };
    const Logo logos[] = {
        {makerLogoTex_, AtomicLoad(StartupOptions.render_vxa_logo), 5, 20, 160, 43, gl::SRC_ALPHA,
         gl::ONE_MINUS_SRC_ALPHA},
        {productLogoTex_, AtomicLoad(StartupOptions.render_a_logo), width_ / 2 - 256, height_ - 128, 512, 128, gl::ONE,
         gl::ONE},
        {apiLogoTex_, true, width_ - 128, 15, 128, 64, gl::ONE_MINUS_SRC_COLOR, gl::ONE},
    };
    gl::Disable(gl::DEPTH_TEST);
    gl::DepthMask(0);
    gl::Enable(gl::BLEND);
    gl::UseProgram(texturedProgram_);
    SetMatrix(texturedProgram_, "WorldViewProjectionMatrix", FullScreenMatrix());
    gl::ActiveTexture(gl::TEXTURE0);
    for (const Logo& l : logos) {
        if (!l.texture || !l.shown) continue;
        gl::Viewport(l.x, l.y, l.w, l.h);
        gl::BlendFunc(l.src, l.dst);
        gl::BindTexture(gl::TEXTURE_2D, l.texture);
        DrawMesh(quad_);
    }
    gl::Viewport(0, 0, width_, height_);
    SetMatrix(texturedProgram_, "WorldViewProjectionMatrix", PixelViewMatrix(width_, height_));
    gl::Disable(gl::BLEND);
    gl::DepthMask(1);
    gl::Enable(gl::DEPTH_TEST);
}

void cLm4DDemo_GL::DrawHudQuads(const std::vector<float>& xyuv) {
    if (xyuv.empty()) return;
    // x, y, u, v per vertex into a stream buffer: one draw call per batch.
    std::vector<float> v;
    v.reserve(xyuv.size() / 4 * 5);
    for (size_t i = 0; i + 3 < xyuv.size(); i += 4) {
        v.insert(v.end(), {xyuv[i], xyuv[i + 1], 0.0f, xyuv[i + 2], xyuv[i + 3]});
    }
    if (dialect_.useVao) gl::BindVertexArray(hudVao_);
    gl::BindBuffer(gl::ARRAY_BUFFER, hudVbo_);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(v.size() * sizeof(float)), v.data(), gl::STREAM_DRAW);
    gl::EnableVertexAttribArray(kPosition);
    gl::EnableVertexAttribArray(kUv);
    gl::VertexAttribPointer(kPosition, 3, gl::FLOAT, 0, 5 * sizeof(float), reinterpret_cast<void*>(0));
    gl::VertexAttribPointer(kUv, 2, gl::FLOAT, 0, 5 * sizeof(float), reinterpret_cast<void*>(3 * sizeof(float)));
    gl::DrawArrays(gl::TRIANGLES, 0, static_cast<GLsizei>(v.size() / 5));
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    if (dialect_.useVao) gl::BindVertexArray(0);
}

void cLm4DDemo_GL::BeginOverlay() {
    gl::Disable(gl::DEPTH_TEST);
    gl::DepthMask(0);
    gl::Disable(gl::CULL_FACE);
    gl::Enable(gl::BLEND);
    gl::BlendFunc(gl::SRC_ALPHA, gl::ONE_MINUS_SRC_ALPHA);
    gl::Viewport(0, 0, width_, height_);
}

void cLm4DDemo_GL::EndOverlay() {
    gl::Disable(gl::BLEND);
    gl::DepthMask(1);
    gl::Enable(gl::DEPTH_TEST);
    gl::UseProgram(0);
}

void cLm4DDemo_GL::DrawText(int x, int y, const Color4& color, const char* text) {
    const FontAtlas& font = smallText_ ? smallFont_ : font_;
    GLuint texture = smallText_ ? smallFontTexture_ : fontTexture_;
    if (!texture || !text) return;
    std::vector<float> v;
    font.Layout(text, static_cast<float>(x), static_cast<float>(y), &v);
    gl::UseProgram(textProgram_);
    gl::Uniform4f(Loc(textProgram_, "color"), color.r, color.g, color.b, color.a);
    gl::ActiveTexture(gl::TEXTURE0);
    gl::BindTexture(gl::TEXTURE_2D, texture);
    DrawHudQuads(v);
    gl::BindTexture(gl::TEXTURE_2D, 0);
}

void cLm4DDemo_GL::DrawQuad(int x, int y, int w, int h, const Color4& color, unsigned short stipple) {
    const float x0 = static_cast<float>(x), y0 = static_cast<float>(y);
    const float x1 = x0 + static_cast<float>(w), y1 = y0 + static_cast<float>(h);
    gl::UseProgram(flatProgram_);
    gl::Uniform4f(Loc(flatProgram_, "color"), color.r, color.g, color.b, color.a);
    if (stipple != 0xFFFF && !dialect_.core) {
        // A stippled outline (the compatibility pipeline still stipples lines).
        const std::vector<float> loop = {x0, y0, 0, 0, x1, y0, 0, 0, x1, y1, 0, 0, x0, y1, 0, 0};
        std::vector<float> v;
        for (size_t i = 0; i < loop.size(); i += 4) v.insert(v.end(), {loop[i], loop[i + 1], 0.0f, 0.0f, 0.0f});
        gl::Enable(gl::LINE_STIPPLE);
        gl::LineStipple(1, stipple);
        gl::BindBuffer(gl::ARRAY_BUFFER, hudVbo_);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(v.size() * sizeof(float)), v.data(), gl::STREAM_DRAW);
        gl::EnableVertexAttribArray(kPosition);
        gl::VertexAttribPointer(kPosition, 3, gl::FLOAT, 0, 5 * sizeof(float), reinterpret_cast<void*>(0));
        gl::DrawArrays(gl::LINE_LOOP, 0, 4);
        gl::BindBuffer(gl::ARRAY_BUFFER, 0);
        gl::Disable(gl::LINE_STIPPLE);
        return;
    }
    DrawHudQuads({x0, y0, 0, 0, x1, y0, 0, 0, x1, y1, 0, 0, x0, y0, 0, 0, x1, y1, 0, 0, x0, y1, 0, 0});
}

void cLm4DDemo_GL::DrawLines(const std::vector<float>& xy, GLenum mode, const float* color) {
    if (xy.size() < 4) return;
    std::vector<float> v;
    for (size_t i = 0; i + 1 < xy.size(); i += 2) v.insert(v.end(), {xy[i], xy[i + 1], 0.0f, 0.0f, 0.0f});
    gl::UseProgram(flatProgram_);
    gl::Uniform4f(Loc(flatProgram_, "color"), color[0], color[1], color[2], color[3]);
    if (dialect_.useVao) gl::BindVertexArray(hudVao_);
    gl::BindBuffer(gl::ARRAY_BUFFER, hudVbo_);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(v.size() * sizeof(float)), v.data(), gl::STREAM_DRAW);
    gl::EnableVertexAttribArray(kPosition);
    gl::VertexAttribPointer(kPosition, 3, gl::FLOAT, 0, 5 * sizeof(float), reinterpret_cast<void*>(0));
    gl::DrawArrays(mode, 0, static_cast<GLsizei>(v.size() / 5));
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    if (dialect_.useVao) gl::BindVertexArray(0);
}

void cLm4DDemo_GL::DrawTemperatureGraphs(const HudFrame& hud) {
    for (const GraphDraw& g : GraphDraws(hud, width_, height_)) {
        DrawLines(g.frame, gl::LINE_LOOP, g.frameColor);
        if (g.drawLine) {
            DrawLines(g.line, gl::LINE_STRIP, g.lineColor);
            DrawLines(g.minimumMark, gl::LINES, g.frameColor);
        }
        // The label sits on its baseline just above the last point; the
        // text call places a line's top.
        DrawText(g.labelX, font_.TopForBaseline(g.labelBaselineY), g.labelColor, g.label.c_str());
    }
}

void cLm4DDemo_GL::DrawHud() {
    HudFrame hud = CurrentHud(width_, height_);
    const bool multisampled = context_->Samples() > 1;
    BeginOverlay();
    for (const HudRect& r : hud.bars) DrawQuad(r.x, r.y, r.w, r.h, r.color);
    if (multisampled) gl::Disable(gl::MULTISAMPLE);
    if (gpuLogoTex_) {
        gl::UseProgram(texturedProgram_);
        gl::BindTexture(gl::TEXTURE_2D, gpuLogoTex_);
        for (const HudRect& p : hud.panels) {
            // Top-down on screen, the picture's top at v = 1.
            const float x0 = static_cast<float>(p.x), y0 = static_cast<float>(p.y);
            const float x1 = x0 + static_cast<float>(p.w), y1 = y0 + static_cast<float>(p.h);
            DrawHudQuads({x0, y0, 0, 1, x1, y0, 1, 1, x1, y1, 1, 0, x0, y0, 0, 1, x1, y1, 1, 0, x0, y1, 0, 0});
        }
        gl::BindTexture(gl::TEXTURE_2D, 0);
    }
    DrawTemperatureGraphs(hud);
    for (const HudText& t : hud.labels) DrawText(t.x, t.y, t.color, t.text.c_str());
    smallText_ = true;
    for (const HudText& t : hud.gpuText) DrawText(t.x, t.y, t.color, t.text.c_str());
    smallText_ = false;
    for (const TextLine& l : hud.textBlock) DrawText(l.x, l.y, l.color, l.text.c_str());
    if (!hud.checkLine.text.empty())
        DrawText(hud.checkLine.x, hud.checkLine.y, hud.checkLine.color, hud.checkLine.text.c_str());
    DrawOverlayExtras();
    EndOverlay();
    if (multisampled) gl::Enable(gl::MULTISAMPLE);
}

void cLm4DDemo_GL::DrawFrame() {
    if (context_->Samples() > 1) gl::Enable(gl::MULTISAMPLE);
    PendingCustomImages();
    const bool post = postFbo_ && AtomicLoad(StartupOptions.render_post_fx);
    gl::BindFramebuffer(gl::FRAMEBUFFER, post ? postFbo_ : context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    gl::ClearDepth(1.0);
    gl::Enable(gl::DEPTH_TEST);
    gl::Clear(gl::COLOR_BUFFER_BIT | gl::DEPTH_BUFFER_BIT);
    DrawScene();
    if (post) {
        gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
        gl::Disable(gl::DEPTH_TEST);
        gl::DepthMask(0);
        gl::Disable(gl::CULL_FACE);
        gl::Disable(gl::BLEND);
        gl::ActiveTexture(gl::TEXTURE1);
        gl::BindTexture(gl::TEXTURE_2D, dotTextures_.empty() ? 0 : dotTextures_[0]);
        gl::ActiveTexture(gl::TEXTURE0);
        gl::BindTexture(gl::TEXTURE_2D, postColor_);
        gl::UseProgram(blurProgram_);
        SetFloat(blurProgram_, "elapsedTime", elapsed_);
        DrawMesh(quad_);
        gl::BindTexture(gl::TEXTURE_2D, 0);
        gl::DepthMask(1);
        gl::Enable(gl::DEPTH_TEST);
    }
    DrawLogos();
    DrawHud();
}

bool cLm4DDemo_GL::ReadBackFrame(std::string* rgba, int* width, int* height) {
    if (!context_) return false;
    GLuint source = context_->DefaultFramebuffer();
    GLuint resolve = 0, color = 0;
    if (context_->Samples() > 1 && source != 0) {
        // A multisampled target is resolved into a plain one before reading.
        gl::GenFramebuffers(1, &resolve);
        gl::GenRenderbuffers(1, &color);
        gl::BindRenderbuffer(gl::RENDERBUFFER, color);
        gl::RenderbufferStorage(gl::RENDERBUFFER, gl::RGBA8, width_, height_);
        gl::BindFramebuffer(gl::FRAMEBUFFER, resolve);
        gl::FramebufferRenderbuffer(gl::FRAMEBUFFER, gl::COLOR_ATTACHMENT0, gl::RENDERBUFFER, color);
        gl::BindFramebuffer(gl::READ_FRAMEBUFFER, source);
        gl::BindFramebuffer(gl::DRAW_FRAMEBUFFER, resolve);
        gl::BlitFramebuffer(0, 0, width_, height_, 0, 0, width_, height_, gl::COLOR_BUFFER_BIT, gl::NEAREST);
        source = resolve;
    }
    if (source == 0) {
        // A window's shown frame cannot be read back reliably once it was
        // swapped: the same frame is drawn again into the back buffer.
        DrawFrame();
        gl::BindFramebuffer(gl::FRAMEBUFFER, 0);
        gl::ReadBuffer(gl::BACK);
    } else {
        gl::BindFramebuffer(gl::FRAMEBUFFER, source);
    }
    std::string pixels(static_cast<size_t>(width_) * height_ * 4, '\0');
    gl::PixelStorei(gl::PACK_ALIGNMENT, 1);
    gl::ReadPixels(0, 0, width_, height_, gl::RGBA, gl::UNSIGNED_BYTE, &pixels[0]);
    if (resolve) {
        gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
        gl::DeleteFramebuffers(1, &resolve);
        gl::DeleteRenderbuffers(1, &color);
    }
    // OpenGL reads bottom-up; images are stored top row first. A screenshot
    // is what the screen showed: opaque.
    const size_t row = static_cast<size_t>(width_) * 4;
    rgba->assign(pixels.size(), '\0');
    for (int y = 0; y < height_; ++y)
        std::memcpy(&(*rgba)[static_cast<size_t>(y) * row], &pixels[static_cast<size_t>(height_ - 1 - y) * row], row);
    for (size_t i = 3; i < rgba->size(); i += 4) (*rgba)[i] = static_cast<char>(0xFF);
    *width = width_;
    *height = height_;
    return true;
}
