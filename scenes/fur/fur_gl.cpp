#include "scenes/fur/fur_gl.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "core/event_log.h"
#include "core/settings.h"
#include "platform/gpu_choice.h"
#include "platform/str_format.h"
#include "render/gl_shader.h"
#include "runner/run_facts.h"
#include "runner/run_stats.h"
#include "scenes/fur/fur_shaders.h"

namespace {

enum Attribute : GLuint { kPosition = 0, kNormal = 1, kUv = 2 };

const char* GlText(GLenum name) {
    const GLubyte* s = gl::GetString(name);
    return s ? reinterpret_cast<const char*>(s) : "n.a.";
}

std::string Source(const char* header, const char* body) { return std::string(header) + body; }

GLint Loc(GLuint program, const char* name) { return gl::GetUniformLocation(program, name); }

void SetMatrix(GLint location, const m3d::Mat4& m) {
    if (location >= 0) gl::UniformMatrix4fv(location, 1, 0, m.data());
}

void SetMatrix(GLuint program, const char* name, const m3d::Mat4& m) { SetMatrix(Loc(program, name), m); }

void SetInt(GLuint program, const char* name, int v) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::Uniform1i(l, v);
}

void SetFloat(GLint location, float v) {
    if (location >= 0) gl::Uniform1f(location, v);
}

void SetFloat(GLuint program, const char* name, float v) { SetFloat(Loc(program, name), v); }

void SetVec4(GLuint program, const char* name, const float* v) {
    GLint l = Loc(program, name);
    if (l >= 0) gl::Uniform4f(l, v[0], v[1], v[2], v[3]);
}

bool SameMatrix(const m3d::Mat4& a, const m3d::Mat4& b) { return std::memcmp(a.data(), b.data(), 16 * sizeof(float)) == 0; }

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

// Without vertex array objects the arrays stay enabled in the context: they
// are switched off again so that code drawing the old way after us is not
// fed from our buffers.
void ReleaseMeshAttributes() {
    gl::DisableVertexAttribArray(kPosition);
    gl::DisableVertexAttribArray(kNormal);
    gl::DisableVertexAttribArray(kUv);
}

GLenum Mode(PaintPrimitive primitive) {
    switch (primitive) {
        case PaintPrimitive::kTriangles: break;
        case PaintPrimitive::kLineStrip: return gl::LINE_STRIP;
        case PaintPrimitive::kLines: return gl::LINES;
    }
    return gl::TRIANGLES;
}

bool IsHud(PaintProgram program) {
    return program == PaintProgram::kHudFlat || program == PaintProgram::kHudTextured;
}

// How a texture is sampled, the program and stage deciding as a sampler
// would: surfaces, the background and the dots repeat and (on hardware)
// filter anisotropically, the surface pictures at 4, the dots at 16; the HUD
// and the post effect's picture clamp.
enum Sampling { kClamp = 0, kRepeat = 1, kRepeatAniso4 = 2, kRepeatAniso16 = 3 };

Sampling SamplingFor(PaintProgram program, PaintStage stage, bool anisotropic) {
    const bool surface =
        program == PaintProgram::kBackground || program == PaintProgram::kSkin || program == PaintProgram::kFur;
    if (surface) return !anisotropic ? kRepeat : stage == kStageDots ? kRepeatAniso16 : kRepeatAniso4;
    if (program == PaintProgram::kPostFx && stage == kStageDots) return kRepeat;
    return kClamp;
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
    const std::string why = context.ChoiceFailure();
    gEventLog.Write("OpenGL: /gpu=%d not applied: OpenGL on Windows cannot choose the GPU here (%s); it draws on the "
                    "GPU the driver chose.",
                    gpu.index, why.empty() ? "no GPU affinity extension" : why.c_str());
#else
    gEventLog.Write("OpenGL: /gpu=%d not applied: OpenGL in a window draws on the GPU the display server chose (run "
                    "with /headless to choose).",
                    gpu.index);
#endif
}

// Rows of a read-back, bottom row first as OpenGL reads, turned to the top
// row first that every picture of this program has.
void TopRowFirst(const std::string& bottomUp, int width, int height, std::string* out) {
    const size_t row = static_cast<size_t>(width) * 4;
    out->assign(bottomUp.size(), '\0');
    for (int y = 0; y < height; ++y)
        std::memcpy(&(*out)[static_cast<size_t>(y) * row], &bottomUp[static_cast<size_t>(height - 1 - y) * row], row);
}

}  // namespace

cLm4DDemo_GL::~cLm4DDemo_GL() { Terminate(); }

