// Small vector and matrix helpers for the scenes: 3- and 4-component float
// vectors and 4x4 float matrices stored column-major (element (row, col) at
// m[col * 4 + row]), the layout OpenGL and the shader uniforms take as they
// are. Matrices act on column vectors: Transform(A * B, v) applies B first.
// Angles are in degrees, as the scenes state them.
#pragma once

namespace m3d {

constexpr float kPi = 3.14159265358979323846f;

inline float DegToRad(float degrees) { return degrees * (kPi / 180.0f); }

struct Vec3 {
    float x = 0.0f, y = 0.0f, z = 0.0f;
};

struct Vec4 {
    float x = 0.0f, y = 0.0f, z = 0.0f, w = 0.0f;
};

inline Vec3 operator+(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator-(const Vec3& a) { return {-a.x, -a.y, -a.z}; }
inline Vec3 operator*(const Vec3& a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Vec3 operator*(float s, const Vec3& a) { return a * s; }
inline float Dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 Cross(const Vec3& a, const Vec3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
float Length(const Vec3& a);
// The zero vector stays zero rather than turning into NaNs.
Vec3 Normalize(const Vec3& a);

struct Mat4 {
    float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  // identity

    float& at(int row, int col) { return m[col * 4 + row]; }
    float at(int row, int col) const { return m[col * 4 + row]; }
    const float* data() const { return m; }
};

Mat4 Identity();
Mat4 operator*(const Mat4& a, const Mat4& b);
Mat4 Transpose(const Mat4& a);

Mat4 Translation(const Vec3& t);
Mat4 Scaling(const Vec3& s);
// Right-handed rotations: a positive angle turns counter-clockwise when
// looking down the axis towards the origin.
Mat4 RotationX(float degrees);
Mat4 RotationY(float degrees);
Mat4 RotationZ(float degrees);

// Right-handed perspective projection into OpenGL clip space (z from -w at
// the near plane to +w at the far plane). fovYDegrees is the full vertical
// field of view; aspect is width / height.
Mat4 Perspective(float fovYDegrees, float aspect, float zNear, float zFar);
// A camera at `eye` looking at `center`, `up` giving the roll; the result
// maps world space into eye space (camera at the origin looking down -Z).
Mat4 LookAt(const Vec3& eye, const Vec3& center, const Vec3& up);

Vec4 Transform(const Mat4& a, const Vec4& v);
// The point (w = 1), without the perspective divide.
Vec3 TransformPoint(const Mat4& a, const Vec3& p);
// The direction (w = 0): translation does not apply.
Vec3 TransformDirection(const Mat4& a, const Vec3& d);

}  // namespace m3d
