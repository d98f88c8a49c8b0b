#include "scenes/amark/amark_gl4.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "core/event_log.h"
#include "core/settings.h"
#include "platform/compiler.h"
#include "platform/gl_context.h"
#include "platform/platform.h"
#include "platform/str_format.h"
#include "render/gl_shader.h"
#include "render/mesh.h"
#include "runner/run_stats.h"
#include "scenes/amark/amark_shaders.h"
#include "scenes/fur/fur_shaders.h"

namespace {

enum Attribute : GLuint { kPos = 0, kNorm = 1, kOffset = 3, kSpin = 4 };

const std::vector<std::pair<GLuint, const char*>> kAttributes = {
    {kPos, "In_Position"}, {kNorm, "In_Normal"}, {kOffset, "In_Offset"}, {kSpin, "In_Spin"}};

GLint Loc(GLuint p, const char* name) { return gl::GetUniformLocation(p, name); }
void SetInt(GLuint p, const char* n, int v) { gl::Uniform1i(Loc(p, n), v); }
void SetFloat(GLuint p, const char* n, float v) { gl::Uniform1f(Loc(p, n), v); }
void SetVec3(GLuint p, const char* n, const m3d::Vec3& v) { gl::Uniform3f(Loc(p, n), v.x, v.y, v.z); }
void SetMat(GLuint p, const char* n, const m3d::Mat4& m) { gl::UniformMatrix4fv(Loc(p, n), 1, 0, m.data()); }

m3d::Mat4 Ortho(float halfWidth, float halfHeight, float zNear, float zFar) {
    m3d::Mat4 r;
    r.at(0, 0) = 1.0f / halfWidth;
    r.at(1, 1) = 1.0f / halfHeight;
    r.at(2, 2) = -2.0f / (zFar - zNear);
    r.at(2, 3) = -(zFar + zNear) / (zFar - zNear);
    return r;
}

const m3d::Vec3 kSun = m3d::Normalize(m3d::Vec3{-0.45f, -1.0f, -0.3f});

// The spheres of the tessellation stage: centre and radius.
struct StageSphere {
    float x, y, z, r;
    float red, green, blue;
};
const StageSphere kTessSpheres[] = {
    {-5.0f, 1.3f, -4.0f, 1.3f, 0.8f, 0.25f, 0.2f},  {0.0f, 1.6f, -5.0f, 1.6f, 0.25f, 0.6f, 0.85f},
    {5.0f, 1.2f, -3.5f, 1.2f, 0.9f, 0.75f, 0.2f},  {-3.5f, 1.0f, 1.5f, 1.0f, 0.3f, 0.8f, 0.35f},
    {3.0f, 1.4f, 2.0f, 1.4f, 0.75f, 0.75f, 0.8f},  {0.0f, 0.8f, 5.0f, 0.8f, 0.85f, 0.4f, 0.7f},
    {-6.5f, 0.9f, 5.5f, 0.9f, 0.6f, 0.5f, 0.3f},   {6.5f, 1.1f, 6.0f, 1.1f, 0.4f, 0.4f, 0.9f},
};

}  // namespace

cLm4DDemo_OpenGL_4::~cLm4DDemo_OpenGL_4() { Terminate(); }

cLm4DDemo_GL::Dialect cLm4DDemo_OpenGL_4::ChooseDialect() const {
    // Tessellation and instancing need 4.0; the simulation's compute path
    // makes 4.3 contexts of its own.
    return Dialect{4, 0, true, fur_glsl::kHeader150, true};
}

std::string cLm4DDemo_OpenGL_4::SuccessLine(int major, int minor) const {
    return StrFormat("OpenGL 4 (%d.%d) context with core profile init ok.", major, minor);
}

bool cLm4DDemo_OpenGL_4::Init(const RenderTarget& target, int width, int height) {
    preset_ = amark::SelectPreset(StartupOptions.amark_preset, height);
    gEventLog.Write("%s", preset_.logName);
    amark::InitStages(stages_, gRunExtras.amarkStageSeconds);
    if (gRunExtras.amarkStageSeconds > 0.0f)
        gEventLog.Write("AMark: every stage lasts %.1f s (test setting /amark_stage_seconds).",
                        static_cast<double>(gRunExtras.amarkStageSeconds));
    const int mask = StartupOptions.amark_stage_mask;
    for (int i = 0; i < amark::kStageCount; ++i) stages_[i].active = (mask >> i) & 1;
    benchmark_ = RunParameters.run_mode == 1;

    if (!cLm4DDemo_GL::Init(target, width, height)) return false;
    // The preset decides how many shells the fur stage draws and how long
    // the fur grows; the dot set stays the benchmark's.
    scene_.params.numShells = preset_.furShells;
    scene_.params.furLength = preset_.furLength;
    if (!InitGl4()) return false;
    StartSimulation();
    music_.Start(StartupOptions, DataFolder());
    return true;
}