cLm4DDemo_GL::Dialect cLm4DDemo_OpenGL_2::ChooseDialect() const { return Dialect{2, 0, false, fur_glsl::kHeader120, false}; }

std::string cLm4DDemo_OpenGL_2::SuccessLine(int major, int minor) const {
    return StrFormat("OpenGL 2 (%d.%d) context init ok.", major, minor);
}

cLm4DDemo_GL::Dialect cLm4DDemo_OpenGL_3::ChooseDialect() const {
    return Dialect{3, 3, StartupOptions.gl3_core_profile, fur_glsl::kHeader150, true};
}

std::string cLm4DDemo_OpenGL_3::SuccessLine(int major, int minor) const {
    return StrFormat("OpenGL 3 (%d.%d) context with %s profile init ok.", major, minor,
                     StartupOptions.gl3_core_profile ? "core" : "compatibility");
}

bool cLm4DDemo_GL::CreateDevice(const RenderTarget& target, int width, int height) {
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
    if (dialect_.useVao)
        gEventLog.Write("OpenGL 3 VAO (Vertex Array Objects) supported. VAO will be used for furry mesh rendering.");
    gl::GenBuffers(1, &streamVbo_);
    if (dialect_.useVao) gl::GenVertexArrays(1, &streamVao_);
    (void)width;
    (void)height;
    return true;
}

int cLm4DDemo_GL::Samples() const { return context_ ? context_->Samples() : 1; }

bool cLm4DDemo_GL::CreatePrograms(int radialBlurSamples) {
    const std::vector<std::pair<GLuint, const char*>> attribs = {
        {kPosition, "In_Position"}, {kNormal, "In_Normal"}, {kUv, "In_UV"}};
    const char* h = dialect_.header;
    auto build = [&](PaintProgram p, const char* vertex, const char* fragment) {
        programs_[static_cast<int>(p)] = BuildProgram(Source(h, vertex).c_str(), Source(h, fragment).c_str(), attribs);
        return programs_[static_cast<int>(p)] != 0;
    };
    // Every program is built (and a failing one logs its reason) before the
    // set-up gives up.
    bool ok = build(PaintProgram::kBackground, fur_glsl::kHudVertex, fur_glsl::kBackgroundFragment);
    ok = build(PaintProgram::kSkin, fur_glsl::kSurfaceVertex, fur_glsl::kSkinFragment) && ok;
    ok = build(PaintProgram::kFur, fur_glsl::kSurfaceVertex, fur_glsl::kFurFragment) && ok;
    ok = build(PaintProgram::kPostFx, fur_glsl::kScreenVertex, fur_glsl::kRadialBlurFragment) && ok;
    ok = build(PaintProgram::kHudFlat, fur_glsl::kHudVertex, fur_glsl::kFlatFragment) && ok;
    ok = build(PaintProgram::kHudTextured, fur_glsl::kHudVertex, fur_glsl::kTexturedFragment) && ok;
    if (!ok) return false;
    for (int i = 0; i < kPrograms; ++i) {
        colorSlot_[i] = Loc(programs_[i], "color");
        timeSlot_[i] = Loc(programs_[i], "elapsedTime");
    }

    // Values that never change.
    for (PaintProgram p : {PaintProgram::kSkin, PaintProgram::kFur}) {
        const GLuint id = ProgramOf(p);
        gl::UseProgram(id);
        SetInt(id, "colorMap", 0);
        SetInt(id, "t0", 0);
        SetInt(id, "t1", 1);
        const FurLight* l = kFurLights;
        for (int i = 0; i < 2; ++i) {
            GLint pos = Loc(id, i == 0 ? "lightPosition0" : "lightPosition1");
            if (pos >= 0) gl::Uniform3f(pos, l[i].position.x, l[i].position.y, l[i].position.z);
        }
        SetVec4(id, "lightAmbient0", l[0].ambient);
        SetVec4(id, "lightDiffuse0", l[0].diffuse);
        SetVec4(id, "lightAmbient1", l[1].ambient);
        SetVec4(id, "lightDiffuse1", l[1].diffuse);
        SetVec4(id, "materialAmbient", kFurMaterialAmbient);
        SetVec4(id, "materialDiffuse", kFurMaterialDiffuse);
        SurfaceSlots& s = surface_[static_cast<int>(p)];
        s = SurfaceSlots();
        s.model = Loc(id, "modelMatrix");
        s.view = Loc(id, "viewMatrix");
        s.viewUpper = Loc(id, "ViewMatrix");
        s.projection = Loc(id, "projectionMatrix");
        s.modelView = Loc(id, "ModelViewMatrix");
        s.normal = Loc(id, "NormalMatrix");
        s.wvp = Loc(id, "WorldViewProjectionMatrix");
        s.uvScale = Loc(id, "UVScale");
        s.furLength = Loc(id, "FurLength");
        s.layer = Loc(id, "Layer");
    }
    const GLuint blur = ProgramOf(PaintProgram::kPostFx);
    gl::UseProgram(blur);
    SetInt(blur, "sceneBuffer", 0);
    SetInt(blur, "tileTex", 1);
    SetInt(blur, "radial_blur_samples", radialBlurSamples);
    SetFloat(blur, "radial_blur_scale_mul", scene_.params.radialBlurScaleMul);
    SetMatrix(blur, "WorldViewProjectionMatrix", FullScreenMatrix());
    const m3d::Mat4 pixels = PixelViewMatrix(width_, height_);
    for (PaintProgram p : {PaintProgram::kBackground, PaintProgram::kHudFlat, PaintProgram::kHudTextured}) {
        gl::UseProgram(ProgramOf(p));
        SetMatrix(ProgramOf(p), "WorldViewProjectionMatrix", pixels);
        SetInt(ProgramOf(p), "colorMap", 0);
    }
    gl::UseProgram(0);
    return true;
}

