#include "render/math3d.h"

#include <cmath>

namespace m3d {

float Length(const Vec3& a) { return std::sqrt(Dot(a, a)); }

Vec3 Normalize(const Vec3& a) {
    const float len = Length(a);
    if (len <= 0.0f) return a;
    return a * (1.0f / len);
}

Mat4 Identity() { return Mat4{}; }

Mat4 operator*(const Mat4& a, const Mat4& b) {
    Mat4 r;
    for (int col = 0; col < 4; ++col) {
        for (int row = 0; row < 4; ++row) {
            float s = 0.0f;
            for (int k = 0; k < 4; ++k) s += a.at(row, k) * b.at(k, col);
            r.at(row, col) = s;
        }
    }
    return r;
}

Mat4 Transpose(const Mat4& a) {
    Mat4 r;
    for (int col = 0; col < 4; ++col)
        for (int row = 0; row < 4; ++row) r.at(row, col) = a.at(col, row);
    return r;
}

Mat4 Translation(const Vec3& t) {
    Mat4 r;
    r.at(0, 3) = t.x;
    r.at(1, 3) = t.y;
    r.at(2, 3) = t.z;
    return r;
}

Mat4 Scaling(const Vec3& s) {
    Mat4 r;
    r.at(0, 0) = s.x;
    r.at(1, 1) = s.y;
    r.at(2, 2) = s.z;
    return r;
}

namespace {

// Rotation in the plane of axes i and j (i towards j for a positive angle).
Mat4 PlaneRotation(int i, int j, float degrees) {
    // Whole quarter turns come out exact, so a 90 degree turn maps axes onto
    // axes without a stray 1e-8 that would make symmetric meshes differ.
    float c, s;
    const float turns = degrees / 90.0f;
    if (turns == std::floor(turns)) {
        static const float kCos[4] = {1, 0, -1, 0};
        static const float kSin[4] = {0, 1, 0, -1};
        const int q = static_cast<int>(std::fmod(std::fmod(turns, 4.0f) + 4.0f, 4.0f));
        c = kCos[q];
        s = kSin[q];
    } else {
        const float rad = DegToRad(degrees);
        c = std::cos(rad);
        s = std::sin(rad);
    }
    Mat4 r;
    r.at(i, i) = c;
    r.at(j, j) = c;
    r.at(j, i) = s;
    r.at(i, j) = -s;
    return r;
}

}  // namespace

Mat4 RotationX(float degrees) { return PlaneRotation(1, 2, degrees); }
Mat4 RotationY(float degrees) { return PlaneRotation(2, 0, degrees); }
Mat4 RotationZ(float degrees) { return PlaneRotation(0, 1, degrees); }

Mat4 Perspective(float fovYDegrees, float aspect, float zNear, float zFar) {
    const float f = 1.0f / std::tan(DegToRad(fovYDegrees) * 0.5f);
    Mat4 r;
    r.at(0, 0) = f / aspect;
    r.at(1, 1) = f;
    r.at(2, 2) = (zFar + zNear) / (zNear - zFar);
    r.at(2, 3) = 2.0f * zFar * zNear / (zNear - zFar);
    r.at(3, 2) = -1.0f;
    r.at(3, 3) = 0.0f;
    return r;
}

Mat4 LookAt(const Vec3& eye, const Vec3& center, const Vec3& up) {
    const Vec3 f = Normalize(center - eye);
    const Vec3 s = Normalize(Cross(f, up));
    const Vec3 u = Cross(s, f);
    Mat4 r;
    r.at(0, 0) = s.x;
    r.at(0, 1) = s.y;
    r.at(0, 2) = s.z;
    r.at(1, 0) = u.x;
    r.at(1, 1) = u.y;
    r.at(1, 2) = u.z;
    r.at(2, 0) = -f.x;
    r.at(2, 1) = -f.y;
    r.at(2, 2) = -f.z;
    r.at(0, 3) = -Dot(s, eye);
    r.at(1, 3) = -Dot(u, eye);
    r.at(2, 3) = Dot(f, eye);
    return r;
}

Vec4 Transform(const Mat4& a, const Vec4& v) {
    return {a.at(0, 0) * v.x + a.at(0, 1) * v.y + a.at(0, 2) * v.z + a.at(0, 3) * v.w,
            a.at(1, 0) * v.x + a.at(1, 1) * v.y + a.at(1, 2) * v.z + a.at(1, 3) * v.w,
            a.at(2, 0) * v.x + a.at(2, 1) * v.y + a.at(2, 2) * v.z + a.at(2, 3) * v.w,
            a.at(3, 0) * v.x + a.at(3, 1) * v.y + a.at(3, 2) * v.z + a.at(3, 3) * v.w};
}

Vec3 TransformPoint(const Mat4& a, const Vec3& p) {
    const Vec4 r = Transform(a, Vec4{p.x, p.y, p.z, 1.0f});
    return {r.x, r.y, r.z};
}

Vec3 TransformDirection(const Mat4& a, const Vec3& d) {
    const Vec4 r = Transform(a, Vec4{d.x, d.y, d.z, 0.0f});
    return {r.x, r.y, r.z};
}

}  // namespace m3d
