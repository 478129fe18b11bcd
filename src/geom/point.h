// Small fixed-size vectors. Plain aggregates: no invariants, cheap to copy.
#pragma once

#include <cmath>

namespace kv {

struct Point2 {
  float x = 0, y = 0;
  constexpr Point2 operator+(const Point2& o) const { return {x + o.x, y + o.y}; }
  constexpr Point2 operator-(const Point2& o) const { return {x - o.x, y - o.y}; }
  constexpr Point2 operator*(float s) const { return {x * s, y * s}; }
  constexpr bool operator==(const Point2&) const = default;
};

struct Point3 {
  float x = 0, y = 0, z = 0;

  constexpr float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr Point3 operator+(const Point3& o) const { return {x + o.x, y + o.y, z + o.z}; }
  constexpr Point3 operator-(const Point3& o) const { return {x - o.x, y - o.y, z - o.z}; }
  constexpr Point3 operator-() const { return {-x, -y, -z}; }
  constexpr Point3 operator*(float s) const { return {x * s, y * s, z * s}; }
  constexpr Point3 operator/(float s) const { return {x / s, y / s, z / s}; }
  constexpr Point3& operator+=(const Point3& o) { return x += o.x, y += o.y, z += o.z, *this; }
  constexpr Point3& operator-=(const Point3& o) { return x -= o.x, y -= o.y, z -= o.z, *this; }
  constexpr Point3& operator*=(float s) { return x *= s, y *= s, z *= s, *this; }
  constexpr bool operator==(const Point3&) const = default;

  constexpr float LengthSquared() const { return x * x + y * y + z * z; }
  float Length() const { return std::sqrt(LengthSquared()); }
  // Unit vector; the zero vector stays zero.
  Point3 Normalized() const {
    const float l = Length();
    return l > 0 ? *this / l : Point3{};
  }
};

constexpr Point3 operator*(float s, const Point3& p) {
  return p * s;
}
constexpr float DotProd(const Point3& a, const Point3& b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
constexpr Point3 CrossProd(const Point3& a, const Point3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
// Component-wise product.
constexpr Point3 CompMul(const Point3& a, const Point3& b) {
  return {a.x * b.x, a.y * b.y, a.z * b.z};
}

struct Point4 {
  float x = 0, y = 0, z = 0, w = 0;
  constexpr Point4 operator+(const Point4& o) const { return {x + o.x, y + o.y, z + o.z, w + o.w}; }
  constexpr Point4 operator-(const Point4& o) const { return {x - o.x, y - o.y, z - o.z, w - o.w}; }
  constexpr Point4 operator*(float s) const { return {x * s, y * s, z * s, w * s}; }
  constexpr bool operator==(const Point4&) const = default;
};

}  // namespace kv