bool cLm4DDemo_OpenGL_4::InitGl4() {
    const std::string missing = gl4_.Load(platform::CurrentGlProcAddress);
    if (!missing.empty()) {
        gEventLog.Write("OpenGL 4: missing entry points: %s", missing.c_str());
        return false;
    }
    using namespace amark_glsl;
    skyProgram_ = gl4::BuildStagedProgram(kSkyVertex, nullptr, nullptr, kSkyFragment, kAttributes);
    groundProgram_ =
        gl4::BuildStagedProgram(kGroundVertex, kGroundControl, kGroundEvaluation, kGroundFragment, kAttributes);
    sphereProgram_ =
        gl4::BuildStagedProgram(kSphereVertex, kSphereControl, kSphereEvaluation, kSphereFragment, kAttributes);
    meshProgram_ = gl4::BuildStagedProgram(kMeshVertex, nullptr, nullptr, kMeshFragment, kAttributes);
    particleProgram_ = gl4::BuildStagedProgram(kParticleVertex, nullptr, nullptr, kParticleFragment, kAttributes);
    if (!skyProgram_ || !groundProgram_ || !sphereProgram_ || !meshProgram_ || !particleProgram_) {
        gEventLog.Write("AMark: OpenGL 4 programs could not be built.");
        return false;
    }
    gl::GenVertexArrays(1, &emptyVao_);

    auto upload = [](Buffers* b, const std::vector<float>& positions, const std::vector<uint32_t>& indices,
                     int stride, const std::vector<float>* normals) {
        gl::GenVertexArrays(1, &b->vao);
        gl::BindVertexArray(b->vao);
        gl::GenBuffers(1, &b->vbo);
        gl::BindBuffer(gl::ARRAY_BUFFER, b->vbo);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(positions.size() * sizeof(float)),
                       positions.empty() ? nullptr : positions.data(), gl::DYNAMIC_DRAW);
        gl::EnableVertexAttribArray(kPos);
        gl::VertexAttribPointer(kPos, 3, gl::FLOAT, 0, stride, nullptr);
        if (stride == 32) {  // interleaved mesh vertices: the normal follows the position
            gl::EnableVertexAttribArray(kNorm);
            gl::VertexAttribPointer(kNorm, 3, gl::FLOAT, 0, stride, reinterpret_cast<const void*>(12));
        } else if (normals) {
            gl::GenBuffers(1, &b->nbo);
            gl::BindBuffer(gl::ARRAY_BUFFER, b->nbo);
            gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(normals->size() * sizeof(float)),
                           normals->empty() ? nullptr : normals->data(), gl::DYNAMIC_DRAW);
            gl::EnableVertexAttribArray(kNorm);
            gl::VertexAttribPointer(kNorm, 3, gl::FLOAT, 0, 12, nullptr);
        }
        if (!indices.empty()) {
            gl::GenBuffers(1, &b->ibo);
            gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, b->ibo);
            gl::BufferData(gl::ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(indices.size() * sizeof(uint32_t)),
                           indices.data(), gl::STATIC_DRAW);
        }
        b->count = static_cast<GLsizei>(indices.size());
        gl::BindVertexArray(0);
    };

    // Ground: a grid of triangle patches; the tessellator does the rest.
    {
        const int n = 16;
        const float half = 14.0f, step = 2.0f * half / n;
        std::vector<float> pos;
        std::vector<uint32_t> idx;
        for (int z = 0; z <= n; ++z)
            for (int x = 0; x <= n; ++x) pos.insert(pos.end(), {-half + x * step, 0.0f, -half + z * step});
        for (int z = 0; z < n; ++z)
            for (int x = 0; x < n; ++x) {
                const uint32_t a = static_cast<uint32_t>(z * (n + 1) + x), b = a + 1, c = a + (n + 1), d = c + 1;
                idx.insert(idx.end(), {a, c, b, b, c, d});
            }
        upload(&ground_, pos, idx, 12, nullptr);
    }
    {
        std::vector<float> pos;
        std::vector<uint32_t> idx;
        Icosahedron(&pos, &idx);
        upload(&sphere_, pos, idx, 12, nullptr);
    }
    // Asteroid: a coarse sphere, lumped by a fixed random field.
    {
        Mesh rock = MakeSphere(1.0f, 8, 6);
        std::mt19937 rng(2011);
        std::uniform_real_distribution<float> bump(0.75f, 1.15f);
        const size_t verts = rock.VertexCount();
        for (size_t i = 0; i < verts; ++i) {
            float* v = &rock.vertices[i * kMeshFloatsPerVertex];
            const float s = bump(rng) * (0.9f + 0.1f * std::sin(v[0] * 5.0f + v[2] * 3.0f));
            v[0] *= s;
            v[1] *= s * 0.8f;
            v[2] *= s;
        }
        GenerateNormals(rock);
        upload(&asteroid_, rock.vertices, rock.indices, 32, nullptr);
        // One (offset, scale) and (axis, phase) pair per asteroid: a thick ring.
        instanceCount_ = std::max(0, preset_.instanceCount);
        std::vector<float> inst;
        inst.reserve(static_cast<size_t>(instanceCount_) * 8);
        std::uniform_real_distribution<float> u(0.0f, 1.0f);
        for (int i = 0; i < instanceCount_; ++i) {
            const float angle = u(rng) * 6.2831853f;
            const float radius = 5.0f + 12.0f * std::sqrt(u(rng));
            const float y = 3.0f + (u(rng) - 0.5f) * 3.0f * (1.0f - (radius - 5.0f) / 14.0f);
            const float scale = 0.04f + 0.22f * u(rng) * u(rng);
            inst.insert(inst.end(), {std::cos(angle) * radius, y, std::sin(angle) * radius, scale, u(rng) - 0.5f,
                                     u(rng) - 0.5f, u(rng) - 0.5f, u(rng) * 6.2831853f});
        }
        gl::BindVertexArray(asteroid_.vao);
        gl::GenBuffers(1, &instanceVbo_);
        gl::BindBuffer(gl::ARRAY_BUFFER, instanceVbo_);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(inst.size() * sizeof(float)),
                       inst.empty() ? nullptr : inst.data(), gl::STATIC_DRAW);
        gl::EnableVertexAttribArray(kOffset);
        gl::VertexAttribPointer(kOffset, 4, gl::FLOAT, 0, 32, nullptr);
        gl4_.VertexAttribDivisor(kOffset, 1);
        gl::EnableVertexAttribArray(kSpin);
        gl::VertexAttribPointer(kSpin, 4, gl::FLOAT, 0, 32, reinterpret_cast<const void*>(16));
        gl4_.VertexAttribDivisor(kSpin, 1);
        gl::BindVertexArray(0);
    }

    // The shadow map, of the benchmark's map size.
    shadowSize_ = std::max(256, std::min(8192, static_cast<int>(StartupOptions.dmsize)));
    gl::GenTextures(1, &shadowTex_);
    gl::BindTexture(gl::TEXTURE_2D, shadowTex_);
    gl::TexImage2D(gl::TEXTURE_2D, 0, static_cast<GLint>(gl::DEPTH_COMPONENT24), shadowSize_, shadowSize_, 0,
                   gl4::DEPTH_COMPONENT, gl::UNSIGNED_INT, nullptr);
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MIN_FILTER, static_cast<GLint>(gl::LINEAR));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_MAG_FILTER, static_cast<GLint>(gl::LINEAR));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_S, static_cast<GLint>(gl::CLAMP_TO_EDGE));
    gl::TexParameteri(gl::TEXTURE_2D, gl::TEXTURE_WRAP_T, static_cast<GLint>(gl::CLAMP_TO_EDGE));
    gl::TexParameteri(gl::TEXTURE_2D, gl4::TEXTURE_COMPARE_MODE, static_cast<GLint>(gl4::COMPARE_REF_TO_TEXTURE));
    gl::TexParameteri(gl::TEXTURE_2D, gl4::TEXTURE_COMPARE_FUNC, static_cast<GLint>(gl::LEQUAL));
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::GenFramebuffers(1, &shadowFbo_);
    gl::BindFramebuffer(gl::FRAMEBUFFER, shadowFbo_);
    gl::FramebufferTexture2D(gl::FRAMEBUFFER, gl::DEPTH_ATTACHMENT, gl::TEXTURE_2D, shadowTex_, 0);
    gl4_.DrawBuffer(gl4::NONE);
    gl::ReadBuffer(gl4::NONE);
    const bool complete = gl::CheckFramebufferStatus(gl::FRAMEBUFFER) == gl::FRAMEBUFFER_COMPLETE;
    gl::BindFramebuffer(gl::FRAMEBUFFER, Context()->DefaultFramebuffer());
    if (!complete) {
        gEventLog.Write("AMark: shadow map target (%d px) could not be made: shadows are off.", shadowSize_);
        gl::DeleteFramebuffers(1, &shadowFbo_);
        shadowFbo_ = 0;
    }
    gEventLog.Write("AMark: OpenGL 4 stages ready (ground tessellation %.1f, spheres %.1f / %.1f, %d asteroids, "
                    "shadow map %d px).",
                    static_cast<double>(preset_.groundTessellation), static_cast<double>(preset_.sphereTessellationA),
                    static_cast<double>(preset_.sphereTessellationB), instanceCount_, shadowSize_);
    return true;
}

