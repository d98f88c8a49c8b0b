#include "sim/fluid.h"

#include <algorithm>
#include <cmath>

namespace sim {

namespace {
constexpr float kPi = 3.14159265358979f;
constexpr int kMaxParticles = 1 << 20;
constexpr double kMaxCells = 1 << 22;  // 16 MiB of cell starts

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
    double gridCells = 1.0;
    for (int a = 0; a < 3; ++a) gridCells *= std::ceil((p.boundsMax[a] - p.boundsMin[a]) / p.h);
    if (gridCells > kMaxCells) {
        *why = "the fluid's box holds too many cells for its particle size";
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
    uint32_t table = 1024;  // the compute path's prefix sum runs in groups of 1024
    while (table < 2 * n) table <<= 1;
    mask_ = table - 1;
    size_t cells = 1;
    for (int a = 0; a < 3; ++a) {
        dims_[a] = static_cast<int>(std::ceil((p.boundsMax[a] - p.boundsMin[a]) / p.h));
        cells *= static_cast<size_t>(dims_[a]);
    }
    cellStart_.assign(cells + 1, 0);
    cursor_.assign(cells, 0);
    for (auto* v : {&cellOf_, &order_, &nbrCount_}) v->assign(n, 0);
    nbr_.assign(n * kListed, 0);
    for (auto* v : {&sx_, &sy_, &sz_, &svx_, &svy_, &svz_, &srho_, &sInvRho_, &sp_}) v->assign(n, 0.0f);
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

uint32_t FluidSolver::CellOf(const float* x) const {
    const float inv = 1.0f / params_.h;
    uint32_t index = 0;
    for (int a = 2; a >= 0; --a) {
        float f = (x[a] - params_.boundsMin[a]) * inv;
        // Confine keeps particles in the box; a stray one joins the edge cell.
        int c = f >= 0.0f ? static_cast<int>(std::min(f, static_cast<float>(dims_[a] - 1))) : 0;
        index = index * static_cast<uint32_t>(dims_[a]) + static_cast<uint32_t>(c);
    }
    return index;
}

void FluidSolver::BuildGrid() {
    // Counting sort by cell: counts, prefix sum, scatter.
    std::fill(cellStart_.begin(), cellStart_.end(), 0u);
    for (int i = 0; i < live_; ++i) {
        cellOf_[i] = CellOf(&x_[3 * i]);
        ++cellStart_[cellOf_[i] + 1];
    }
    for (size_t c = 1; c < cellStart_.size(); ++c) cellStart_[c] += cellStart_[c - 1];
    std::copy(cellStart_.begin(), cellStart_.end() - 1, cursor_.begin());
    for (int i = 0; i < live_; ++i) {
        uint32_t s = cursor_[cellOf_[i]]++;
        order_[s] = static_cast<uint32_t>(i);
        sx_[s] = x_[3 * i];
        sy_[s] = x_[3 * i + 1];
        sz_[s] = x_[3 * i + 2];
        svx_[s] = v_[3 * i];
        svy_[s] = v_[3 * i + 1];
        svz_[s] = v_[3 * i + 2];
    }
}

template <typename F>
void FluidSolver::ForNeighbours(size_t i, F&& visit) const {
    uint32_t cell = cellOf_[order_[i]];
    const int nx = dims_[0], ny = dims_[1], nz = dims_[2];
    const int cx = static_cast<int>(cell % static_cast<uint32_t>(nx));
    const int cy = static_cast<int>(cell / static_cast<uint32_t>(nx) % static_cast<uint32_t>(ny));
    const int cz = static_cast<int>(cell / static_cast<uint32_t>(nx * ny));
    const int x0 = std::max(cx - 1, 0), x1 = std::min(cx + 1, nx - 1);
    const float xi = sx_[i], yi = sy_[i], zi = sz_[i];
    for (int z = std::max(cz - 1, 0); z <= std::min(cz + 1, nz - 1); ++z)
        for (int y = std::max(cy - 1, 0); y <= std::min(cy + 1, ny - 1); ++y) {
            // Three neighbouring cells of a row are one run of sorted particles.
            const uint32_t row = static_cast<uint32_t>((z * ny + y) * nx);
            const uint32_t end = cellStart_[row + x1 + 1];
            for (uint32_t j = cellStart_[row + x0]; j < end; ++j) {
                float r[3] = {xi - sx_[j], yi - sy_[j], zi - sz_[j]};
                float r2 = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
                if (r2 < k_.h2) visit(j, r, r2);
            }
        }
}

void FluidSolver::DensityPass(size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
        float sum = 0.0f;
        uint32_t* list = &nbr_[i * kListed];
        uint32_t count = 0;
        ForNeighbours(i, [&](uint32_t j, const float*, float r2) {
            float d = k_.h2 - r2;
            sum += d * d * d;
            if (count < kListed) list[count] = j;
            ++count;
        });
        nbrCount_[i] = count;
        srho_[i] = k_.mass * k_.poly6 * sum;
        sInvRho_[i] = 1.0f / srho_[i];
        sp_[i] = std::max(0.0f, params_.stiffness * (srho_[i] - params_.restDensity));
        rho_[order_[i]] = srho_[i];
        p_[order_[i]] = sp_[i];
    }
}

void FluidSolver::ForcePass(size_t begin, size_t end) {
    const float h = params_.h;
    const float cPres = -0.5f * k_.mass * k_.spikyGrad, cVisc = params_.viscosity * k_.mass * k_.viscLap;
    for (size_t i = begin; i < end; ++i) {
        float f[3] = {0.0f, 0.0f, 0.0f};
        const float vi[3] = {svx_[i], svy_[i], svz_[i]};
        auto add = [&](uint32_t j, const float* r, float r2) {
            if (j == i) return;
            float len = std::sqrt(r2);
            if (len < 1e-6f) return;
            float hr = h - len;
            float invRho = sInvRho_[j];
            float pres = cPres * (sp_[i] + sp_[j]) * invRho * hr * hr / len;
            float visc = cVisc * hr * invRho;
            f[0] += pres * r[0] + visc * (svx_[j] - vi[0]);
            f[1] += pres * r[1] + visc * (svy_[j] - vi[1]);
            f[2] += pres * r[2] + visc * (svz_[j] - vi[2]);
        };
        if (nbrCount_[i] <= kListed) {
            const uint32_t* list = &nbr_[i * kListed];
            for (uint32_t k = 0; k < nbrCount_[i]; ++k) {
                uint32_t j = list[k];
                float r[3] = {sx_[i] - sx_[j], sy_[i] - sy_[j], sz_[i] - sz_[j]};
                add(j, r, r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
            }
        } else {
            ForNeighbours(i, add);
        }
        const uint32_t o = order_[i];
        float inv = sInvRho_[i];
        a_[3 * o] = f[0] * inv;
        a_[3 * o + 1] = f[1] * inv + kGravityY;
        a_[3 * o + 2] = f[2] * inv;
    }
}

}  // namespace sim
