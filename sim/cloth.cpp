#include "sim/cloth.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
// Eight constraints at a time where the processor has AVX. Not on Windows:
// there the compiler cannot keep 32-byte spills aligned on the 16-byte
// aligned stack.
#if defined(__GNUC__) && defined(__x86_64__) && !defined(_WIN32)
#define ARD_CLOTH_AVX 1
#include <immintrin.h>
#endif

namespace sim {

namespace {

constexpr uint32_t kCookedMagic = 0x4C435241;  // "ARCL" little-endian
constexpr uint32_t kCookedVersion = 1;
constexpr int kMaxColors = 64;
constexpr float kStretchCompliance = 0.0f;
constexpr float kShearCompliance = 1e-3f;
constexpr float kBendCompliance = 1e-3f;

float Dist(const std::vector<float>& p, uint32_t i, uint32_t j) {
    float dx = p[3 * j] - p[3 * i], dy = p[3 * j + 1] - p[3 * i + 1], dz = p[3 * j + 2] - p[3 * i + 2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

// The three per-vertex steps of a sub-step on all four lanes of a vertex,
// which round each lane as the lane-by-lane loop does.
// v += h * (gravity + wind * g); p = x; x += h * v
inline void PredictVertex(float* v, float* x, float* p, const float* gravity, const float* wind, float g, float h) {
#if defined(__SSE2__)
    __m128 hv = _mm_set1_ps(h), xv = _mm_loadu_ps(x);
    __m128 vv = _mm_add_ps(_mm_loadu_ps(v),
                           _mm_mul_ps(hv, _mm_add_ps(_mm_loadu_ps(gravity), _mm_mul_ps(_mm_loadu_ps(wind), _mm_set1_ps(g)))));
    _mm_storeu_ps(v, vv);
    _mm_storeu_ps(p, xv);
    _mm_storeu_ps(x, _mm_add_ps(xv, _mm_mul_ps(hv, vv)));
#else
    for (int a = 0; a < 4; ++a) {
        v[a] += h * (gravity[a] + wind[a] * g);
        p[a] = x[a];
        x[a] += h * v[a];
    }
#endif
}

// v = (x - p) / h
inline void VelocityOf(const float* x, const float* p, float h, float* v) {
#if defined(__SSE2__)
    _mm_storeu_ps(v, _mm_div_ps(_mm_sub_ps(_mm_loadu_ps(x), _mm_loadu_ps(p)), _mm_set1_ps(h)));
#else
    for (int a = 0; a < 4; ++a) v[a] = (x[a] - p[a]) / h;
#endif
}

// out = v * keep
inline void Scaled(const float* v, float keep, float* out) {
#if defined(__SSE2__)
    _mm_storeu_ps(out, _mm_mul_ps(_mm_loadu_ps(v), _mm_set1_ps(keep)));
#else
    for (int a = 0; a < 4; ++a) out[a] = v[a] * keep;
#endif
}

#if defined(ARD_CLOTH_AVX)
bool HasAvx() {
    static const bool has = __builtin_cpu_supports("avx");
    return has;
}

// x, y, z, w of eight vertices from (x, y, z, w) of each: r0 holds vertices 0
// and 4, r1 1 and 5 and so on; the same turn gives them back.
__attribute__((target("avx"))) inline void Turn8(__m256& r0, __m256& r1, __m256& r2, __m256& r3) {
    __m256 t0 = _mm256_unpacklo_ps(r0, r1), t1 = _mm256_unpackhi_ps(r0, r1);
    __m256 t2 = _mm256_unpacklo_ps(r2, r3), t3 = _mm256_unpackhi_ps(r2, r3);
    r0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
    r1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
    r2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
    r3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
}

__attribute__((target("avx"))) inline __m256 Pair(const float* lo, const float* hi) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lo)), _mm_loadu_ps(hi), 1);
}

__attribute__((target("avx"))) inline void Unpair(__m256 v, float* lo, float* hi) {
    _mm_storeu_ps(lo, _mm256_castps256_ps128(v));
    _mm_storeu_ps(hi, _mm256_extractf128_ps(v, 1));
}