void cLm4DDemo_OpenGL_4::StartSimulation() {
    sim::SceneDesc desc;
    desc.flagSupportValue = preset_.flagSupportValue;
    desc.particleValue = preset_.particleValue;
    desc.particleCount = preset_.particleCount;
    desc.spheres = {{{0.9f, 0.45f, 0.7f}, 0.45f}, {{-0.4f, 0.35f, -0.9f}, 0.35f}};
    desc.cacheFolder = "";
    simSpheres_ = desc.spheres;
    physicsUp_ = physics_.Startup(desc, StartupOptions.enable_gpu_physx);
    if (!physicsUp_) return;
    physics_.SetActive(false);
    physics_.StartThreads();

    const sim::StaticMeshes& m = physics_.Meshes();
    auto make = [](Buffers* b, const std::vector<float>& pos, const std::vector<float>& nrm,
                   const std::vector<uint32_t>& idx) {
        gl::GenVertexArrays(1, &b->vao);
        gl::BindVertexArray(b->vao);
        gl::GenBuffers(1, &b->vbo);
        gl::BindBuffer(gl::ARRAY_BUFFER, b->vbo);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(pos.size() * sizeof(float)),
                       pos.empty() ? nullptr : pos.data(), gl::DYNAMIC_DRAW);
        gl::EnableVertexAttribArray(kPos);
        gl::VertexAttribPointer(kPos, 3, gl::FLOAT, 0, 12, nullptr);
        gl::GenBuffers(1, &b->nbo);
        gl::BindBuffer(gl::ARRAY_BUFFER, b->nbo);
        gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(nrm.size() * sizeof(float)),
                       nrm.empty() ? nullptr : nrm.data(), gl::DYNAMIC_DRAW);
        gl::EnableVertexAttribArray(kNorm);
        gl::VertexAttribPointer(kNorm, 3, gl::FLOAT, 0, 12, nullptr);
        if (!idx.empty()) {
            gl::GenBuffers(1, &b->ibo);
            gl::BindBuffer(gl::ELEMENT_ARRAY_BUFFER, b->ibo);
            gl::BufferData(gl::ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(idx.size() * sizeof(uint32_t)),
                           idx.data(), gl::STATIC_DRAW);
        }
        b->count = static_cast<GLsizei>(idx.size());
        gl::BindVertexArray(0);
    };
    make(&pole_, m.supportPositions, m.supportNormals, m.supportIndices);
    const std::vector<float> none(static_cast<size_t>(m.flagVertexCount) * 3, 0.0f);
    make(&flag_, none, none, m.flagIndices);
    make(&particles_, std::vector<float>(static_cast<size_t>(std::max(1, preset_.particleCount)) * 3, 0.0f), {}, {});
}