void cLm4DDemo_GL::DestroyDevice() {
    if (!context_) return;
    if (computeProgram_) compute_.DeleteProgram(computeProgram_);
    if (computeBuffer_) compute_.DeleteBuffers(1, &computeBuffer_);
    computeProgram_ = computeBuffer_ = 0;
    computeState_ = 0;
    FreeCheckTarget();
    if (gl::DeleteProgram) {
        for (GLuint& p : programs_) {
            if (p) gl::DeleteProgram(p);
            p = 0;
        }
        for (GpuTexture& t : textures_)
            if (t.name) gl::DeleteTextures(1, &t.name);
        for (GpuMesh& m : meshes_) {
            if (m.vbo) gl::DeleteBuffers(1, &m.vbo);
            if (m.ibo) gl::DeleteBuffers(1, &m.ibo);
            if (m.vao) gl::DeleteVertexArrays(1, &m.vao);
        }
        if (streamVbo_) gl::DeleteBuffers(1, &streamVbo_);
        if (streamVao_) gl::DeleteVertexArrays(1, &streamVao_);
        if (postFbo_) gl::DeleteFramebuffers(1, &postFbo_);
        if (postColor_) gl::DeleteTextures(1, &postColor_);
        if (postDepth_) gl::DeleteRenderbuffers(1, &postDepth_);
    }
    textures_.clear();
    meshes_.clear();
    streamVbo_ = streamVao_ = postFbo_ = postColor_ = postDepth_ = 0;
    for (SurfaceSlots& s : surface_) s = SurfaceSlots();
    context_.reset();
}

FurPainter::TextureId cLm4DDemo_GL::CreateTexture(const std::vector<Image>& levels) {
    if (levels.empty() || levels[0].empty()) return 0;
    GpuTexture t;
    t.mipmapped = levels.size() > 1;
    gl::GenTextures(1, &t.name);
    gl::BindTexture(gl::TEXTURE_2D, t.name);
    gl::PixelStorei(gl::UNPACK_ALIGNMENT, 1);
    for (size_t i = 0; i < levels.size(); ++i) {
        const Image& level = levels[i];
        gl::TexImage2D(gl::TEXTURE_2D, static_cast<GLint>(i), static_cast<GLint>(gl::RGBA8), level.width, level.height,
                       0, gl::RGBA, gl::UNSIGNED_BYTE, level.rgba.data());
    }
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAX_LEVEL, static_cast<GLint>(levels.size() - 1));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAG_FILTER, static_cast<GLint>(gl::LINEAR));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER,
                      static_cast<GLint>(t.mipmapped ? gl::LINEAR_MIPMAP_LINEAR : gl::LINEAR));
    gl::BindTexture(gl::TEXTURE_2D, 0);
    // A free slot first: custom pictures and new dot sets replace textures
    // all through a run.
    for (size_t i = 0; i < textures_.size(); ++i) {
        if (textures_[i].name) continue;
        textures_[i] = t;
        return static_cast<TextureId>(i + 1);
    }
    textures_.push_back(t);
    return static_cast<TextureId>(textures_.size());
}