// Solves blocks of eight constraints of one colour group from k on, with the
// arithmetic of one at a time; returns where it stopped: fewer than eight
// left, or a block with a constraint whose ends are in one place (unwritten).
__attribute__((target("avx"))) uint32_t SolveEight(const uint32_t* pairs, const float* rest, const float* compliance,
                                                   float* lambda, float* xw, uint32_t k, uint32_t end, float invH2) {
    const __m256 sign = _mm256_set1_ps(-0.0f), tiny = _mm256_set1_ps(1e-9f), invH2v = _mm256_set1_ps(invH2);
    for (; k + 8 <= end; k += 8) {
        const uint32_t* p = pairs + 2 * k;
        float* pa[8];
        float* pb[8];
        for (int q = 0; q < 8; ++q) pa[q] = xw + 4 * p[2 * q], pb[q] = xw + 4 * p[2 * q + 1];
        __m256 ax = Pair(pa[0], pa[4]), ay = Pair(pa[1], pa[5]), az = Pair(pa[2], pa[6]), wi = Pair(pa[3], pa[7]);
        __m256 bx = Pair(pb[0], pb[4]), by = Pair(pb[1], pb[5]), bz = Pair(pb[2], pb[6]), wj = Pair(pb[3], pb[7]);
        Turn8(ax, ay, az, wi);
        Turn8(bx, by, bz, wj);
        __m256 dx = _mm256_sub_ps(bx, ax), dy = _mm256_sub_ps(by, ay), dz = _mm256_sub_ps(bz, az);
        __m256 len = _mm256_sqrt_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(dx, dx), _mm256_mul_ps(dy, dy)),
                                                  _mm256_mul_ps(dz, dz)));
        if (_mm256_movemask_ps(_mm256_cmp_ps(len, tiny, _CMP_LT_OQ)) != 0) break;
        __m256 alpha = _mm256_mul_ps(_mm256_loadu_ps(compliance + k), invH2v);
        __m256 lam = _mm256_loadu_ps(lambda + k);
        __m256 dl = _mm256_div_ps(_mm256_sub_ps(_mm256_xor_ps(_mm256_sub_ps(len, _mm256_loadu_ps(rest + k)), sign),
                                                _mm256_mul_ps(alpha, lam)),
                                  _mm256_add_ps(_mm256_add_ps(wi, wj), alpha));
        _mm256_storeu_ps(lambda + k, _mm256_add_ps(lam, dl));
        __m256 s = _mm256_div_ps(dl, len);
        __m256 si = _mm256_mul_ps(wi, s), sj = _mm256_mul_ps(wj, s);
        ax = _mm256_sub_ps(ax, _mm256_mul_ps(si, dx)), ay = _mm256_sub_ps(ay, _mm256_mul_ps(si, dy));
        az = _mm256_sub_ps(az, _mm256_mul_ps(si, dz));
        bx = _mm256_add_ps(bx, _mm256_mul_ps(sj, dx)), by = _mm256_add_ps(by, _mm256_mul_ps(sj, dy));
        bz = _mm256_add_ps(bz, _mm256_mul_ps(sj, dz));
        Turn8(ax, ay, az, wi);
        Turn8(bx, by, bz, wj);
        Unpair(ax, pa[0], pa[4]), Unpair(ay, pa[1], pa[5]), Unpair(az, pa[2], pa[6]), Unpair(wi, pa[3], pa[7]);
        Unpair(bx, pb[0], pb[4]), Unpair(by, pb[1], pb[5]), Unpair(bz, pb[2], pb[6]), Unpair(wj, pb[3], pb[7]);
    }
    return k;
}
#endif

}  // namespace

int FixedStepper::Advance(float dt) {
    if (!(dt > 0.0f)) return 0;
    carry_ += dt;
    int n = static_cast<int>(carry_ / kSubStep + 1e-4f);
    if (n > kMaxSubSteps) {
        n = kMaxSubSteps;
        carry_ = 0.0f;
    } else {
        carry_ = std::max(0.0f, carry_ - n * kSubStep);
    }
    start_ = time_;
    time_ += n * kSubStep;
    return n;
}

