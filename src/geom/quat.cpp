#include "geom/quat.h"

#include <algorithm>
#include <cmath>

namespace kv {

namespace {

// Hamilton product a b (b is applied first when used as a rotation).
Quat Hamilton(const Quat& a, const Quat& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

bool Finite(const Quat& q) {
  return std::isfinite(q.x) && std::isfinite(q.y) && std::isfinite(q.z) && std::isfinite(q.w);
}

}  // namespace

Quat::Quat(const Matrix3& m) {
  // Unit rows; a mirror is a scale of -1 and is removed with the rest of the scale.
  Point3 r[3] = {m.GetRow(0).Normalized(), m.GetRow(1).Normalized(), m.GetRow(2).Normalized()};
  // A collapsed axis still leaves the rotation defined by the other two.
  int zeros = 0;
  for (int i = 0; i < 3; ++i) {
    if (r[i].LengthSquared() == 0) {
      ++zeros;
      r[i] = CrossProd(r[(i + 1) % 3], r[(i + 2) % 3]).Normalized();
    }
  }
  if (zeros > 1) return;  // nothing left to take a rotation from: identity
  if (DotProd(r[0], CrossProd(r[1], r[2])) < 0)
    for (Point3& row : r) row = -row;
  // R(i, j) of the column-vector matrix is row j, component i of ours.
  auto R = [&r](int i, int j) { return static_cast<double>(r[j][i]); };
  const double trace = R(0, 0) + R(1, 1) + R(2, 2);
  double q[4];  // x, y, z, w
  // Take the largest of w, x, y, z first so the division below is well conditioned.
  if (trace > 0) {
    const double s = std::sqrt(trace + 1.0) * 2.0;
    q[3] = 0.25 * s;
    q[0] = (R(2, 1) - R(1, 2)) / s;
    q[1] = (R(0, 2) - R(2, 0)) / s;
    q[2] = (R(1, 0) - R(0, 1)) / s;
  } else if (R(0, 0) >= R(1, 1) && R(0, 0) >= R(2, 2)) {
    const double s = std::sqrt(std::max(0.0, 1.0 + R(0, 0) - R(1, 1) - R(2, 2))) * 2.0;
    q[3] = (R(2, 1) - R(1, 2)) / s;
    q[0] = 0.25 * s;
    q[1] = (R(0, 1) + R(1, 0)) / s;
    q[2] = (R(0, 2) + R(2, 0)) / s;
  } else if (R(1, 1) >= R(2, 2)) {
    const double s = std::sqrt(std::max(0.0, 1.0 + R(1, 1) - R(0, 0) - R(2, 2))) * 2.0;
    q[3] = (R(0, 2) - R(2, 0)) / s;
    q[0] = (R(0, 1) + R(1, 0)) / s;
    q[1] = 0.25 * s;
    q[2] = (R(1, 2) + R(2, 1)) / s;
  } else {
    const double s = std::sqrt(std::max(0.0, 1.0 + R(2, 2) - R(0, 0) - R(1, 1))) * 2.0;
    q[3] = (R(1, 0) - R(0, 1)) / s;
    q[0] = (R(0, 2) + R(2, 0)) / s;
    q[1] = (R(1, 2) + R(2, 1)) / s;
    q[2] = 0.25 * s;
  }
  *this = Quat(static_cast<float>(q[0]), static_cast<float>(q[1]), static_cast<float>(q[2]),
               static_cast<float>(q[3]))
              .Normalized();
}

Quat::Quat(const AngAxis& aa) {
  const Point3 axis = aa.axis.Normalized();
  if (axis.LengthSquared() == 0) return;  // no axis: identity
  const float s = std::sin(aa.angle * 0.5f);
  x = axis.x * s, y = axis.y * s, z = axis.z * s, w = std::cos(aa.angle * 0.5f);
}

Matrix3 Quat::ToMatrix() const {
  const float xx = x * x, yy = y * y, zz = z * z;
  const float xy = x * y, xz = x * z, yz = y * z;
  const float wx = w * x, wy = w * y, wz = w * z;
  return {{1 - 2 * (yy + zz), 2 * (xy + wz), 2 * (xz - wy)},
          {2 * (xy - wz), 1 - 2 * (xx + zz), 2 * (yz + wx)},
          {2 * (xz + wy), 2 * (yz - wx), 1 - 2 * (xx + yy)},
          {}};
}

AngAxis Quat::ToAngAxis() const {
  // Report the angle in [0, pi]: q and -q are the same rotation.
  const Quat q = w < 0 ? -*this : *this;
  const Point3 v{q.x, q.y, q.z};
  const float len = v.Length();
  if (len == 0) return {};
  return {v / len, 2.0f * std::atan2(len, q.w)};
}

Point3 Quat::Rotate(const Point3& p) const {
  const Point3 u{x, y, z};
  const Point3 t = CrossProd(u, p) * 2.0f;
  return p + t * w + CrossProd(u, t);
}

Quat Quat::Inverse() const {
  const float n = Dot(*this);
  if (n == 0 || !std::isfinite(n)) return {};
  const Quat c = Conjugate();
  return {c.x / n, c.y / n, c.z / n, c.w / n};
}

Quat Quat::Normalized() const {
  const float n = std::sqrt(Dot(*this));
  if (n == 0 || !std::isfinite(n)) return {};
  return {x / n, y / n, z / n, w / n};
}

Quat Quat::operator*(const Quat& b) const {
  return Hamilton(b, *this);
}

bool Quat::Equals(const Quat& o, float eps) const {
  return std::fabs(x - o.x) <= eps && std::fabs(y - o.y) <= eps && std::fabs(z - o.z) <= eps &&
         std::fabs(w - o.w) <= eps;
}

Quat Slerp(const Quat& a, const Quat& b, float t) {
  if (t <= 0) return a;
  const Quat c = b.Closest(a);
  if (t >= 1) return c;
  const double cosTheta = std::min(1.0, static_cast<double>(a.Dot(c)));
  double wa, wb;
  if (cosTheta > 0.9995) {
    // Nearly parallel: the chord is as good as the arc and avoids dividing by sin(~0).
    wa = 1.0 - t;
    wb = t;
  } else {
    const double theta = std::acos(cosTheta);
    const double s = std::sin(theta);
    wa = std::sin((1.0 - t) * theta) / s;
    wb = std::sin(t * theta) / s;
  }
  const Quat r(static_cast<float>(wa * a.x + wb * c.x), static_cast<float>(wa * a.y + wb * c.y),
               static_cast<float>(wa * a.z + wb * c.z), static_cast<float>(wa * a.w + wb * c.w));
  return Finite(r) ? r.Normalized() : a;
}

}  // namespace kv