void cLm4DDemo_OpenGL_4::Terminate() {
    music_.Stop();
    if (physicsUp_) {
        physics_.Shutdown();
        physicsUp_ = false;
    }
    if (Context()) {
        for (GLuint* p : {&skyProgram_, &groundProgram_, &sphereProgram_, &meshProgram_, &particleProgram_}) {
            if (*p) gl::DeleteProgram(*p);
            *p = 0;
        }
        for (Buffers* b : {&ground_, &sphere_, &flag_, &pole_, &asteroid_, &particles_}) {
            for (GLuint* o : {&b->vbo, &b->ibo, &b->nbo})
                if (*o) gl::DeleteBuffers(1, o);
            if (b->vao) gl::DeleteVertexArrays(1, &b->vao);
            *b = Buffers();
        }
        if (instanceVbo_) gl::DeleteBuffers(1, &instanceVbo_);
        if (emptyVao_) gl::DeleteVertexArrays(1, &emptyVao_);
        if (shadowFbo_) gl::DeleteFramebuffers(1, &shadowFbo_);
        if (shadowTex_) gl::DeleteTextures(1, &shadowTex_);
        instanceVbo_ = emptyVao_ = shadowFbo_ = shadowTex_ = 0;
    }
    cLm4DDemo_GL::Terminate();
}

// ---------------------------------------------------------------- frames

void cLm4DDemo_OpenGL_4::UpdateStages() {
    if (!benchmark_ || finished_ || !RunStats.warmup_done) return;
    benchmarkTime_ = static_cast<float>(RunStats.elapsed_ms.load()) / 1000.0f;
    if (!started_) {
        started_ = true;
        if (!sequencer_.Start(benchmarkTime_)) finished_ = true;
        return;
    }
    sequencer_.Update(benchmarkTime_);
    if (sequencer_.Finished()) finished_ = true;
}

void cLm4DDemo_OpenGL_4::CountDrawnFrames() {
    const uint64_t now = FramesFinished();
    if (now == kFramesNotTracked) {
        // Without fences a frame counts when it was handed over.
        for (int s : inFlight_)
            if (s >= 0) ++stages_[s].frames;
        inFlight_.clear();
        return;
    }
    while (finishedSeen_ < now && !inFlight_.empty()) {
        const int s = inFlight_.front();
        inFlight_.pop_front();
        if (s >= 0) ++stages_[s].frames;
        ++finishedSeen_;
    }
    finishedSeen_ = now;
}