ClothMesh BuildFlagMesh(const SceneDesc& d) {
    ClothMesh m;
    m.columns = d.flagColumns;
    m.rows = d.flagRows;
    if (m.columns < 2 || m.rows < 2) return m;
    float dx = d.flagWidth / (m.columns - 1), dy = d.flagHeight / (m.rows - 1);
    float top = d.poleBase[1] + d.poleHeight;
    for (int r = 0; r < m.rows; ++r) {
        for (int c = 0; c < m.columns; ++c) {
            m.positions.push_back(d.poleBase[0] + d.poleRadius + c * dx);
            m.positions.push_back(top - r * dy);
            m.positions.push_back(d.poleBase[2]);
            m.invMass.push_back(c == 0 ? 0.0f : 1.0f);
        }
    }
    for (int r = 0; r + 1 < m.rows; ++r) {
        for (int c = 0; c + 1 < m.columns; ++c) {
            uint32_t a = r * m.columns + c, b = a + 1, e = a + m.columns, f = e + 1;
            m.indices.insert(m.indices.end(), {a, e, b, b, e, f});
        }
    }
    return m;
}

bool BuildSupportMesh(const SceneDesc& d, StaticMeshes* out) {
    int sides = d.flagSupportValue;
    if (sides < 3 || !(d.poleRadius > 0.0f) || !(d.poleHeight > 0.0f)) return false;
    out->supportPositions.clear();
    out->supportNormals.clear();
    out->supportIndices.clear();
    const float kTau = 6.28318530718f;
    for (int s = 0; s <= sides; ++s) {
        float a = kTau * s / sides, cx = std::cos(a), cz = std::sin(a);
        for (int level = 0; level < 2; ++level) {
            out->supportPositions.insert(out->supportPositions.end(),
                                         {d.poleBase[0] + d.poleRadius * cx, d.poleBase[1] + level * d.poleHeight,
                                          d.poleBase[2] + d.poleRadius * cz});
            out->supportNormals.insert(out->supportNormals.end(), {cx, 0.0f, cz});
        }
    }
    for (uint32_t s = 0; s < static_cast<uint32_t>(sides); ++s) {
        uint32_t a = 2 * s, b = a + 1, c = a + 2, e = a + 3;
        out->supportIndices.insert(out->supportIndices.end(), {a, b, c, c, b, e});
    }
    // The top cap: a fan round a centre vertex.
    uint32_t centre = static_cast<uint32_t>(out->supportPositions.size() / 3);
    out->supportPositions.insert(out->supportPositions.end(),
                                 {d.poleBase[0], d.poleBase[1] + d.poleHeight, d.poleBase[2]});
    out->supportNormals.insert(out->supportNormals.end(), {0.0f, 1.0f, 0.0f});
    for (int s = 0; s <= sides; ++s) {
        float a = kTau * s / sides;
        out->supportPositions.insert(out->supportPositions.end(),
                                     {d.poleBase[0] + d.poleRadius * std::cos(a), d.poleBase[1] + d.poleHeight,
                                      d.poleBase[2] + d.poleRadius * std::sin(a)});
        out->supportNormals.insert(out->supportNormals.end(), {0.0f, 1.0f, 0.0f});
    }
    for (uint32_t s = 0; s < static_cast<uint32_t>(sides); ++s)
        out->supportIndices.insert(out->supportIndices.end(), {centre, centre + 2 + s, centre + 1 + s});
    return true;
}

bool CookedCloth::operator==(const CookedCloth& o) const {
    return vertexCount == o.vertexCount && pairs == o.pairs && restLength == o.restLength &&
           compliance == o.compliance && colorStart == o.colorStart;
}

