#include <cstring>

#include "core/event_log.h"
#include "sim/gpu_context.h"
#include "sim/gpu_sim.h"

namespace sim {

namespace {

constexpr int kMaxSpheres = 16;
constexpr GLuint kGroup = 64;

// The same arithmetic, in the same order, as ClothSolver::SubStep.
const char* kPredict = R"(#version 430
layout(local_size_x = 64) in;
layout(std430, binding = 0) buffer X { float x[]; };
layout(std430, binding = 1) buffer P { float prev[]; };
layout(std430, binding = 2) buffer V { float v[]; };
layout(std430, binding = 3) readonly buffer W { float w[]; };
uniform uint n; uniform float h; uniform float t; uniform vec3 wind;
void main() {
    uint i = gl_GlobalInvocationID.x;
    if (i >= n || w[i] == 0.0) return;
    float g = 1.0 + 0.5 * sin(1.7 * t + 0.37 * float(i % 97u));
    precise vec3 vel = vec3(v[3u*i], v[3u*i+1u], v[3u*i+2u]);
    vel.x += h * (wind.x * g);
    vel.y += h * (-9.8 + wind.y * g);
    vel.z += h * (wind.z * g);
    v[3u*i] = vel.x; v[3u*i+1u] = vel.y; v[3u*i+2u] = vel.z;
    for (uint a = 0u; a < 3u; ++a) { prev[3u*i+a] = x[3u*i+a]; x[3u*i+a] += h * vel[a]; }
}
)";

const char* kSolve = R"(#version 430
layout(local_size_x = 64) in;
layout(std430, binding = 0) buffer X { float x[]; };
layout(std430, binding = 3) readonly buffer W { float w[]; };
layout(std430, binding = 4) readonly buffer C { uint pairs[]; };
layout(std430, binding = 5) readonly buffer R { float rest[]; };
layout(std430, binding = 6) readonly buffer K { float compliance[]; };
layout(std430, binding = 7) buffer L { float lambda[]; };
uniform uint first; uniform uint count; uniform float invH2; uniform uint iteration;
void main() {
    uint c = gl_GlobalInvocationID.x;
    if (c >= count) return;
    uint k = first + c;
    uint i = pairs[2u*k], j = pairs[2u*k+1u];
    float wi = w[i], wj = w[j];
    precise vec3 a = vec3(x[3u*i], x[3u*i+1u], x[3u*i+2u]);
    precise vec3 b = vec3(x[3u*j], x[3u*j+1u], x[3u*j+2u]);
    precise vec3 d = b - a;
    precise float len = sqrt(d.x*d.x + d.y*d.y + d.z*d.z);
    if (len < 1e-9) return;
    float lam = iteration == 0u ? 0.0 : lambda[k];
    float alpha = compliance[k] * invH2;
    precise float dl = (-(len - rest[k]) - alpha * lam) / (wi + wj + alpha);
    lambda[k] = lam + dl;
    precise float s = dl / len;
    a -= wi * s * d;
    b += wj * s * d;
    x[3u*i] = a.x; x[3u*i+1u] = a.y; x[3u*i+2u] = a.z;
    x[3u*j] = b.x; x[3u*j+1u] = b.y; x[3u*j+2u] = b.z;
}
)";

const char* kFinalize = R"(#version 430
layout(local_size_x = 64) in;
layout(std430, binding = 0) buffer X { float x[]; };
layout(std430, binding = 1) buffer P { float prev[]; };
layout(std430, binding = 2) buffer V { float v[]; };
layout(std430, binding = 3) readonly buffer W { float w[]; };
uniform uint n; uniform float h; uniform float ground; uniform float thickness; uniform float keep;
uniform float friction; uniform float restitution;
uniform int sphereCount; uniform vec4 spheres[16];
void main() {
    uint i = gl_GlobalInvocationID.x;
    if (i >= n || w[i] == 0.0) return;
    precise vec3 p = vec3(x[3u*i], x[3u*i+1u], x[3u*i+2u]);
    vec3 q = vec3(prev[3u*i], prev[3u*i+1u], prev[3u*i+2u]);
    precise vec3 vel = (p - q) / h;
    vec3 nrm = vec3(0.0);
    bool contact = false;
    if (p.y < ground + thickness) { p.y = ground + thickness; nrm = vec3(0.0, 1.0, 0.0); contact = true; }
    for (int s = 0; s < sphereCount; ++s) {
        precise vec3 d = p - spheres[s].xyz;
        precise float dist = sqrt(d.x*d.x + d.y*d.y + d.z*d.z);
        float r = spheres[s].w + thickness;
        if (dist < r && dist > 1e-6) { nrm = d / dist; p = spheres[s].xyz + nrm * r; contact = true; }
    }
    if (contact) {
        float vn = dot(vel, nrm);
        vec3 vt = vel - vn * nrm;
        float vtLen = length(vt);
        float newVn = vn < 0.0 ? -restitution * vn : vn;
        if (vn < 0.0 && -vn < 2.0 * 9.8 * h) newVn = 0.0;
        float scale = vtLen > 1e-9 ? max(0.0, 1.0 - friction * abs(newVn - vn) / vtLen) : 0.0;
        vel = vt * scale + newVn * nrm;
    }
    x[3u*i] = p.x; x[3u*i+1u] = p.y; x[3u*i+2u] = p.z;
    v[3u*i] = vel.x * keep; v[3u*i+1u] = vel.y * keep; v[3u*i+2u] = vel.z * keep;
}
)";

}  // namespace

