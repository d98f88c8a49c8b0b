#include "sim/fluid.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {
constexpr float kPi = 3.14159265358979f;
constexpr int kMaxParticles = 1 << 20;

bool Finite3(const float* v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }
}  // namespace

SphConstants MakeSphConstants(const FluidParams& p) {
    SphConstants k;
    const float h = p.h;
    k.h2 = h * h;
    k.poly6 = 315.0f / (64.0f * kPi * std::pow(h, 9.0f));
    k.spikyGrad = -45.0f / (kPi * std::pow(h, 6.0f));
    k.viscLap = 45.0f / (kPi * std::pow(h, 6.0f));
    // The mass that gives rest density on a lattice at the emitter's spacing.
    const float s = 0.5f * h;
    float sum = 0.0f;
    for (int i = -2; i <= 2; ++i)
        for (int j = -2; j <= 2; ++j)
            for (int l = -2; l <= 2; ++l) {
                float r2 = s * s * static_cast<float>(i * i + j * j + l * l);
                if (r2 < k.h2) sum += k.poly6 * (k.h2 - r2) * (k.h2 - r2) * (k.h2 - r2);
            }
    k.mass = p.restDensity / sum;
    return k;
}

uint32_t CellHash(int ix, int iy, int iz, uint32_t mask) {
    return ((static_cast<uint32_t>(ix) * 73856093u) ^ (static_cast<uint32_t>(iy) * 19349663u) ^
            (static_cast<uint32_t>(iz) * 83492791u)) &
           mask;
}

bool FluidSolver::Create(const FluidParams& p, std::string* why) {
    if (p.maxParticles <= 0 || p.maxParticles > kMaxParticles) {
        *why = "particle count out of range";
        return false;
    }
    if (!(p.h > 0.0f) || !(p.restDensity > 0.0f) || !(p.stiffness > 0.0f) || !(p.viscosity >= 0.0f) ||
        !Finite3(p.boundsMin) || !Finite3(p.boundsMax) || !std::isfinite(p.groundHeight)) {
        *why = "fluid parameters out of range";
        return false;
    }
    for (int a = 0; a < 3; ++a)
        if (!(p.boundsMax[a] - p.boundsMin[a] > 2.0f * p.h)) {
            *why = "the fluid's box is smaller than a particle";
            return false;
        }
    params_ = p;
    k_ = MakeSphConstants(p);
    const size_t n = static_cast<size_t>(p.maxParticles);
    x_.assign(3 * n, 0.0f);
    v_.assign(3 * n, 0.0f);
    a_.assign(3 * n, 0.0f);
    rho_.assign(n, 0.0f);
    p_.assign(n, 0.0f);
    sorted_.assign(n, 0);
    uint32_t table = 1024;  // the compute path's prefix sum runs in groups of 1024
    while (table < 2 * n) table <<= 1;
    mask_ = table - 1;
    cellStart_.assign(table, 0);
    cellCount_.assign(table, 0);
    live_ = 0;
    next_ = 0;
    stepper_ = FixedStepper();
    return true;
}

bool FluidSolver::CreateEmitter(const EmitterParams& e, std::string* why) {
    float len = std::sqrt(e.direction[0] * e.direction[0] + e.direction[1] * e.direction[1] +
                          e.direction[2] * e.direction[2]);
    if (!(e.rate > 0.0f) || !std::isfinite(e.rate) || !(len > 1e-6f) || !Finite3(e.position)) {
        *why = "the emitter has no rate or no direction";
        return false;
    }
    const float margin = kNozzleSide * 0.5f * params_.h;
    for (int a = 0; a < 3; ++a)
        if (e.position[a] - margin < params_.boundsMin[a] || e.position[a] + margin > params_.boundsMax[a]) {
            *why = "the emitter is outside the fluid's box";
            return false;
        }
    if (e.position[1] - margin < params_.groundHeight) {
        *why = "the emitter is below the ground";
        return false;
    }
    emitter_ = e;
    for (float& d : emitter_.direction) d /= len;
    hasEmitter_ = true;
    emitCarry_ = 0.0f;
    layer_ = 0;
    return true;
}