bool CookCloth(const ClothMesh& mesh, CookedCloth* out, std::string* why) {
    const int C = mesh.columns, R = mesh.rows;
    const size_t n = static_cast<size_t>(C) * static_cast<size_t>(R);
    if (C < 2 || R < 2 || mesh.positions.size() != 3 * n || mesh.invMass.size() != n) {
        *why = "the mesh is not a grid of at least 2 x 2 vertices";
        return false;
    }
    for (float p : mesh.positions)
        if (!std::isfinite(p)) {
            *why = "the mesh has a vertex that is not a number";
            return false;
        }
    struct Raw {
        uint32_t i, j;
        float compliance;
    };
    std::vector<Raw> raw;
    auto at = [C](int c, int r) { return static_cast<uint32_t>(r * C + c); };
    for (int r = 0; r < R; ++r)
        for (int c = 0; c < C; ++c) {
            if (c + 1 < C) raw.push_back({at(c, r), at(c + 1, r), kStretchCompliance});
            if (r + 1 < R) raw.push_back({at(c, r), at(c, r + 1), kStretchCompliance});
            if (c + 1 < C && r + 1 < R) {
                raw.push_back({at(c, r), at(c + 1, r + 1), kShearCompliance});
                raw.push_back({at(c + 1, r), at(c, r + 1), kShearCompliance});
            }
            if (c + 2 < C) raw.push_back({at(c, r), at(c + 2, r), kBendCompliance});
            if (r + 2 < R) raw.push_back({at(c, r), at(c, r + 2), kBendCompliance});
        }
    // Greedy colouring: the first colour neither end uses yet.
    std::vector<uint64_t> used(n, 0);
    std::vector<int> color(raw.size());
    int colors = 0;
    for (size_t k = 0; k < raw.size(); ++k) {
        if (mesh.invMass[raw[k].i] == 0.0f && mesh.invMass[raw[k].j] == 0.0f) {
            color[k] = -1;  // both ends pinned: nothing to solve
            continue;
        }
        uint64_t busy = used[raw[k].i] | used[raw[k].j];
        int c = 0;
        while (c < kMaxColors && (busy >> c) & 1u) ++c;
        if (c == kMaxColors) {
            *why = "the constraints need more colour groups than the solver has";
            return false;
        }
        color[k] = c;
        used[raw[k].i] |= uint64_t(1) << c;
        used[raw[k].j] |= uint64_t(1) << c;
        colors = std::max(colors, c + 1);
    }
    CookedCloth cooked;
    cooked.vertexCount = static_cast<uint32_t>(n);
    cooked.colorStart.push_back(0);
    for (int c = 0; c < colors; ++c) {
        for (size_t k = 0; k < raw.size(); ++k) {
            if (color[k] != c) continue;
            float rest = Dist(mesh.positions, raw[k].i, raw[k].j);
            if (!(rest > 1e-6f)) {
                *why = "the mesh has two vertices in one place";
                return false;
            }
            cooked.pairs.push_back(raw[k].i);
            cooked.pairs.push_back(raw[k].j);
            cooked.restLength.push_back(rest);
            cooked.compliance.push_back(raw[k].compliance);
        }
        cooked.colorStart.push_back(static_cast<uint32_t>(cooked.restLength.size()));
    }
    *out = std::move(cooked);
    return true;
}

void WriteCooked(const CookedCloth& cooked, Stream& out) {
    MemoryWriteBuffer body;
    body.StoreDword(cooked.vertexCount);
    body.StoreDword(static_cast<uint32_t>(cooked.ConstraintCount()));
    body.StoreDword(static_cast<uint32_t>(cooked.colorStart.size()));
    for (uint32_t v : cooked.pairs) body.StoreDword(v);
    for (float v : cooked.restLength) body.StoreFloat(v);
    for (float v : cooked.compliance) body.StoreFloat(v);
    for (uint32_t v : cooked.colorStart) body.StoreDword(v);
    out.StoreDword(kCookedMagic).StoreDword(kCookedVersion).StoreDword(static_cast<uint32_t>(body.Size()));
    out.StoreDword(Checksum32(body.Data().data(), body.Size()));
    out.StoreBuffer(body.Data().data(), body.Size());
}

bool ReadCooked(Stream& in, CookedCloth* out, std::string* why) {
    uint32_t magic = in.ReadDword(), version = in.ReadDword(), size = in.ReadDword(), sum = in.ReadDword();
    if (!in.Ok() || magic != kCookedMagic) {
        *why = "not cooked cloth data";
        return false;
    }
    if (version != kCookedVersion) {
        *why = "cooked by another version";
        return false;
    }
    if (size > (256u << 20)) {
        *why = "size out of range";
        return false;
    }
    std::vector<uint8_t> body(size);
    in.ReadBuffer(body.data(), size);
    if (!in.Ok()) {
        *why = "cut short";
        return false;
    }
    if (Checksum32(body.data(), size) != sum) {
        *why = "checksum mismatch";
        return false;
    }
    MemoryReadBuffer b(body.data(), body.size());
    CookedCloth c;
    c.vertexCount = b.ReadDword();
    uint32_t count = b.ReadDword(), starts = b.ReadDword();
    if (!b.Ok() || static_cast<uint64_t>(count) * 16 + static_cast<uint64_t>(starts) * 4 != b.Remaining()) {
        *why = "sizes do not add up";
        return false;
    }
    c.pairs.resize(2 * size_t(count));
    c.restLength.resize(count);
    c.compliance.resize(count);
    c.colorStart.resize(starts);
    for (auto& v : c.pairs) v = b.ReadDword();
    for (auto& v : c.restLength) v = b.ReadFloat();
    for (auto& v : c.compliance) v = b.ReadFloat();
    for (auto& v : c.colorStart) v = b.ReadDword();
    *out = std::move(c);
    return true;
}

