#include <string>

#include "core/event_log.h"
#include "sim/gpu_context.h"
#include "sim/gpu_sim.h"

namespace sim {

namespace {

constexpr GLuint kGroup = 64;
enum { kX, kV, kA, kRho, kP, kCount, kStart, kSorted };
enum { kClear, kHistogram, kScan, kScatter, kDensity, kForce, kIntegrate };

#define ARD_SPH_COMMON                                                                                  \
    "#version 430\n"                                                                                    \
    "layout(std430, binding = 0) buffer X { float x[]; };\n"                                           \
    "layout(std430, binding = 1) buffer V { float v[]; };\n"                                           \
    "layout(std430, binding = 2) buffer A { float acc[]; };\n"                                         \
    "layout(std430, binding = 3) buffer Rho { float rho[]; };\n"                                       \
    "layout(std430, binding = 4) buffer Pr { float pr[]; };\n"                                         \
    "layout(std430, binding = 5) buffer Cnt { uint cellCount[]; };\n"                                  \
    "layout(std430, binding = 6) buffer St { uint cellStart[]; };\n"                                   \
    "layout(std430, binding = 7) buffer So { uint sorted[]; };\n"                                      \
    "uniform uint n; uniform uint mask; uniform float invCell;\n"                                      \
    "uint cellHash(ivec3 c) { return ((uint(c.x) * 73856093u) ^ (uint(c.y) * 19349663u) ^ "          \
    "(uint(c.z) * 83492791u)) & mask; }\n"                                                             \
    "vec3 pos(uint i) { return vec3(x[3u*i], x[3u*i+1u], x[3u*i+2u]); }\n"                            \
    "ivec3 cellOf(vec3 p) { return ivec3(floor(p * invCell)); }\n"

// Visits every particle in the 27 cells round p once (cells sharing a bucket included once).
#define ARD_SPH_NEIGHBOURS_BEGIN                                                                       \
    "ivec3 c0 = cellOf(pi); uint seen[27]; int seenCount = 0;\n"                                        \
    "for (int dx = -1; dx <= 1; ++dx) for (int dy = -1; dy <= 1; ++dy) for (int dz = -1; dz <= 1; ++dz) {\n" \
    "  uint key = cellHash(c0 + ivec3(dx, dy, dz)); bool dup = false;\n"                                \
    "  for (int s = 0; s < seenCount; ++s) dup = dup || seen[s] == key;\n"                              \
    "  if (dup) continue; seen[seenCount++] = key;\n"                                                   \
    "  for (uint k = cellStart[key]; k < cellCount[key]; ++k) {\n"                                      \
    "    uint j = sorted[k]; vec3 r = pi - pos(j); float r2 = dot(r, r);\n"                             \
    "    if (r2 >= h2) continue;\n"
#define ARD_SPH_NEIGHBOURS_END "  }\n}\n"

const char* kSources[] = {
    // Clear the bucket counts.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "void main() { uint c = gl_GlobalInvocationID.x; if (c <= mask) cellCount[c] = 0u; }\n",
    // Count the particles per bucket.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "void main() { uint i = gl_GlobalInvocationID.x; if (i >= n) return;\n"
    "  atomicAdd(cellCount[cellHash(cellOf(pos(i)))], 1u); }\n",
    // Exclusive prefix sum over the buckets in one group of 1024: each thread
    // sums a run of buckets, the run totals are scanned in shared memory.
    ARD_SPH_COMMON "layout(local_size_x = 1024) in;\n"
    "shared uint part[1024];\n"
    "void main() { uint t = gl_LocalInvocationID.x; uint per = (mask + 1u) / 1024u; uint b0 = t * per;\n"
    "  uint s = 0u; for (uint c = 0u; c < per; ++c) s += cellCount[b0 + c];\n"
    "  part[t] = s; barrier();\n"
    "  for (uint off = 1u; off < 1024u; off <<= 1) { uint v = t >= off ? part[t - off] : 0u; barrier();\n"
    "    part[t] += v; barrier(); }\n"
    "  uint run = part[t] - s;\n"
    "  for (uint c = 0u; c < per; ++c) { uint k = cellCount[b0 + c]; cellStart[b0 + c] = run;\n"
    "    cellCount[b0 + c] = run; run += k; } }\n",
    // Scatter into the buckets; the counts end as each bucket's end.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "void main() { uint i = gl_GlobalInvocationID.x; if (i >= n) return;\n"
    "  uint slot = atomicAdd(cellCount[cellHash(cellOf(pos(i)))], 1u); sorted[slot] = i; }\n",
    // Density and pressure.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "uniform float h2; uniform float massPoly6; uniform float stiffness; uniform float restDensity;\n"
    "void main() { uint i = gl_GlobalInvocationID.x; if (i >= n) return; vec3 pi = pos(i); float sum = 0.0;\n"
    ARD_SPH_NEIGHBOURS_BEGIN "    float d = h2 - r2; sum += d * d * d;\n" ARD_SPH_NEIGHBOURS_END
    "  rho[i] = massPoly6 * sum; pr[i] = max(0.0, stiffness * (rho[i] - restDensity)); }\n",
    // Pressure and viscosity forces.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "uniform float h2; uniform float h; uniform float mass; uniform float spikyGrad; uniform float viscLap;\n"
    "uniform float viscosity; uniform float gravity;\n"
    "void main() { uint i = gl_GlobalInvocationID.x; if (i >= n) return; vec3 pi = pos(i); vec3 f = vec3(0.0);\n"
    "  vec3 vi = vec3(v[3u*i], v[3u*i+1u], v[3u*i+2u]);\n"
    ARD_SPH_NEIGHBOURS_BEGIN
    "    if (j == i) continue; float len = sqrt(r2); if (len < 1e-6) continue; float hr = h - len;\n"
    "    float pres = -mass * (pr[i] + pr[j]) / (2.0 * rho[j]) * spikyGrad * hr * hr / len;\n"
    "    float visc = viscosity * mass * viscLap * hr / rho[j];\n"
    "    f += pres * r + visc * (vec3(v[3u*j], v[3u*j+1u], v[3u*j+2u]) - vi);\n" ARD_SPH_NEIGHBOURS_END
    "  f /= rho[i]; acc[3u*i] = f.x; acc[3u*i+1u] = f.y + gravity; acc[3u*i+2u] = f.z; }\n",
    // Integration and confinement, as FluidSolver::Confine.
    ARD_SPH_COMMON "layout(local_size_x = 64) in;\n"
    "uniform float dt; uniform float maxSpeed; uniform vec3 lo; uniform vec3 hi; uniform float radius;\n"
    "uniform float friction; uniform float restitution; uniform int sphereCount; uniform vec4 spheres[16];\n"
    "void main() { uint i = gl_GlobalInvocationID.x; if (i >= n) return;\n"
    "  vec3 vel = vec3(v[3u*i], v[3u*i+1u], v[3u*i+2u]) + dt * vec3(acc[3u*i], acc[3u*i+1u], acc[3u*i+2u]);\n"
    "  float sp = length(vel); if (sp > maxSpeed) vel *= maxSpeed / sp;\n"
    "  vec3 p = pos(i) + dt * vel;\n"
    "  for (int c = 0; c < 3; ++c) {\n"
    "    if (p[c] < lo[c] + radius) { p[c] = lo[c] + radius; if (vel[c] < 0.0) vel[c] *= -restitution; }\n"
    "    else if (p[c] > hi[c] - radius) { p[c] = hi[c] - radius; if (vel[c] > 0.0) vel[c] *= -restitution; } }\n"
    "  for (int s = 0; s < sphereCount; ++s) { vec3 d = p - spheres[s].xyz; float dist = length(d);\n"
    "    float R = spheres[s].w + radius;\n"
    "    if (dist < R && dist > 1e-6) { vec3 nrm = d / dist; float vn = dot(vel, nrm); p = spheres[s].xyz + nrm * R;\n"
    "      if (vn < 0.0) vel = (vel - vn * nrm) * (1.0 - friction) - restitution * vn * nrm; } }\n"
    "  x[3u*i] = p.x; x[3u*i+1u] = p.y; x[3u*i+2u] = p.z; v[3u*i] = vel.x; v[3u*i+1u] = vel.y; v[3u*i+2u] = vel.z; }\n",
};

}  // namespace

std::unique_ptr<GpuFluid> GpuFluid::Create(const FluidSolver& fluid) {
    std::string why;
    auto g = std::unique_ptr<GpuFluid>(new GpuFluid());
    g->ctx_ = GpuContext::Create(&why);
    bool ok = g->ctx_ != nullptr && fluid.Params().spheres.size() <= 16 && fluid.TableMask() + 1 >= 1024;
    for (int k = 0; ok && k < 7; ++k) ok = (g->programs_[k] = g->ctx_->Program(kSources[k], &why)) != 0;
    if (!ok) {
        gEventLog.Write("NVIDIA PhysX: fluid creation failed.");
        gEventLog.Write("Fluid compute path: %s", why.empty() ? "scene out of the compute path's limits" : why.c_str());
        return nullptr;
    }
    g->emitter_ = fluid;
    g->table_ = fluid.TableMask() + 1;
    const size_t n = static_cast<size_t>(fluid.Params().maxParticles);
    GpuContext& c = *g->ctx_;
    std::vector<float> zeros(3 * n, 0.0f);
    g->buffers_[kX] = c.Buffer(3 * n * sizeof(float), fluid.Positions().data());
    g->buffers_[kV] = c.Buffer(3 * n * sizeof(float), fluid.Velocities().data());
    g->buffers_[kA] = c.Buffer(3 * n * sizeof(float), zeros.data());
    g->buffers_[kRho] = c.Buffer(n * sizeof(float), zeros.data());
    g->buffers_[kP] = c.Buffer(n * sizeof(float), zeros.data());
    g->buffers_[kCount] = c.Buffer(g->table_ * sizeof(uint32_t), nullptr);
    g->buffers_[kStart] = c.Buffer(g->table_ * sizeof(uint32_t), nullptr);
    g->buffers_[kSorted] = c.Buffer(n * sizeof(uint32_t), nullptr);
    for (GLuint b = 0; b < 8; ++b) c.Bind(b, g->buffers_[b]);
    return g;
}

GpuFluid::~GpuFluid() = default;

int GpuFluid::Simulate(float dt) {
    int steps = emitter_.Stepper().Advance(dt);
    for (int s = 0; s < steps; ++s) SubStep(kSubStep);
    return steps;
}

void GpuFluid::SubStep(float h) {
    gl::ComputeApi& api = ctx_->api;
    // New particles: the CPU emitter decides the slots and their start.
    const std::vector<uint32_t>& slots = emitter_.Emit(h);
    for (uint32_t s : slots) {
        for (int b : {kX, kV}) {
            const float* src = (b == kX ? emitter_.Positions() : emitter_.Velocities()).data() + 3 * s;
            api.BindBuffer(gl::SHADER_STORAGE_BUFFER, buffers_[b]);
            api.BufferSubData(gl::SHADER_STORAGE_BUFFER, 3 * s * sizeof(float), 3 * sizeof(float), src);
        }
    }
    api.MemoryBarrier(gl::BUFFER_UPDATE_BARRIER_BIT);
    const FluidParams& p = emitter_.Params();
    const SphConstants& k = emitter_.Constants();
    const GLuint n = static_cast<GLuint>(emitter_.Live());
    for (int pass = 0; pass < 7; ++pass) {
        GLuint prog = programs_[pass];
        api.UseProgram(prog);
        auto U = [&](const char* name) { return api.GetUniformLocation(prog, name); };
        api.Uniform1ui(U("n"), n);
        api.Uniform1ui(U("mask"), table_ - 1);
        api.Uniform1f(U("invCell"), 1.0f / p.h);
        if (pass == kDensity) {
            api.Uniform1f(U("h2"), k.h2);
            api.Uniform1f(U("massPoly6"), k.mass * k.poly6);
            api.Uniform1f(U("stiffness"), p.stiffness);
            api.Uniform1f(U("restDensity"), p.restDensity);
        } else if (pass == kForce) {
            api.Uniform1f(U("h2"), k.h2);
            api.Uniform1f(U("h"), p.h);
            api.Uniform1f(U("mass"), k.mass);
            api.Uniform1f(U("spikyGrad"), k.spikyGrad);
            api.Uniform1f(U("viscLap"), k.viscLap);
            api.Uniform1f(U("viscosity"), p.viscosity);
            api.Uniform1f(U("gravity"), kGravityY);
        } else if (pass == kIntegrate) {
            api.Uniform1f(U("dt"), h);
            api.Uniform1f(U("maxSpeed"), p.maxSpeed);
            api.Uniform3f(U("lo"), p.boundsMin[0], std::max(p.boundsMin[1], p.groundHeight), p.boundsMin[2]);
            api.Uniform3f(U("hi"), p.boundsMax[0], p.boundsMax[1], p.boundsMax[2]);
            api.Uniform1f(U("radius"), 0.25f * p.h);
            api.Uniform1f(U("friction"), kFriction);
            api.Uniform1f(U("restitution"), kRestitution);
            api.Uniform1i(U("sphereCount"), static_cast<GLint>(p.spheres.size()));
            for (size_t s = 0; s < p.spheres.size(); ++s) {
                std::string name = "spheres[" + std::to_string(s) + "]";
                const Sphere& sp = p.spheres[s];
                api.Uniform4f(U(name.c_str()), sp.center[0], sp.center[1], sp.center[2], sp.radius);
            }
        }
        if (pass == kScan)
            ctx_->Dispatch(prog, 1024, 1024);
        else
            ctx_->Dispatch(prog, pass == kClear ? table_ : n, kGroup);
    }
}

void GpuFluid::ReadPositions(std::vector<float>* out, int* count) {
    *count = emitter_.Live();
    out->resize(3 * static_cast<size_t>(*count));
    if (out->empty()) return;
    ctx_->api.BindBuffer(gl::SHADER_STORAGE_BUFFER, buffers_[kX]);
    ctx_->api.GetBufferSubData(gl::SHADER_STORAGE_BUFFER, 0, static_cast<GLsizeiptr>(out->size() * sizeof(float)),
                               out->data());
}

}  // namespace sim