void cLm4DDemo_OpenGL_4::Frame(float frameSeconds) {
    if (inFlight_.empty()) {
        const uint64_t now = FramesFinished();
        if (now != kFramesNotTracked) finishedSeen_ = now;
    }
    UpdateStages();
    const bool counting = started_ && !finished_;
    int stage = sequencer_.Current();
    if (!started_)  // the warm-up draws the first stage that will run
        for (int i = 0; i < amark::kStageCount; ++i)
            if (stages_[i].active) {
                stage = i;
                break;
            }
    if (physicsUp_) {
        physics_.Counters().currentStage = stage;
        physics_.SetActive(counting && stages_[stage].simulated);
    }
    music_.Frame();
    if (!finished_) {
        drawStage_ = stage;
        cLm4DDemo_GL::Frame(frameSeconds);  // draws DrawScene below, the HUD, and presents
        inFlight_.push_back(counting ? stage : -1);
    }
    // A frame's cost to this thread runs from the end of the previous
    // Frame to the end of this one, so the runner's own work between frames
    // is in it too.
    const double cpu = platform::ThreadCpuSeconds();
    const int64_t wall = platform::FineCounter();
    if (counting && cpu >= 0.0 && lastCpu_ >= 0.0) {
        StageCost& c = cost_[stage];
        ++c.submitted;
        c.cpuSeconds += cpu - lastCpu_;
        c.wallSeconds += static_cast<double>(wall - lastWall_) / static_cast<double>(platform::FineCounterFrequency());
    }
    lastCpu_ = cpu;
    lastWall_ = wall;
    CountDrawnFrames();
}

void cLm4DDemo_OpenGL_4::DrawScene() {
    if (drawStage_ == amark::kFurStage) {
        cLm4DDemo_GL::DrawScene();
        return;
    }
    DrawStage(drawStage_);
}

void cLm4DDemo_OpenGL_4::UpdateFlagBuffers() {
    if (!physicsUp_ || !flag_.vao) return;
    const sim::ClothFrame& f = physics_.Flag();
    if (f.step == flagStep_ || f.positions.empty()) return;
    flagStep_ = f.step;
    gl::BindBuffer(gl::ARRAY_BUFFER, flag_.vbo);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(f.positions.size() * sizeof(float)), f.positions.data(),
                   gl::DYNAMIC_DRAW);
    gl::BindBuffer(gl::ARRAY_BUFFER, flag_.nbo);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(f.normals.size() * sizeof(float)),
                   f.normals.empty() ? nullptr : f.normals.data(), gl::DYNAMIC_DRAW);
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
}

void cLm4DDemo_OpenGL_4::UpdateParticleBuffer() {
    if (!physicsUp_ || !particles_.vao) return;
    const sim::FluidFrame& f = physics_.Fluid();
    if (f.step == fluidStep_) return;
    fluidStep_ = f.step;
    particleCount_ = std::min(f.count, static_cast<int>(f.positions.size() / 3));
    if (particleCount_ <= 0) return;
    gl::BindBuffer(gl::ARRAY_BUFFER, particles_.vbo);
    gl::BufferData(gl::ARRAY_BUFFER, static_cast<GLsizeiptr>(particleCount_ * 3 * sizeof(float)), f.positions.data(),
                   gl::DYNAMIC_DRAW);
    gl::BindBuffer(gl::ARRAY_BUFFER, 0);
}

void cLm4DDemo_OpenGL_4::SetCamera(int stage) {
    const float t = elapsed_;
    float radius = 14.0f, height = 5.0f, speed = 0.12f, start = 0.6f;
    m3d::Vec3 target{0.0f, 1.0f, 0.0f};
    m3d::Vec3 lightCenter{0.0f, 0.0f, 0.0f};
    float lightExtent = 16.0f;
    switch (stage) {
        case amark::kPhysxStage:
            // From behind the pole the wind carries the flag across the view.
            radius = 7.0f, height = 2.8f, speed = 0.05f, start = 2.7f, target = {0.0f, 1.3f, 0.0f}, lightExtent = 6.0f;
            break;
        case amark::kInstancingStage:
            radius = 21.0f, height = 9.0f, speed = 0.05f, target = {0.0f, 2.5f, 0.0f}, lightExtent = 19.0f;
            break;
        case amark::kCombinedStage:
            radius = 12.0f, height = 5.0f, speed = 0.1f, target = {0.0f, 1.5f, 0.0f}, lightExtent = 18.0f;
            break;
        default: break;
    }
    const float a = start + t * speed;
    eye_ = m3d::Vec3{std::sin(a) * radius, height, std::cos(a) * radius};
    const float aspect = ViewHeight() > 0 ? static_cast<float>(ViewWidth()) / static_cast<float>(ViewHeight()) : 1.0f;
    viewProj_ = m3d::Perspective(60.0f, aspect, 0.1f, 120.0f) * m3d::LookAt(eye_, target, {0.0f, 1.0f, 0.0f});
    const m3d::Vec3 lightEye = lightCenter - kSun * 40.0f;
    lightViewProj_ =
        Ortho(lightExtent, lightExtent, 1.0f, 90.0f) * m3d::LookAt(lightEye, lightCenter, {0.0f, 1.0f, 0.0f});
}

