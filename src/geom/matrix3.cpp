#include "geom/matrix3.h"

#include <cmath>

#include "geom/quat.h"

namespace kv {

Matrix3 Matrix3::FromFloats(const float* twelve) {
  Matrix3 m;
  for (int r = 0; r < 4; ++r) m.rows_[r] = {twelve[r * 3], twelve[r * 3 + 1], twelve[r * 3 + 2]};
  return m;
}

void Matrix3::ToFloats(float* twelve) const {
  for (int r = 0; r < 4; ++r) {
    twelve[r * 3] = rows_[r].x;
    twelve[r * 3 + 1] = rows_[r].y;
    twelve[r * 3 + 2] = rows_[r].z;
  }
}

bool Matrix3::IsIdentity(float eps) const {
  return Equals(Matrix3(), eps);
}

Matrix3 Matrix3::operator*(const Matrix3& b) const {
  // Row i of the product is row i of this carried by b; the translation row also picks up b's.
  Matrix3 r;
  for (int i = 0; i < 3; ++i) r.rows_[i] = b.VectorTransform(rows_[i]);
  r.rows_[3] = b.PointTransform(rows_[3]);
  return r;
}

Matrix3 Matrix3::operator*(float s) const {
  Matrix3 r = *this;
  for (Point3& row : r.rows_) row *= s;
  return r;
}

bool Matrix3::operator==(const Matrix3& o) const {
  for (int i = 0; i < 4; ++i)
    if (!(rows_[i] == o.rows_[i])) return false;
  return true;
}

bool Matrix3::Equals(const Matrix3& o, float eps) const {
  for (int i = 0; i < 4; ++i)
    for (int c = 0; c < 3; ++c)
      if (std::fabs(rows_[i][c] - o.rows_[i][c]) > eps) return false;
  return true;
}

float Matrix3::Determinant() const {
  return DotProd(rows_[0], CrossProd(rows_[1], rows_[2]));
}

void Matrix3::Translate(const Point3& p) {
  rows_[3] += p;
}

void Matrix3::PreTranslate(const Point3& p) {
  rows_[3] += VectorTransform(p);
}

void Matrix3::Rotate(const Quat& q) {
  *this = *this * q.ToMatrix();
}

void Matrix3::PreRotate(const Quat& q) {
  *this = q.ToMatrix() * *this;
}

void Matrix3::RotateX(float angle) {
  *this = *this * RotateXMatrix(angle);
}

void Matrix3::RotateY(float angle) {
  *this = *this * RotateYMatrix(angle);
}

void Matrix3::RotateZ(float angle) {
  *this = *this * RotateZMatrix(angle);
}

void Matrix3::Scale(const Point3& s, bool scaleTrans) {
  const int last = scaleTrans ? 4 : 3;
  for (int i = 0; i < last; ++i) rows_[i] = CompMul(rows_[i], s);
}

void Matrix3::PreScale(const Point3& s) {
  for (int i = 0; i < 3; ++i) rows_[i] *= s[i];
}

Matrix3 Inverse(const Matrix3& m) {
  const Point3& a = m.GetRow(0);
  const Point3& b = m.GetRow(1);
  const Point3& c = m.GetRow(2);
  // The columns of the inverse are the cross products of the rows, divided by the determinant.
  const Point3 ca = CrossProd(b, c);
  const Point3 cb = CrossProd(c, a);
  const Point3 cc = CrossProd(a, b);
  const float det = DotProd(a, ca);
  if (det == 0.0f || !std::isfinite(1.0f / det)) return TransMatrix(-m.GetTrans());
  const float inv = 1.0f / det;
  Matrix3 r({ca.x * inv, cb.x * inv, cc.x * inv}, {ca.y * inv, cb.y * inv, cc.y * inv},
            {ca.z * inv, cb.z * inv, cc.z * inv}, {});
  r.SetTrans(-r.VectorTransform(m.GetTrans()));
  return r;
}

Matrix3 TransMatrix(const Point3& p) {
  Matrix3 m;
  m.SetTrans(p);
  return m;
}

Matrix3 ScaleMatrix(const Point3& s) {
  return {{s.x, 0, 0}, {0, s.y, 0}, {0, 0, s.z}, {}};
}

Matrix3 RotateXMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return {{1, 0, 0}, {0, c, s}, {0, -s, c}, {}};
}

Matrix3 RotateYMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return {{c, 0, -s}, {0, 1, 0}, {s, 0, c}, {}};
}

Matrix3 RotateZMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return {{c, s, 0}, {-s, c, 0}, {0, 0, 1}, {}};
}

Matrix3 RotAngleAxisMatrix(const Point3& axis, float angle) {
  return Quat(AngAxis{axis, angle}).ToMatrix();
}

}  // namespace kv