void cLm4DDemo_GL::FreeTexture(TextureId texture) {
    if (texture <= 0 || texture > static_cast<int>(textures_.size())) return;
    GpuTexture& t = textures_[static_cast<size_t>(texture - 1)];
    if (t.name) gl::DeleteTextures(1, &t.name);
    t = GpuTexture();
}

FurPainter::MeshId cLm4DDemo_GL::CreateMesh(const Mesh& mesh) {
    if (mesh.empty()) return 0;
    GpuMesh m;
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
    meshes_.push_back(m);
    return static_cast<MeshId>(meshes_.size());
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
    return ok;
}

void cLm4DDemo_GL::BeginScene(bool toPostTarget) {
    ClearTarget(toPostTarget && postFbo_ ? postFbo_ : context_->DefaultFramebuffer(), width_, height_);
}

void cLm4DDemo_GL::ClearTarget(GLuint framebuffer, int width, int height) {
    gl::BindFramebuffer(gl::FRAMEBUFFER, framebuffer);
    gl::Viewport(0, 0, width, height);
    gl::ClearColor(0.0f, 0.0f, 0.0f, 1.0f);
    gl::ClearDepth(1.0);
    // The overlay of the last frame left depth writes off; a clear obeys the mask.
    gl::DepthMask(1);
    gl::Enable(gl::DEPTH_TEST);
    gl::Clear(gl::COLOR_BUFFER_BIT | gl::DEPTH_BUFFER_BIT);
}

void cLm4DDemo_GL::BeginPostPass() {
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ActiveTexture(gl::TEXTURE0);
    gl::BindTexture(gl::TEXTURE_2D, postColor_);
}

void cLm4DDemo_GL::UseProgram(PaintProgram program, PaintBlend blend, bool depthTest, bool depthWrite) {
    // Every state is set each time: scenes of subclasses and the panel
    // library draw between our calls and leave what they like.
    current_ = program;
    gl::UseProgram(ProgramOf(program));
    switch (blend) {
        case PaintBlend::kOpaque: gl::Disable(gl::BLEND); break;
        case PaintBlend::kAlpha:
            gl::Enable(gl::BLEND);
            gl::BlendFunc(gl::SRC_ALPHA, gl::ONE_MINUS_SRC_ALPHA);
            break;
        case PaintBlend::kAdditive:
            gl::Enable(gl::BLEND);
            gl::BlendFunc(gl::ONE, gl::ONE);
            break;
        case PaintBlend::kInverseColorAdd:
            gl::Enable(gl::BLEND);
            gl::BlendFunc(gl::ONE_MINUS_SRC_COLOR, gl::ONE);
            break;
    }
    if (depthTest) {
        gl::Enable(gl::DEPTH_TEST);
        gl::DepthFunc(gl::LESS);
    } else {
        gl::Disable(gl::DEPTH_TEST);
    }
    gl::DepthMask(depthWrite ? 1 : 0);
    gl::Disable(gl::CULL_FACE);
    // Lines and text of the HUD stay sharp on a multisampled view.
    if (context_->Samples() > 1) {
        if (IsHud(program))
            gl::Disable(gl::MULTISAMPLE);
        else
            gl::Enable(gl::MULTISAMPLE);
    }
}

void cLm4DDemo_GL::SetSurfaceConstants(const SurfaceConstants& c) {
    SurfaceSlots& s = surface_[static_cast<int>(current_)];
    const bool all = !s.given;
    if (all || !SameMatrix(c.world, s.last.world)) SetMatrix(s.model, c.world);
    if (all || !SameMatrix(c.view, s.last.view)) {
        SetMatrix(s.view, c.view);
        SetMatrix(s.viewUpper, c.view);
    }
    if (all || !SameMatrix(c.projection, s.last.projection)) SetMatrix(s.projection, c.projection);
    if (all || !SameMatrix(c.modelView, s.last.modelView)) {
        SetMatrix(s.modelView, c.modelView);
        SetMatrix(s.normal, c.modelView);  // rotations only: the normal matrix is the model-view
    }
    if (all || !SameMatrix(c.worldViewProjection, s.last.worldViewProjection)) SetMatrix(s.wvp, c.worldViewProjection);
    if (all || c.uvScale != s.last.uvScale) SetFloat(s.uvScale, c.uvScale);
    if (all || c.furLength != s.last.furLength) SetFloat(s.furLength, c.furLength);
    if (all || c.layer != s.last.layer) SetFloat(s.layer, c.layer);
    s.last = c;
    s.given = true;
}

void cLm4DDemo_GL::SetElapsedTime(float seconds) { SetFloat(timeSlot_[static_cast<int>(current_)], seconds); }