bool ValidateCooked(const CookedCloth& c, const ClothMesh& mesh, std::string* why) {
    size_t n = mesh.invMass.size();
    if (c.vertexCount != n || c.colorStart.empty() || c.colorStart.front() != 0 ||
        c.colorStart.back() != c.ConstraintCount() || c.pairs.size() != 2 * c.ConstraintCount()) {
        *why = "cooked data does not fit the mesh";
        return false;
    }
    std::vector<uint32_t> seen(n, UINT32_MAX);
    for (size_t g = 0; g + 1 < c.colorStart.size(); ++g) {
        if (c.colorStart[g] > c.colorStart[g + 1]) {
            *why = "colour groups out of order";
            return false;
        }
        for (uint32_t k = c.colorStart[g]; k < c.colorStart[g + 1]; ++k) {
            uint32_t i = c.pairs[2 * k], j = c.pairs[2 * k + 1];
            if (i >= n || j >= n || i == j || seen[i] == g || seen[j] == g) {
                *why = "a constraint outside the mesh or sharing a vertex within its group";
                return false;
            }
            if (!(c.restLength[k] > 0.0f) || !std::isfinite(c.restLength[k]) || !(c.compliance[k] >= 0.0f)) {
                *why = "a constraint with an impossible length";
                return false;
            }
            seen[i] = seen[j] = static_cast<uint32_t>(g);
        }
    }
    return true;
}

bool ClothSolver::Init(const ClothMesh& mesh, const CookedCloth& cooked, const ClothParams& params,
                       std::string* why) {
    if (!ValidateCooked(cooked, mesh, why)) return false;
    x_ = mesh.positions;
    v_.assign(x_.size(), 0.0f);
    w_ = mesh.invMass;
    xw_.resize(4 * w_.size());
    for (size_t i = 0; i < w_.size(); ++i) {
        std::memcpy(&xw_[4 * i], &x_[3 * i], 3 * sizeof(float));
        xw_[4 * i + 3] = w_[i];
    }
    prevw_ = xw_;
    vw_.assign(xw_.size(), 0.0f);
    cooked_ = cooked;
    lambda_.assign(cooked_.ConstraintCount(), 0.0f);
    params_ = params;
    stepper_ = FixedStepper();
    return true;
}

float WindGust(uint32_t i, float t) { return 1.0f + 0.5f * std::sin(1.7f * t + 0.37f * static_cast<float>(i % 97u)); }

int ClothSolver::Simulate(float dt) {
    int n = stepper_.Advance(dt);
    for (int s = 0; s < n; ++s) SubStep(kSubStep, stepper_.StartTime() + s * kSubStep);
    for (size_t i = 0; n > 0 && i < w_.size(); ++i) {
        std::memcpy(&x_[3 * i], &xw_[4 * i], 3 * sizeof(float));
        std::memcpy(&v_[3 * i], &vw_[4 * i], 3 * sizeof(float));
    }
    return n;
}