const std::vector<uint32_t>& FluidSolver::Emit(float h) {
    emitted_.clear();
    if (!hasEmitter_) return emitted_;
    const int perLayer = kNozzleSide * kNozzleSide;
    const float s = 0.5f * params_.h;
    // Layers leave the nozzle one spacing apart.
    const float speed = emitter_.rate * s / perLayer;
    const float* d = emitter_.direction;
    // Two axes across the nozzle.
    float u[3] = {0.0f, 0.0f, 0.0f};
    if (std::fabs(d[1]) < 0.9f) u[1] = 1.0f; else u[0] = 1.0f;
    float w[3] = {d[1] * u[2] - d[2] * u[1], d[2] * u[0] - d[0] * u[2], d[0] * u[1] - d[1] * u[0]};
    float wl = std::sqrt(w[0] * w[0] + w[1] * w[1] + w[2] * w[2]);
    for (float& c : w) c /= wl;
    float q[3] = {d[1] * w[2] - d[2] * w[1], d[2] * w[0] - d[0] * w[2], d[0] * w[1] - d[1] * w[0]};
    emitCarry_ += emitter_.rate * h;
    while (emitCarry_ >= perLayer) {
        emitCarry_ -= perLayer;
        // A small turn per layer keeps the stream from stacking in columns.
        float jitter = 0.1f * s * static_cast<float>((layer_ * 7u) % 5u) / 5.0f;
        ++layer_;
        for (int a = 0; a < kNozzleSide; ++a)
            for (int b = 0; b < kNozzleSide; ++b) {
                float oa = (a - 0.5f * (kNozzleSide - 1)) * s + jitter, ob = (b - 0.5f * (kNozzleSide - 1)) * s;
                uint32_t slot = next_;
                next_ = (next_ + 1) % static_cast<uint32_t>(params_.maxParticles);
                if (live_ < params_.maxParticles) ++live_;
                for (int c = 0; c < 3; ++c) {
                    x_[3 * slot + c] = emitter_.position[c] + oa * w[c] + ob * q[c];
                    v_[3 * slot + c] = speed * d[c];
                }
                emitted_.push_back(slot);
            }
    }
    return emitted_;
}

int FluidSolver::Simulate(float dt, WorkerPool* pool) {
    int n = stepper_.Advance(dt);
    for (int s = 0; s < n; ++s) SubStep(kSubStep, pool);
    return n;
}

void FluidSolver::SubStep(float h, WorkerPool* pool) {
    Emit(h);
    BuildGrid();
    const size_t n = static_cast<size_t>(live_);
    if (pool) {
        pool->ParallelFor(n, [this](size_t b, size_t e) { DensityPass(b, e); });
        pool->ParallelFor(n, [this](size_t b, size_t e) { ForcePass(b, e); });
    } else {
        DensityPass(0, n);
        ForcePass(0, n);
    }
    for (size_t i = 0; i < n; ++i) {
        float* v = &v_[3 * i];
        float* x = &x_[3 * i];
        for (int c = 0; c < 3; ++c) v[c] += h * a_[3 * i + c];
        float sp = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (sp > params_.maxSpeed)
            for (int c = 0; c < 3; ++c) v[c] *= params_.maxSpeed / sp;
        for (int c = 0; c < 3; ++c) x[c] += h * v[c];
        Confine(x, v);
    }
}

void FluidSolver::Confine(float* x, float* v) const {
    float lo[3] = {params_.boundsMin[0], std::max(params_.boundsMin[1], params_.groundHeight), params_.boundsMin[2]};
    const float r = 0.25f * params_.h;  // particle radius
    for (int c = 0; c < 3; ++c) {
        if (x[c] < lo[c] + r) {
            x[c] = lo[c] + r;
            if (v[c] < 0.0f) v[c] *= -kRestitution;
        } else if (x[c] > params_.boundsMax[c] - r) {
            x[c] = params_.boundsMax[c] - r;
            if (v[c] > 0.0f) v[c] *= -kRestitution;
        }
    }
    for (const Sphere& s : params_.spheres) {
        float d[3] = {x[0] - s.center[0], x[1] - s.center[1], x[2] - s.center[2]};
        float dist = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        float R = s.radius + r;
        if (dist < R && dist > 1e-6f) {
            float nrm[3] = {d[0] / dist, d[1] / dist, d[2] / dist};
            float vn = v[0] * nrm[0] + v[1] * nrm[1] + v[2] * nrm[2];
            for (int c = 0; c < 3; ++c) {
                x[c] = s.center[c] + nrm[c] * R;
                if (vn < 0.0f) v[c] = (v[c] - vn * nrm[c]) * (1.0f - kFriction) - kRestitution * vn * nrm[c];
            }
        }
    }
}

