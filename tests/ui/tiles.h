// A hand-built cache for the display tests: unit squares ("tiles") in the z = 0 plane, one
// per element, each lying at (2, 2)..(3, 3) in its own space so that its marker (the
// element's origin) sits apart from its mesh. Element e is placed at places[e] by its one
// sample.
#pragma once

#include <string>
#include <vector>

#include "geom/point.h"
#include "support/bytes.h"

namespace kvtest {

inline constexpr float kTileOffset = 2.0f;

inline std::string TileCache(const std::vector<kv::Point3>& places) {
  const int n = static_cast<int>(places.size());
  Bytes b;
  b.raw("KVCACHE").u8(2).u8(0).i32(0).i32(0).i32(160).i32(30).i32(n).i32(1).i32(n * 49);
  b.u32(256).i32(0).u8(1).zeros(256 - 46);
  const float lo = kTileOffset, hi = kTileOffset + 1;
  for (int e = 0; e < n; ++e) {
    b.i32(1).raw("t").f(lo).f(lo).f(0).f(hi).f(hi).f(0).i32(4).i32(2).i32(0).u8(0);
  }
  for (int e = 0; e < n; ++e) {
    b.f(lo).f(lo).f(0).f(hi).f(lo).f(0).f(hi).f(hi).f(0).f(lo).f(hi).f(0);
    // Two triangles; the shared diagonal hidden (edge bits 3 = a->b and b->c).
    b.u16(0).u32(1).u8(3).u8(0).u32(0).u32(1).u32(2).zeros(36);
    b.u16(0).u32(1).u8(3).u8(0).u32(2).u32(3).u32(0).zeros(36);
  }
  const auto table = static_cast<int32_t>(b.s.size());
  std::memcpy(b.s.data() + 41, &table, 4);
  for (const kv::Point3& p : places) {
    b.f(1).f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(p.x).f(p.y).f(p.z).u8(1);
  }
  return b.s;
}

}  // namespace kvtest
