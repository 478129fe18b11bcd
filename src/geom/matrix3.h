// A 4x3 affine matrix in row-vector convention: a point p maps to p x M, rows 0..2 are the
// images of the X, Y and Z axes and row 3 is the translation. Products read left to right:
// A * B applies A first, then B.
#pragma once

#include "geom/point.h"

namespace kv {

struct Quat;

class Matrix3 {
 public:
  // Identity.
  constexpr Matrix3() : rows_{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}} {}
  constexpr Matrix3(const Point3& r0, const Point3& r1, const Point3& r2, const Point3& r3)
      : rows_{r0, r1, r2, r3} {}
  // From 12 floats, row by row (the order of a stored sample transform).
  static Matrix3 FromFloats(const float* twelve);
  void ToFloats(float* twelve) const;

  constexpr const Point3& GetRow(int i) const { return rows_[i]; }
  constexpr void SetRow(int i, const Point3& p) { rows_[i] = p; }
  constexpr Point3 GetTrans() const { return rows_[3]; }
  constexpr void SetTrans(const Point3& p) { rows_[3] = p; }
  constexpr void NoTrans() { rows_[3] = {}; }
  constexpr void IdentityMatrix() { *this = Matrix3(); }
  bool IsIdentity(float eps = 0.0f) const;

  // p x M, and the vector part alone (no translation).
  constexpr Point3 PointTransform(const Point3& p) const {
    return {p.x * rows_[0].x + p.y * rows_[1].x + p.z * rows_[2].x + rows_[3].x,
            p.x * rows_[0].y + p.y * rows_[1].y + p.z * rows_[2].y + rows_[3].y,
            p.x * rows_[0].z + p.y * rows_[1].z + p.z * rows_[2].z + rows_[3].z};
  }
  constexpr Point3 VectorTransform(const Point3& p) const {
    return {p.x * rows_[0].x + p.y * rows_[1].x + p.z * rows_[2].x,
            p.x * rows_[0].y + p.y * rows_[1].y + p.z * rows_[2].y,
            p.x * rows_[0].z + p.y * rows_[1].z + p.z * rows_[2].z};
  }

  Matrix3 operator*(const Matrix3& b) const;
  Matrix3& operator*=(const Matrix3& b) { return *this = *this * b; }
  Matrix3 operator*(float s) const;  // every element, translation included
  bool operator==(const Matrix3& o) const;
  bool Equals(const Matrix3& o, float eps) const;

  // Determinant of the 3x3 part; negative for a mirroring matrix.
  float Determinant() const;
  bool Parity() const { return Determinant() < 0; }

  // Post forms apply the operation after the matrix (M = M x Op); pre forms before (M = Op x M).
  void Translate(const Point3& p);
  void PreTranslate(const Point3& p);
  void Rotate(const Quat& q);
  void PreRotate(const Quat& q);
  void RotateX(float angle);
  void RotateY(float angle);
  void RotateZ(float angle);
  void Scale(const Point3& s, bool scaleTrans = true);
  void PreScale(const Point3& s);

 private:
  Point3 rows_[4];
};

inline Point3 operator*(const Point3& p, const Matrix3& m) {
  return m.PointTransform(p);
}
inline Point3 VectorTransform(const Matrix3& m, const Point3& v) {
  return m.VectorTransform(v);
}

// Inverse of an affine matrix. A singular 3x3 part gives the identity with the negated
// translation, so callers never see NaN.
Matrix3 Inverse(const Matrix3& m);

Matrix3 TransMatrix(const Point3& p);
Matrix3 ScaleMatrix(const Point3& s);
Matrix3 RotateXMatrix(float angle);  // radians, right-handed about +X
Matrix3 RotateYMatrix(float angle);
Matrix3 RotateZMatrix(float angle);
Matrix3 RotAngleAxisMatrix(const Point3& axis, float angle);

}  // namespace kv
