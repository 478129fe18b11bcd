// Shared by the command tests: .kvc files built byte by byte, running the tool in-process,
// and reading back what it wrote.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "geom/point.h"
#include "support/bytes.h"
#include "support/reference_data.h"

namespace kv::cli::testing {

using kvtest::Bytes;

// A face record of version 2: material id, smoothing, all edges visible, three corners.
inline void Face(Bytes& b, uint32_t a, uint32_t v1, uint32_t v2) {
  b.u16(0).u32(1).u8(7).u8(0).u32(a).u32(v1).u32(v2).zeros(36);
}
// A sample record: translation only.
inline void Sample(Bytes& b, float x, float y, float z, bool visible = true) {
  b.f(1).f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(x).f(y).f(z).u8(visible ? 1 : 0);
}

using kvtest::PointSetDistance;
using kvtest::ReadFile;
using kvtest::WriteFile;

// Two elements over three samples (frames 0, 1 and 2 at 30 frames per second):
// "Box", a triangle (0,0,0) (1,0,0) (0,1,0) with texture channel 1, moving +x one unit a
// frame, and "Ball", a quad of two triangles in the z = 0 plane centred on the origin, held at
// (0, 0, 5) and hidden at sample 2. 947 bytes, the sample table at 653.
inline std::string TwoElementCache() {
  Bytes b;
  b.raw("KVCACHE").u8(2).u8(0).i32(0).i32(320).i32(160).i32(30).i32(2).i32(3).i32(98);
  b.u32(256).i32(653).u8(1).zeros(256 - 46);
  b.i32(3).raw("Box").f(0).f(0).f(0).f(1).f(1).f(0).i32(3).i32(1).i32(1).i32(1).i32(3).u8(0);
  b.i32(4).raw("Ball").f(-1).f(-1).f(0).f(1).f(1).f(0).i32(4).i32(2).i32(0).u8(0);
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0);
  Face(b, 0, 1, 2);
  b.f(-1).f(-1).f(0).f(1).f(-1).f(0).f(1).f(1).f(0).f(-1).f(1).f(0);
  Face(b, 0, 1, 2);
  Face(b, 0, 2, 3);
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0).u32(0).u32(1).u32(2);  // channel 1 of Box
  for (int s = 0; s < 3; ++s) {
    Sample(b, static_cast<float>(s), 0, 0);
    Sample(b, 0, 0, 5, s < 2);
  }
  return b.s;
}

struct Outcome {
  int code;
  std::string out, err;
};

// Runs kvcache with the given arguments, without a progress bar.
inline Outcome Call(std::vector<std::string> args) {
  args.insert(args.begin(), {"kvcache", "--quiet"});
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  std::ostringstream out, err;
  const int code = Run(static_cast<int>(argv.size()), argv.data(), out, err);
  return {code, out.str(), err.str()};
}

// The "v" lines of a Wavefront file, in order.
inline std::vector<Point3> ObjVertices(const std::string& path) {
  std::istringstream in(ReadFile(path));
  std::vector<Point3> v;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("v ", 0) != 0) continue;
    std::istringstream ls(line.substr(2));
    Point3 q;
    ls >> q.x >> q.y >> q.z;
    v.push_back(q);
  }
  return v;
}

// The largest distance from a point of either set to its nearest point of the other.

}  // namespace kv::cli::testing
