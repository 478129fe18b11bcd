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

namespace kv::cli::testing {

struct Bytes {
  std::string s;
  Bytes& raw(const std::string& t) { return s += t, *this; }
  Bytes& u8(uint8_t v) { return s.push_back(static_cast<char>(v)), *this; }
  template <class T>
  Bytes& put(T v) {
    char b[sizeof v];
    std::memcpy(b, &v, sizeof v);
    s.append(b, sizeof v);
    return *this;
  }
  Bytes& i32(int32_t v) { return put(v); }
  Bytes& u32(uint32_t v) { return put(v); }
  Bytes& u16(uint16_t v) { return put(v); }
  Bytes& f(float v) { return put(v); }
  Bytes& zeros(size_t n) { return s.append(n, '\0'), *this; }
  // A face record of version 2: material id, smoothing, all edges visible, three corners.
  Bytes& face(uint32_t a, uint32_t b, uint32_t c, uint16_t mat = 0) {
    return u16(mat).u32(1).u8(7).u8(0).u32(a).u32(b).u32(c).zeros(36);
  }
  // A sample record: translation only.
  Bytes& sample(float x, float y, float z, bool visible = true) {
    f(1).f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(x).f(y).f(z);
    return u8(visible ? 1 : 0);
  }
};

inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

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
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0).face(0, 1, 2);
  b.f(-1).f(-1).f(0).f(1).f(-1).f(0).f(1).f(1).f(0).f(-1).f(1).f(0).face(0, 1, 2).face(0, 2, 3);
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0).u32(0).u32(1).u32(2);  // channel 1 of Box
  for (int s = 0; s < 3; ++s) b.sample(static_cast<float>(s), 0, 0).sample(0, 0, 5, s < 2);
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
inline float PointSetDistance(const std::vector<Point3>& a, const std::vector<Point3>& b) {
  auto oneWay = [](const std::vector<Point3>& from, const std::vector<Point3>& to) {
    float worst = 0;
    for (const Point3& p : from) {
      float best = INFINITY;
      for (const Point3& q : to) best = std::min(best, (p - q).LengthSquared());
      worst = std::max(worst, best);
    }
    return std::sqrt(worst);
  };
  return std::max(oneWay(a, b), oneWay(b, a));
}

}  // namespace kv::cli::testing