std::unique_ptr<GpuCloth> GpuCloth::Create(const ClothMesh& mesh, const CookedCloth& cooked,
                                           const ClothParams& params) {
    std::string why;
    auto g = std::unique_ptr<GpuCloth>(new GpuCloth());
    g->ctx_ = GpuContext::Create(&why);
    if (g->ctx_) {
        g->predict_ = g->ctx_->Program(kPredict, &why);
        g->solve_ = g->predict_ ? g->ctx_->Program(kSolve, &why) : 0;
        g->finalize_ = g->solve_ ? g->ctx_->Program(kFinalize, &why) : 0;
    }
    if (!g->finalize_ || params.spheres.size() > static_cast<size_t>(kMaxSpheres)) {
        if (why.empty()) why = "too many spheres for the compute path";
        gEventLog.Write("ERROR - PhysX: unable to create a mesh cloth.");
        gEventLog.Write("Cloth compute path: %s", why.c_str());
        return nullptr;
    }
    g->cooked_ = cooked;
    g->params_ = params;
    g->vertices_ = static_cast<unsigned>(mesh.invMass.size());
    const size_t n = mesh.invMass.size(), m = cooked.ConstraintCount();
    std::vector<float> zeros(3 * n, 0.0f);
    GpuContext& c = *g->ctx_;
    g->buffers_[0] = c.Buffer(3 * n * sizeof(float), mesh.positions.data());
    g->buffers_[1] = c.Buffer(3 * n * sizeof(float), mesh.positions.data());
    g->buffers_[2] = c.Buffer(3 * n * sizeof(float), zeros.data());
    g->buffers_[3] = c.Buffer(n * sizeof(float), mesh.invMass.data());
    g->buffers_[4] = c.Buffer(2 * m * sizeof(uint32_t), cooked.pairs.data());
    g->buffers_[5] = c.Buffer(m * sizeof(float), cooked.restLength.data());
    g->buffers_[6] = c.Buffer(m * sizeof(float), cooked.compliance.data());
    g->buffers_[7] = c.Buffer(m * sizeof(float), nullptr);
    for (GLuint b = 0; b < 8; ++b) c.Bind(b, g->buffers_[b]);
    return g;
}

GpuCloth::~GpuCloth() = default;

int GpuCloth::Simulate(float dt) {
    int steps = stepper_.Advance(dt);
    GpuContext& c = *ctx_;
    gl::ComputeApi& api = c.api;
    const float h = kSubStep;
    for (int s = 0; s < steps; ++s) {
        float t = stepper_.StartTime() + s * kSubStep;
        api.UseProgram(predict_);
        api.Uniform1ui(api.GetUniformLocation(predict_, "n"), vertices_);
        api.Uniform1f(api.GetUniformLocation(predict_, "h"), h);
        api.Uniform1f(api.GetUniformLocation(predict_, "t"), t);
        api.Uniform3f(api.GetUniformLocation(predict_, "wind"), params_.wind[0], params_.wind[1], params_.wind[2]);
        c.Dispatch(predict_, vertices_, kGroup);
        api.UseProgram(solve_);
        api.Uniform1f(api.GetUniformLocation(solve_, "invH2"), 1.0f / (h * h));
        GLint first = api.GetUniformLocation(solve_, "first"), count = api.GetUniformLocation(solve_, "count"),
              iteration = api.GetUniformLocation(solve_, "iteration");
        for (int it = 0; it < params_.iterations; ++it) {
            api.Uniform1ui(iteration, static_cast<GLuint>(it));
            for (size_t g = 0; g + 1 < cooked_.colorStart.size(); ++g) {
                GLuint n = cooked_.colorStart[g + 1] - cooked_.colorStart[g];
                api.Uniform1ui(first, cooked_.colorStart[g]);
                api.Uniform1ui(count, n);
                c.Dispatch(solve_, n, kGroup);
            }
        }
        api.UseProgram(finalize_);
        api.Uniform1ui(api.GetUniformLocation(finalize_, "n"), vertices_);
        api.Uniform1f(api.GetUniformLocation(finalize_, "h"), h);
        api.Uniform1f(api.GetUniformLocation(finalize_, "ground"), params_.groundHeight);
        api.Uniform1f(api.GetUniformLocation(finalize_, "thickness"), params_.thickness);
        api.Uniform1f(api.GetUniformLocation(finalize_, "keep"), std::max(0.0f, 1.0f - params_.damping * h));
        api.Uniform1f(api.GetUniformLocation(finalize_, "friction"), kFriction);
        api.Uniform1f(api.GetUniformLocation(finalize_, "restitution"), kRestitution);
        api.Uniform1i(api.GetUniformLocation(finalize_, "sphereCount"), static_cast<GLint>(params_.spheres.size()));
        for (size_t k = 0; k < params_.spheres.size(); ++k) {
            const Sphere& sp = params_.spheres[k];
            std::string name = "spheres[" + std::to_string(k) + "]";
            api.Uniform4f(api.GetUniformLocation(finalize_, name.c_str()), sp.center[0], sp.center[1], sp.center[2],
                          sp.radius);
        }
        c.Dispatch(finalize_, vertices_, kGroup);
    }
    return steps;
}

void GpuCloth::ReadPositions(std::vector<float>* out) {
    out->resize(3 * size_t(vertices_));
    ctx_->api.BindBuffer(gl::SHADER_STORAGE_BUFFER, buffers_[0]);
    ctx_->api.GetBufferSubData(gl::SHADER_STORAGE_BUFFER, 0, static_cast<GLsizeiptr>(out->size() * sizeof(float)),
                               out->data());
}

}  // namespace sim