void ClothSolver::SubStep(float h, float t) {
    const size_t n = w_.size();
    // Whole vertices at a time: the fourth lane carries the inverse mass
    // through untouched (velocity 0 there).
    const float wind[4] = {params_.wind[0], params_.wind[1], params_.wind[2], 0.0f};
    const float gravity[4] = {0.0f, kGravityY, 0.0f, 0.0f};
    // The gust of vertex i depends on i % 97 only: one sine per phase, not per vertex.
    float gust[kGustPhases];
    for (uint32_t k = 0; k < kGustPhases; ++k) gust[k] = WindGust(k, t);
    for (size_t i = 0; i < n; ++i) {
        if (w_[i] == 0.0f) continue;
        float g = gust[i % kGustPhases];
        PredictVertex(&vw_[4 * i], &xw_[4 * i], &prevw_[4 * i], gravity, wind, g, h);
    }
    std::fill(lambda_.begin(), lambda_.end(), 0.0f);
    const float invH2 = 1.0f / (h * h);
    for (int it = 0; it < params_.iterations; ++it)
        for (size_t c = 0; c + 1 < cooked_.colorStart.size(); ++c)
            SolveConstraints(cooked_.colorStart[c], cooked_.colorStart[c + 1], invH2);
    const float r0 = params_.thickness;
    const float floor = params_.groundHeight + r0;
    const float keep = std::max(0.0f, 1.0f - params_.damping * h);
    for (size_t i = 0; i < n; ++i) {
        if (w_[i] == 0.0f) continue;
        float* x = &xw_[4 * i];
        const float* p = &prevw_[4 * i];
        float v[4];
        VelocityOf(x, p, h, v);
        float nrm[3] = {0, 0, 0};
        bool contact = false;
        if (x[1] < floor) {
            x[1] = floor;
            nrm[1] = 1.0f;
            contact = true;
        }
        for (const Sphere& sp : params_.spheres) {
            float d[3] = {x[0] - sp.center[0], x[1] - sp.center[1], x[2] - sp.center[2]};
            float dist = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
            float r = sp.radius + r0;
            if (dist < r && dist > 1e-6f) {
                for (int a = 0; a < 3; ++a) {
                    nrm[a] = d[a] / dist;
                    x[a] = sp.center[a] + nrm[a] * r;
                }
                contact = true;
            }
        }
        if (contact) {
            // Bounce off what was hit and slide along it with friction.
            float vn = v[0] * nrm[0] + v[1] * nrm[1] + v[2] * nrm[2];
            float vt[3] = {v[0] - vn * nrm[0], v[1] - vn * nrm[1], v[2] - vn * nrm[2]};
            float vtLen = std::sqrt(vt[0] * vt[0] + vt[1] * vt[1] + vt[2] * vt[2]);
            float newVn = vn < 0.0f ? -kRestitution * vn : vn;
            if (vn < 0.0f && -vn < 2.0f * 9.8f * h) newVn = 0.0f;  // resting contact: no jitter
            float scale = vtLen > 1e-9f ? std::max(0.0f, 1.0f - kFriction * std::fabs(newVn - vn) / vtLen) : 0.0f;
            for (int a = 0; a < 3; ++a) v[a] = vt[a] * scale + newVn * nrm[a];
        }
        Scaled(v, keep, &vw_[4 * i]);
    }
}