void cLm4DDemo_OpenGL_4::SetLighting(GLuint program, bool shadow) {
    gl::UseProgram(program);
    SetMat(program, "viewProj", shadow ? lightViewProj_ : viewProj_);
    SetMat(program, "lightViewProj", lightViewProj_);
    SetVec3(program, "sunDirection", kSun);
    SetVec3(program, "eyePosition", eye_);
    SetInt(program, "shadowPass", shadow ? 1 : 0);
    SetInt(program, "shadowMap", 2);
    SetFloat(program, "time", elapsed_);
}

void cLm4DDemo_OpenGL_4::DrawSky() {
    gl::Disable(gl::DEPTH_TEST);
    gl::DepthMask(0);
    gl::UseProgram(skyProgram_);
    SetFloat(skyProgram_, "time", elapsed_);
    gl::BindVertexArray(emptyVao_);
    gl::DrawArrays(gl::TRIANGLES, 0, 3);
    gl::DepthMask(1);
    gl::Enable(gl::DEPTH_TEST);
}

void cLm4DDemo_OpenGL_4::DrawGround(bool shadow) {
    SetLighting(groundProgram_, shadow);
    SetFloat(groundProgram_, "tessLevel", preset_.groundTessellation);
    gl4_.PatchParameteri(gl4::PATCH_VERTICES, 3);
    gl::BindVertexArray(ground_.vao);
    gl::DrawElements(gl4::PATCHES, ground_.count, gl::UNSIGNED_INT, nullptr);
}

void cLm4DDemo_OpenGL_4::DrawSpheres(bool shadow, bool simulationSpheres) {
    SetLighting(sphereProgram_, shadow);
    gl4_.PatchParameteri(gl4::PATCH_VERTICES, 3);
    gl::BindVertexArray(sphere_.vao);
    const GLint sphere = Loc(sphereProgram_, "sphere"), albedo = Loc(sphereProgram_, "albedo"),
                level = Loc(sphereProgram_, "tessLevel"), ripple = Loc(sphereProgram_, "ripple");
    if (simulationSpheres) {
        for (const sim::Sphere& s : simSpheres_) {
            gl::Uniform4f(sphere, s.center[0], s.center[1], s.center[2], s.radius);
            gl::Uniform3f(albedo, 0.7f, 0.7f, 0.72f);
            gl::Uniform1f(level, preset_.sphereTessellationA);
            gl::Uniform1f(ripple, 0.0f);  // the fluid collides with the true sphere
            gl::DrawElements(gl4::PATCHES, sphere_.count, gl::UNSIGNED_INT, nullptr);
        }
        return;
    }
    int i = 0;
    for (const StageSphere& s : kTessSpheres) {
        gl::Uniform4f(sphere, s.x, s.y + 0.15f * std::sin(elapsed_ + i), s.z, s.r);
        gl::Uniform3f(albedo, s.red, s.green, s.blue);
        // Half the spheres take each of the preset's two levels.
        gl::Uniform1f(level, (i % 2 == 0) ? preset_.sphereTessellationA : preset_.sphereTessellationB);
        gl::Uniform1f(ripple, 0.06f);
        gl::DrawElements(gl4::PATCHES, sphere_.count, gl::UNSIGNED_INT, nullptr);
        ++i;
    }
}

void cLm4DDemo_OpenGL_4::DrawFlag(bool shadow) {
    if (!physicsUp_) return;
    SetLighting(meshProgram_, shadow);
    SetInt(meshProgram_, "instanced", 0);
    SetMat(meshProgram_, "model", m3d::Identity());
    SetInt(meshProgram_, "flagPattern", 0);
    gl::Uniform3f(Loc(meshProgram_, "albedo"), 0.6f, 0.6f, 0.62f);
    gl::BindVertexArray(pole_.vao);
    gl::DrawElements(gl::TRIANGLES, pole_.count, gl::UNSIGNED_INT, nullptr);
    SetInt(meshProgram_, "flagPattern", 1);
    gl::Disable(gl::CULL_FACE);
    gl::BindVertexArray(flag_.vao);
    gl::DrawElements(gl::TRIANGLES, flag_.count, gl::UNSIGNED_INT, nullptr);
    SetInt(meshProgram_, "flagPattern", 0);
}

void cLm4DDemo_OpenGL_4::DrawParticles() {
    if (!physicsUp_ || particleCount_ <= 0) return;
    gl::UseProgram(particleProgram_);
    SetMat(particleProgram_, "viewProj", viewProj_);
    SetFloat(particleProgram_, "pointScale", 0.09f * static_cast<float>(ViewHeight()));
    gl::Enable(gl4::PROGRAM_POINT_SIZE);
    gl::BindVertexArray(particles_.vao);
    gl::DrawArrays(gl::POINTS, 0, particleCount_);
    gl::Disable(gl4::PROGRAM_POINT_SIZE);
}

void cLm4DDemo_OpenGL_4::DrawAsteroids(bool shadow, int count) {
    if (count <= 0) return;
    SetLighting(meshProgram_, shadow);
    SetInt(meshProgram_, "instanced", 1);
    SetInt(meshProgram_, "flagPattern", 0);
    gl::Uniform3f(Loc(meshProgram_, "albedo"), 0.55f, 0.5f, 0.45f);
    gl::BindVertexArray(asteroid_.vao);
    gl4_.DrawElementsInstanced(gl::TRIANGLES, asteroid_.count, gl::UNSIGNED_INT, nullptr, count);
    SetInt(meshProgram_, "instanced", 0);
}

