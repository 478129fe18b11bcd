// Unit quaternions for rotations.
//
// Convention: a quaternion q represents the rotation p' = q p q^-1 (Hamilton product,
// right-handed, counter-clockwise about its axis, as glTF uses). Its matrix in our row-vector
// convention is the transpose of the usual column-vector matrix, so that
// p * q.ToMatrix() == q.Rotate(p). Products compose like matrices: (a * b).ToMatrix() ==
// a.ToMatrix() * b.ToMatrix(), i.e. a is applied first.
#pragma once

#include "geom/matrix3.h"
#include "geom/point.h"

namespace kv {

struct AngAxis {
  Point3 axis{0, 0, 1};
  float angle = 0;  // radians
};

struct Quat {
  float x = 0, y = 0, z = 0, w = 1;

  constexpr Quat() = default;
  constexpr Quat(float x_, float y_, float z_, float w_) : x(x_), y(y_), z(z_), w(w_) {}
  // The rotation part of a matrix (any scale is removed first).
  explicit Quat(const Matrix3& m);
  explicit Quat(const AngAxis& aa);

  static constexpr Quat Identity() { return {}; }

  Matrix3 ToMatrix() const;
  AngAxis ToAngAxis() const;
  Point3 Rotate(const Point3& p) const;

  constexpr float Dot(const Quat& o) const { return x * o.x + y * o.y + z * o.z + w * o.w; }
  constexpr Quat operator-() const { return {-x, -y, -z, -w}; }
  constexpr Quat Conjugate() const { return {-x, -y, -z, w}; }
  Quat Inverse() const;
  Quat Normalized() const;
  // Composition in application order: (a * b) applies a, then b.
  Quat operator*(const Quat& b) const;
  constexpr bool operator==(const Quat&) const = default;
  bool Equals(const Quat& o, float eps) const;
  // q or -q, whichever is closer to `to` (non-negative dot product).
  Quat Closest(const Quat& to) const { return Dot(to) < 0 ? -*this : *this; }
};

// Spherical linear interpolation from a to b by t in [0, 1], along the shorter arc.
// t = 0 gives a and t = 1 gives b (up to sign) exactly.
Quat Slerp(const Quat& a, const Quat& b, float t);

}  // namespace kv