void FluidSolver::BuildGrid() {
    std::fill(cellCount_.begin(), cellCount_.end(), 0u);
    const float inv = 1.0f / params_.h;
    for (int i = 0; i < live_; ++i) {
        const float* x = &x_[3 * i];
        ++cellCount_[CellHash(static_cast<int>(std::floor(x[0] * inv)), static_cast<int>(std::floor(x[1] * inv)),
                              static_cast<int>(std::floor(x[2] * inv)), mask_)];
    }
    uint32_t sum = 0;
    for (size_t c = 0; c < cellCount_.size(); ++c) {
        cellStart_[c] = sum;
        sum += cellCount_[c];
        cellCount_[c] = cellStart_[c];  // now the cursor of the scatter
    }
    for (int i = 0; i < live_; ++i) {
        const float* x = &x_[3 * i];
        uint32_t key = CellHash(static_cast<int>(std::floor(x[0] * inv)), static_cast<int>(std::floor(x[1] * inv)),
                                static_cast<int>(std::floor(x[2] * inv)), mask_);
        sorted_[cellCount_[key]++] = static_cast<uint32_t>(i);
    }
    // cellCount_ holds each bucket's end now.
}

template <typename F>
void FluidSolver::ForNeighbours(const float* xi, F&& visit) const {
    const float inv = 1.0f / params_.h;
    int cx = static_cast<int>(std::floor(xi[0] * inv)), cy = static_cast<int>(std::floor(xi[1] * inv)),
        cz = static_cast<int>(std::floor(xi[2] * inv));
    uint32_t seen[27];
    int seenCount = 0;
    for (int dx = -1; dx <= 1; ++dx)
        for (int dy = -1; dy <= 1; ++dy)
            for (int dz = -1; dz <= 1; ++dz) {
                uint32_t key = CellHash(cx + dx, cy + dy, cz + dz, mask_);
                // Two cells may share a bucket; visit it once.
                bool dup = false;
                for (int s = 0; s < seenCount; ++s) dup |= seen[s] == key;
                if (dup) continue;
                seen[seenCount++] = key;
                for (uint32_t k = cellStart_[key]; k < cellCount_[key]; ++k) {
                    uint32_t j = sorted_[k];
                    const float* xj = &x_[3 * j];
                    float r[3] = {xi[0] - xj[0], xi[1] - xj[1], xi[2] - xj[2]};
                    float r2 = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
                    if (r2 < k_.h2) visit(j, r, r2);
                }
            }
}

void FluidSolver::DensityPass(size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
        float sum = 0.0f;
        ForNeighbours(&x_[3 * i], [&](uint32_t, const float*, float r2) {
            float d = k_.h2 - r2;
            sum += d * d * d;
        });
        rho_[i] = k_.mass * k_.poly6 * sum;
        p_[i] = std::max(0.0f, params_.stiffness * (rho_[i] - params_.restDensity));
    }
}

void FluidSolver::ForcePass(size_t begin, size_t end) {
    const float h = params_.h;
    for (size_t i = begin; i < end; ++i) {
        float f[3] = {0.0f, 0.0f, 0.0f};
        const float* vi = &v_[3 * i];
        ForNeighbours(&x_[3 * i], [&](uint32_t j, const float* r, float r2) {
            if (j == i) return;
            float len = std::sqrt(r2);
            if (len < 1e-6f) return;
            float hr = h - len;
            float pres = -k_.mass * (p_[i] + p_[j]) / (2.0f * rho_[j]) * k_.spikyGrad * hr * hr / len;
            float visc = params_.viscosity * k_.mass * k_.viscLap * hr / rho_[j];
            const float* vj = &v_[3 * j];
            for (int c = 0; c < 3; ++c) f[c] += pres * r[c] + visc * (vj[c] - vi[c]);
        });
        float inv = 1.0f / rho_[i];
        a_[3 * i] = f[0] * inv;
        a_[3 * i + 1] = f[1] * inv + kGravityY;
        a_[3 * i + 2] = f[2] * inv;
    }
}

}  // namespace sim