void cLm4DDemo_OpenGL_4::ShadowPass(int stage) {
    if (!shadowFbo_) return;
    gl::BindFramebuffer(gl::FRAMEBUFFER, shadowFbo_);
    gl::Viewport(0, 0, shadowSize_, shadowSize_);
    gl::Clear(gl::DEPTH_BUFFER_BIT);
    gl::Enable(gl::DEPTH_TEST);
    gl::Enable(gl4::POLYGON_OFFSET_FILL);
    gl4_.PolygonOffset(2.0f, 4.0f);
    switch (stage) {
        case amark::kTessellationStage: DrawSpheres(true, false); break;
        case amark::kPhysxStage:
            DrawSpheres(true, true);
            DrawFlag(true);
            break;
        case amark::kInstancingStage: DrawAsteroids(true, instanceCount_); break;
        default:
            DrawSpheres(true, false);
            DrawSpheres(true, true);
            DrawFlag(true);
            DrawAsteroids(true, instanceCount_ / 4);
            break;
    }
    gl::Disable(gl4::POLYGON_OFFSET_FILL);
}

void cLm4DDemo_OpenGL_4::DrawStage(int stage) {
    // The framebuffer the fur back-end chose (the view, its post target or
    // the smaller check target) and the viewport it set for it.
    GLint target = 0;
    gl::GetIntegerv(0x8CA6 /* DRAW_FRAMEBUFFER_BINDING */, &target);
    GLint view[4] = {0, 0, ViewWidth(), ViewHeight()};
    gl::GetIntegerv(0x0BA2 /* VIEWPORT */, view);
    SetCamera(stage);
    if (stage == amark::kPhysxStage || stage == amark::kCombinedStage) {
        UpdateFlagBuffers();
        UpdateParticleBuffer();
    }
    gl::Disable(gl::BLEND);
    gl::Enable(gl::CULL_FACE);
    gl::Disable(gl::CULL_FACE);
    ShadowPass(stage);
    gl::BindFramebuffer(gl::FRAMEBUFFER, static_cast<GLuint>(target));
    gl::Viewport(view[0], view[1], view[2], view[3]);
    gl::ActiveTexture(gl4::TEXTURE2);
    gl::BindTexture(gl::TEXTURE_2D, shadowTex_);
    gl::ActiveTexture(gl::TEXTURE0);
    DrawSky();
    gl::DepthFunc(gl::LESS);
    switch (stage) {
        case amark::kTessellationStage:
            DrawGround(false);
            DrawSpheres(false, false);
            break;
        case amark::kPhysxStage:
            DrawGround(false);
            DrawSpheres(false, true);
            DrawFlag(false);
            DrawParticles();
            break;
        case amark::kInstancingStage: DrawAsteroids(false, instanceCount_); break;
        default:
            DrawGround(false);
            DrawSpheres(false, false);
            DrawSpheres(false, true);
            DrawFlag(false);
            DrawParticles();
            DrawAsteroids(false, instanceCount_ / 4);
            break;
    }
    gl::BindVertexArray(0);
    gl::ActiveTexture(gl4::TEXTURE2);
    gl::BindTexture(gl::TEXTURE_2D, 0);
    gl::ActiveTexture(gl::TEXTURE0);
    if (stage == amark::kCombinedStage) {
        // The furry object joins in a window of its own, top right.
        const int w = ViewWidth() / 3, h = ViewHeight() / 3;
        gl::Viewport(ViewWidth() - w - 10, ViewHeight() - h - 10, w, h);
        gl::Clear(gl::DEPTH_BUFFER_BIT);
        DrawFurryObject();
        gl::Viewport(0, 0, ViewWidth(), ViewHeight());
    }
    gl::UseProgram(0);
}

void cLm4DDemo_OpenGL_4::DrawCheckScene() {
    if (!checkSceneLogged_) {
        checkSceneLogged_ = true;
        gEventLog.Write("AMark: the check frame is the tessellation stage at %g s.",
                        static_cast<double>(kCheckAnimationSeconds));
    }
    // The painter has set the check moment; the stage the run draws is kept.
    const int stage = drawStage_;
    drawStage_ = amark::kTessellationStage;
    DrawStage(amark::kTessellationStage);
    drawStage_ = stage;
}

void cLm4DDemo_OpenGL_4::LeaveOutOfFrameCost(double cpuBefore, int64_t wallBefore) {
    const double cpu = platform::ThreadCpuSeconds();
    if (lastCpu_ >= 0.0 && cpu >= 0.0 && cpuBefore >= 0.0) lastCpu_ += cpu - cpuBefore;
    lastWall_ += platform::FineCounter() - wallBefore;
}

