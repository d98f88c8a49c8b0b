#include "render/math3d.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace m3d;

namespace {

void ExpectVec(const Vec3& v, float x, float y, float z, float eps = 1e-5f) {
    EXPECT_NEAR(v.x, x, eps);
    EXPECT_NEAR(v.y, y, eps);
    EXPECT_NEAR(v.z, z, eps);
}

Mat4 Sequential() {
    Mat4 a;
    for (int i = 0; i < 16; ++i) a.m[i] = static_cast<float>(i + 1);
    return a;
}

}  // namespace

TEST(Math3dMatrix, StorageIsColumnMajor) {
    const Mat4 t = Translation(Vec3{3, 4, 5});
    // The translation sits in the last column, elements 12..14.
    EXPECT_EQ(t.m[12], 3.0f);
    EXPECT_EQ(t.m[13], 4.0f);
    EXPECT_EQ(t.m[14], 5.0f);
    EXPECT_EQ(t.at(0, 3), 3.0f);
    EXPECT_EQ(t.m[3], 0.0f);
    ExpectVec(TransformPoint(t, Vec3{1, 1, 1}), 4, 5, 6);
    ExpectVec(TransformDirection(t, Vec3{1, 1, 1}), 1, 1, 1);
}

TEST(Math3dMatrix, MultiplyFollowsRowTimesColumn) {
    const Mat4 a = Sequential();
    const Mat4 b = Transpose(Sequential());
    const Mat4 p = a * b;
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            float s = 0;
            for (int k = 0; k < 4; ++k) s += a.at(r, k) * b.at(k, c);
            EXPECT_EQ(p.at(r, c), s) << r << "," << c;
        }
    }
    // Not commutative, and the identity is neutral on both sides.
    EXPECT_NE((b * a).at(0, 0), p.at(0, 0));
    const Mat4 ia = Identity() * a, ai = a * Identity();
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(ia.m[i], a.m[i]);
        EXPECT_EQ(ai.m[i], a.m[i]);
    }
    // Composition applies the right-hand matrix first.
    const Mat4 ts = Translation(Vec3{10, 0, 0}) * Scaling(Vec3{2, 2, 2});
    ExpectVec(TransformPoint(ts, Vec3{1, 1, 1}), 12, 2, 2);
}

TEST(Math3dRotation, RightHandedAxes) {
    ExpectVec(TransformDirection(RotationX(90), Vec3{0, 1, 0}), 0, 0, 1);
    ExpectVec(TransformDirection(RotationY(90), Vec3{0, 0, 1}), 1, 0, 0);
    ExpectVec(TransformDirection(RotationZ(90), Vec3{1, 0, 0}), 0, 1, 0);
    ExpectVec(TransformDirection(RotationY(-90), Vec3{1, 0, 0}), 0, 0, 1);
    // The axis itself stays put.
    ExpectVec(TransformDirection(RotationX(37), Vec3{1, 0, 0}), 1, 0, 0);
    ExpectVec(TransformDirection(RotationY(37), Vec3{0, 1, 0}), 0, 1, 0);
}

TEST(Math3dRotation, QuarterTurnsAreExact) {
    const Mat4 r = RotationY(90);
    const Vec3 v = TransformDirection(r, Vec3{1, 0, 0});
    EXPECT_EQ(v.x, 0.0f);
    EXPECT_EQ(v.y, 0.0f);
    EXPECT_EQ(v.z, -1.0f);
    const Vec3 w = TransformDirection(RotationX(-270), Vec3{0, 1, 0});
    EXPECT_EQ(w.z, 1.0f);
    EXPECT_EQ(w.y, 0.0f);
}

TEST(Math3dRotation, ComposesAndPreservesLength) {
    const Mat4 a = RotationZ(30) * RotationZ(60);
    const Mat4 b = RotationZ(90);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(a.m[i], b.m[i], 1e-6f);
    const Vec3 p{3, -4, 12};
    const Vec3 q = TransformDirection(RotationX(23) * RotationY(-71), p);
    EXPECT_NEAR(Length(q), 13.0f, 1e-4f);
    // The inverse of a rotation is its transpose.
    const Mat4 r = RotationX(23) * RotationY(-71);
    const Mat4 id = r * Transpose(r);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(id.m[i], Identity().m[i], 1e-6f);
}

TEST(Math3dProjection, PerspectiveMapsFrustumToClipCube) {
    const float n = 1.0f, f = 10000.0f, aspect = 2.0f;
    const Mat4 p = Perspective(60.0f, aspect, n, f);
    const auto ndc = [&](Vec3 v) {
        const Vec4 c = Transform(p, Vec4{v.x, v.y, v.z, 1});
        return Vec3{c.x / c.w, c.y / c.w, c.z / c.w};
    };
    EXPECT_NEAR(ndc(Vec3{0, 0, -n}).z, -1.0f, 1e-5f);
    EXPECT_NEAR(ndc(Vec3{0, 0, -f}).z, 1.0f, 1e-3f);
    // The top of the field of view (30 degrees up at distance 10) lands on
    // the top edge; the right edge is aspect times wider.
    const float up = 10.0f * std::tan(DegToRad(30.0f));
    EXPECT_NEAR(ndc(Vec3{0, up, -10}).y, 1.0f, 1e-5f);
    EXPECT_NEAR(ndc(Vec3{up * aspect, 0, -10}).x, 1.0f, 1e-5f);
    // Further away means smaller.
    EXPECT_LT(ndc(Vec3{5, 5, -100}).x, ndc(Vec3{5, 5, -50}).x);
}

TEST(Math3dProjection, LookAtPutsEyeAtOriginLookingDownMinusZ) {
    const Vec3 eye{0, 20, 140};
    const Mat4 v = LookAt(eye, Vec3{0, 0, 0}, Vec3{0, 1, 0});
    ExpectVec(TransformPoint(v, eye), 0, 0, 0, 1e-4f);
    const float dist = std::sqrt(20.0f * 20.0f + 140.0f * 140.0f);
    ExpectVec(TransformPoint(v, Vec3{0, 0, 0}), 0, 0, -dist, 1e-3f);
    // World +X stays to the right, and up stays up (positive eye-space y).
    EXPECT_GT(TransformDirection(v, Vec3{1, 0, 0}).x, 0.99f);
    EXPECT_GT(TransformDirection(v, Vec3{0, 1, 0}).y, 0.9f);
}

TEST(Math3dVector, Basics) {
    ExpectVec(Cross(Vec3{1, 0, 0}, Vec3{0, 1, 0}), 0, 0, 1);
    EXPECT_FLOAT_EQ(Dot(Vec3{1, 2, 3}, Vec3{4, -5, 6}), 12.0f);
    ExpectVec(Normalize(Vec3{0, 3, 4}), 0, 0.6f, 0.8f);
    // The zero vector stays zero instead of becoming NaN.
    const Vec3 z = Normalize(Vec3{0, 0, 0});
    EXPECT_EQ(z.x, 0.0f);
    EXPECT_FALSE(std::isnan(z.y));
}
