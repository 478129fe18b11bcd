// Axis-aligned bounding box.
#pragma once

#include <algorithm>
#include <limits>

#include "geom/point.h"

namespace kv {

struct Box3 {
  Point3 pmin{std::numeric_limits<float>::max(), std::numeric_limits<float>::max(),
              std::numeric_limits<float>::max()};
  Point3 pmax{-std::numeric_limits<float>::max(), -std::numeric_limits<float>::max(),
              -std::numeric_limits<float>::max()};

  constexpr Box3() = default;
  constexpr Box3(const Point3& a, const Point3& b) : pmin(a), pmax(b) {}

  void Init() { *this = Box3(); }
  bool IsEmpty() const { return pmin.x > pmax.x || pmin.y > pmax.y || pmin.z > pmax.z; }
  Box3& operator+=(const Point3& p) {
    pmin = {std::min(pmin.x, p.x), std::min(pmin.y, p.y), std::min(pmin.z, p.z)};
    pmax = {std::max(pmax.x, p.x), std::max(pmax.y, p.y), std::max(pmax.z, p.z)};
    return *this;
  }
  Box3& operator+=(const Box3& b) {
    if (!b.IsEmpty()) *this += b.pmin, *this += b.pmax;
    return *this;
  }
  Point3 Center() const { return (pmin + pmax) * 0.5f; }
  Point3 Width() const { return pmax - pmin; }
  // Corner i (0..7): bit 0 picks x, bit 1 y, bit 2 z from max (set) or min (clear).
  Point3 Corner(int i) const {
    return {(i & 1) ? pmax.x : pmin.x, (i & 2) ? pmax.y : pmin.y, (i & 4) ? pmax.z : pmin.z};
  }
  bool Contains(const Point3& p) const {
    return p.x >= pmin.x && p.x <= pmax.x && p.y >= pmin.y && p.y <= pmax.y && p.z >= pmin.z &&
           p.z <= pmax.z;
  }
};

}  // namespace kv