// The runner leaves a check's time out of the stage clock; the simulation
// steps finished meanwhile are held out of the stage too, and so is the
// check's cost out of the next frame's.
bool cLm4DDemo_OpenGL_4::DrawCheckFrame(CheckFrame* out) {
    if (physicsUp_) physics_.Counters().stageHeld = true;
    const double cpu = platform::ThreadCpuSeconds();
    const int64_t wall = platform::FineCounter();
    const bool drawn = cLm4DDemo_GL::DrawCheckFrame(out);
    LeaveOutOfFrameCost(cpu, wall);
    if (physicsUp_) physics_.Counters().stageHeld = false;
    return drawn;
}

int cLm4DDemo_OpenGL_4::RunComputeCheck() {
    if (physicsUp_) physics_.Counters().stageHeld = true;
    const double cpu = platform::ThreadCpuSeconds();
    const int64_t wall = platform::FineCounter();
    const int wrong = cLm4DDemo_GL::RunComputeCheck();
    LeaveOutOfFrameCost(cpu, wall);
    if (physicsUp_) physics_.Counters().stageHeld = false;
    return wrong;
}

void cLm4DDemo_OpenGL_4::DrawOverlayExtras() {
    if (!AtomicLoad(StartupOptions.display_visual_indicators)) return;
    // Bottom middle: between the maker logo and the API logo.
    const int h = ViewHeight(), x = std::max(10, ViewWidth() / 2 - 150);
    char line[160];
    const Color4 white{1.0f, 1.0f, 1.0f, 1.0f}, amber{1.0f, 0.8f, 0.3f, 1.0f};
    if (benchmark_ && !started_) {
        std::snprintf(line, sizeof line, "Warm-up...");
    } else {
        const int s = drawStage_;
        const float left = started_ ? sequencer_.TimeLeft(benchmarkTime_) : 0.0f;
        std::snprintf(line, sizeof line, "%s - time left: %.1f s", amark::kStageNames[s], static_cast<double>(left));
    }
    DrawText(x, h - 62, amber, line);
    std::snprintf(line, sizeof line, "%s", physicsUp_ && physics_.UsesGpu() ? "GPU PhysX" : "CPU PhysX");
    DrawText(x, h - 44, white, line);
    if (physicsUp_) {
        std::snprintf(line, sizeof line, "PhysX fluid: %d particles", physics_.LiveParticles());
        DrawText(x, h - 26, white, line);
    }
}

// ---------------------------------------------------------------- results

void cLm4DDemo_OpenGL_4::LogStageResults() {
    FinishFrames();
    CountDrawnFrames();
    if (physicsUp_) {
        physics_.SetActive(false);
        sim::SimCounters& c = physics_.Counters();
        for (int i = 0; i < amark::kStageCount; ++i) {
            stages_[i].clothSimulations = c.clothStage[i];
            stages_[i].fluidSimulations = c.fluidStage[i];
        }
    }
    // Frames still in flight when a stage ended have been counted since:
    // its average takes them in.
    for (amark::StageRecord& s : stages_)
        if (s.active) s.averageFps = amark::StageAverageFps(s);
    auto log = [](const std::string& l) { gEventLog.Write("%s", l.c_str()); };
    scores_ = amark::ComputeScores(stages_, preset_.competition, log);
    const int32_t cloth = physicsUp_ ? physics_.Counters().clothTotal.load() : 0;
    const int32_t fluid = physicsUp_ ? physics_.Counters().fluidTotal.load() : 0;
    amark::LogStageLines(stages_, cloth, fluid, log);
    amark::gLastScores.scores = scores_;
    amark::gLastScores.valid = true;
}

std::vector<std::pair<std::string, double>> cLm4DDemo_OpenGL_4::ScoreBreakdown() const {
    return {{"graphx_score", scores_.graphxScore},     {"graphx_avg_fps", scores_.graphxAvgFps},
            {"physx_score", scores_.physxScore},       {"physx_avg_fps", scores_.physxAvgFps},
            {"physx_avg_sps", scores_.physxAvgSps},     {"combined_score", scores_.combinedScore},
            {"combined_avg_fps", scores_.combinedAvgFps}, {"combined_avg_sps", scores_.combinedAvgSps},
            {"ascore", scores_.ascore}};
}

std::vector<StageResult> cLm4DDemo_OpenGL_4::StageResults() const {
    std::vector<StageResult> out;
    for (int i = 0; i < amark::kStageCount; ++i) {
        const amark::StageRecord& s = stages_[i];
        StageResult r;
        r.name = amark::kStageNames[i];
        r.active = s.active;
        r.frames = s.frames;
        r.avgFps = s.averageFps;
        r.clothSteps = s.clothSimulations;
        r.fluidSteps = s.fluidSimulations;
        if (cost_[i].submitted > 0) {
            r.renderCpuMsPerFrame = cost_[i].cpuSeconds * 1000.0 / cost_[i].submitted;
            r.frameMs = cost_[i].wallSeconds * 1000.0 / cost_[i].submitted;
        }
        out.push_back(r);
    }
    return out;
}