// One colour group: no two of its constraints share a vertex, so they can be
// solved four at a time with exactly the arithmetic of one at a time (the
// same operations in the same order, and SSE rounds as scalar code does).
void ClothSolver::SolveConstraints(uint32_t k, uint32_t end, float invH2) {
    const uint32_t* pairs = cooked_.pairs.data();
    const float* rest = cooked_.restLength.data();
    const float* compliance = cooked_.compliance.data();
    float* lambda = lambda_.data();
    float* xw = xw_.data();
    auto one = [&](uint32_t k) {
        float* a = xw + 4 * pairs[2 * k];
        float* b = xw + 4 * pairs[2 * k + 1];
        float wi = a[3], wj = b[3];
        float dx = b[0] - a[0], dy = b[1] - a[1], dz = b[2] - a[2];
        float len = std::sqrt(dx * dx + dy * dy + dz * dz);
        if (len < 1e-9f) return;
        float alpha = compliance[k] * invH2;
        float dl = (-(len - rest[k]) - alpha * lambda[k]) / (wi + wj + alpha);
        lambda[k] += dl;
        float s = dl / len;
        a[0] -= wi * s * dx, a[1] -= wi * s * dy, a[2] -= wi * s * dz;
        b[0] += wj * s * dx, b[1] += wj * s * dy, b[2] += wj * s * dz;
    };
#if defined(ARD_CLOTH_AVX)
    if (HasAvx()) {
        for (;;) {
            k = SolveEight(pairs, rest, compliance, lambda, xw, k, end, invH2);
            if (k + 8 > end) break;
            for (uint32_t q = 0; q < 8; ++q) one(k + q);  // the block it stopped at
            k += 8;
        }
    }
#endif
#if defined(__SSE2__)
    const __m128 sign = _mm_set1_ps(-0.0f), tiny = _mm_set1_ps(1e-9f), invH2v = _mm_set1_ps(invH2);
    for (; k + 4 <= end; k += 4) {
        const uint32_t* p = pairs + 2 * k;
        float* pa[4] = {xw + 4 * p[0], xw + 4 * p[2], xw + 4 * p[4], xw + 4 * p[6]};
        float* pb[4] = {xw + 4 * p[1], xw + 4 * p[3], xw + 4 * p[5], xw + 4 * p[7]};
        // Four vertices' (x, y, z, w) turned into x, y, z and w of four vertices.
        __m128 ax = _mm_loadu_ps(pa[0]), ay = _mm_loadu_ps(pa[1]), az = _mm_loadu_ps(pa[2]), wi = _mm_loadu_ps(pa[3]);
        __m128 bx = _mm_loadu_ps(pb[0]), by = _mm_loadu_ps(pb[1]), bz = _mm_loadu_ps(pb[2]), wj = _mm_loadu_ps(pb[3]);
        _MM_TRANSPOSE4_PS(ax, ay, az, wi);
        _MM_TRANSPOSE4_PS(bx, by, bz, wj);
        __m128 dx = _mm_sub_ps(bx, ax), dy = _mm_sub_ps(by, ay), dz = _mm_sub_ps(bz, az);
        __m128 len = _mm_sqrt_ps(
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)), _mm_mul_ps(dz, dz)));
        if (_mm_movemask_ps(_mm_cmplt_ps(len, tiny)) != 0) {
            // A constraint without a direction (its ends in one place): this
            // block goes one at a time, which skips it. Nothing of the block
            // has been written yet.
            for (uint32_t q = 0; q < 4; ++q) one(k + q);
            continue;
        }
        __m128 alpha = _mm_mul_ps(_mm_loadu_ps(compliance + k), invH2v);
        __m128 lam = _mm_loadu_ps(lambda + k);
        __m128 dl = _mm_div_ps(
            _mm_sub_ps(_mm_xor_ps(_mm_sub_ps(len, _mm_loadu_ps(rest + k)), sign), _mm_mul_ps(alpha, lam)),
            _mm_add_ps(_mm_add_ps(wi, wj), alpha));
        _mm_storeu_ps(lambda + k, _mm_add_ps(lam, dl));
        __m128 s = _mm_div_ps(dl, len);
        __m128 si = _mm_mul_ps(wi, s), sj = _mm_mul_ps(wj, s);
        ax = _mm_sub_ps(ax, _mm_mul_ps(si, dx)), ay = _mm_sub_ps(ay, _mm_mul_ps(si, dy));
        az = _mm_sub_ps(az, _mm_mul_ps(si, dz));
        bx = _mm_add_ps(bx, _mm_mul_ps(sj, dx)), by = _mm_add_ps(by, _mm_mul_ps(sj, dy));
        bz = _mm_add_ps(bz, _mm_mul_ps(sj, dz));
        _MM_TRANSPOSE4_PS(ax, ay, az, wi);
        _MM_TRANSPOSE4_PS(bx, by, bz, wj);
        _mm_storeu_ps(pa[0], ax), _mm_storeu_ps(pa[1], ay), _mm_storeu_ps(pa[2], az), _mm_storeu_ps(pa[3], wi);
        _mm_storeu_ps(pb[0], bx), _mm_storeu_ps(pb[1], by), _mm_storeu_ps(pb[2], bz), _mm_storeu_ps(pb[3], wj);
    }
#endif
    for (; k < end; ++k) one(k);
}

void ComputeNormals(const std::vector<float>& p, const std::vector<uint32_t>& idx, std::vector<float>* normals) {
    normals->assign(p.size(), 0.0f);
    float* nrm = normals->data();
    for (size_t t = 0; t + 2 < idx.size(); t += 3) {
        const float* a = &p[3 * idx[t]];
        const float* b = &p[3 * idx[t + 1]];
        const float* c = &p[3 * idx[t + 2]];
        float u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
        float f[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
        for (int k = 0; k < 3; ++k)
            for (int a2 = 0; a2 < 3; ++a2) nrm[3 * idx[t + k] + a2] += f[a2];
    }
    for (size_t i = 0; i + 2 < normals->size(); i += 3) {
        float l = std::sqrt(nrm[i] * nrm[i] + nrm[i + 1] * nrm[i + 1] + nrm[i + 2] * nrm[i + 2]);
        if (l > 1e-12f)
            for (int a = 0; a < 3; ++a) nrm[i + a] /= l;
    }
}

}  // namespace sim