void cLm4DDemo_GL::SetColor(const float rgba[4]) {
    const GLint slot = colorSlot_[static_cast<int>(current_)];
    if (slot >= 0) gl::Uniform4f(slot, rgba[0], rgba[1], rgba[2], rgba[3]);
}

void cLm4DDemo_GL::BindTexture(PaintStage stage, TextureId texture) {
    gl::ActiveTexture(stage == kStageDots ? gl::TEXTURE1 : gl::TEXTURE0);
    GpuTexture* t = texture > 0 && texture <= static_cast<int>(textures_.size())
                        ? &textures_[static_cast<size_t>(texture - 1)]
                        : nullptr;
    gl::BindTexture(gl::TEXTURE_2D, t ? t->name : 0);
    if (t && t->name) {
        const Sampling want = SamplingFor(current_, stage, anisotropic_);
        if (t->sampling != want) {
            const GLint wrap = static_cast<GLint>(want == kClamp ? gl::CLAMP_TO_EDGE : gl::REPEAT);
            gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_S, wrap);
            gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_T, wrap);
            if (t->mipmapped) {
                const float anisotropy = want == kRepeatAniso16 ? 16.0f : want == kRepeatAniso4 ? 4.0f : 1.0f;
                gl::TexParameterf(gl::TEXTURE_2D, gl::TEXTURE_MAX_ANISOTROPY, anisotropy);
                gl::GetError();  // anisotropy is optional: a driver without it just ignores the wish
            }
            t->sampling = want;
        }
    }
    gl::ActiveTexture(gl::TEXTURE0);
}

void cLm4DDemo_GL::DrawMesh(MeshId mesh) {
    if (mesh <= 0 || mesh > static_cast<int>(meshes_.size())) return;
    const GpuMesh& m = meshes_[static_cast<size_t>(mesh - 1)];
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
    ReleaseMeshAttributes();
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
    gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, 0);
}

void cLm4DDemo_GL::DrawVertices(const std::vector<PaintVertex>& vertices, PaintPrimitive primitive) {
    if (vertices.empty()) return;
    if (dialect_.useVao) gl::BindVertexArray(streamVao_);
    gl::BindBuffer(gl::ARRAY_BUFFER, streamVbo_);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(vertices.size() * sizeof(PaintVertex)), vertices.data(),
                   gl::STREAM_DRAW);
    PointMeshAttributes();
    gl::DrawArrays(Mode(primitive), 0, static_cast<GLsizei>(vertices.size()));
    if (dialect_.useVao)
        gl::BindVertexArray(0);
    else
        ReleaseMeshAttributes();
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
}

void cLm4DDemo_GL::ClearBackBuffer(const float rgba[4]) {
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    gl::Viewport(0, 0, width_, height_);
    gl::ClearColor(rgba[0], rgba[1], rgba[2], rgba[3]);
    gl::Clear(gl::COLOR_BUFFER_BIT);
}

void cLm4DDemo_GL::PresentBackBuffer() { context_->SwapBuffers(); }

uint64_t cLm4DDemo_GL::FramesFinished() { return context_ ? context_->FramesFinished() : kFramesNotTracked; }

void cLm4DDemo_GL::FinishFrames() {
    if (context_) context_->FinishFrames();
}

void cLm4DDemo_GL::ReadFramebuffer(GLuint framebuffer, int width, int height, std::string* rgba) {
    gl::BindFramebuffer(gl::FRAMEBUFFER, framebuffer);
    if (framebuffer == 0) gl::ReadBuffer(gl::BACK);
    std::string pixels(static_cast<size_t>(width) * height * 4, '\0');
    gl::PixelStorei(gl::PACK_ALIGNMENT, 1);
    gl::ReadPixels(0, 0, width, height, gl::RGBA, gl::UNSIGNED_BYTE, &pixels[0]);
    gl::BindFramebuffer(gl::FRAMEBUFFER, context_->DefaultFramebuffer());
    TopRowFirst(pixels, width, height, rgba);
}

bool cLm4DDemo_GL::ReadBackBuffer(std::string* rgba) {
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
    ReadFramebuffer(source, width_, height_, rgba);
    if (resolve) {
        gl::DeleteFramebuffers(1, &resolve);
        gl::DeleteRenderbuffers(1, &color);
    }
    return true;
}

bool cLm4DDemo_GL::ReadPostTarget(std::string* rgba) {
    if (!postFbo_) return false;
    ReadFramebuffer(postFbo_, width_, height_, rgba);
    return true;
}
