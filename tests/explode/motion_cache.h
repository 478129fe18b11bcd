// Caches written from explicit per-element motion, for the explode tests and benchmarks.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "cache/writer.h"
#include "geom/matrix3.h"
#include "geom/mesh.h"

namespace kvtest {

struct Motion {
  std::string name;
  std::function<kv::Matrix3(kv::TimeValue)> tm;
  std::function<bool(kv::TimeValue)> visible;  // unset: always visible
};

// A small tetrahedron, so that box meshes and copies differ.
inline kv::Mesh Tetra() {
  kv::Mesh m;
  m.setNumVerts(4);
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, 3}};
  m.setNumFaces(4);
  m.faces[0].setVerts(0, 2, 1);
  m.faces[1].setVerts(0, 1, 3);
  m.faces[2].setVerts(0, 3, 2);
  m.faces[3].setVerts(1, 2, 3);
  return m;
}

class MotionSource final : public KelvaneTools::ElementSource {
 public:
  explicit MotionSource(const std::vector<Motion>& m) : m_(m) {}
  int Count() const override { return static_cast<int>(m_.size()); }
  std::string Name(int i) const override { return m_[size_t(i)].name; }
  bool CaptureMesh(int, kv::TimeValue, bool, kv::Mesh& out) override {
    out = Tetra();
    return true;
  }
  kv::host::Mtl* Material(int) const override { return nullptr; }
  void Sample(kv::TimeValue t, std::span<const int> elements, kv::Matrix3* objectTM,
              float* visibility) override {
    for (size_t k = 0; k < elements.size(); ++k) {
      const Motion& m = m_[size_t(elements[k])];
      objectTM[k] = m.tm(t);
      visibility[k] = (!m.visible || m.visible(t)) ? 1.0f : 0.0f;
    }
  }
  int FrameRate() const override { return 30; }

 private:
  const std::vector<Motion>& m_;
};

// Writes the motion sampled every `step` ticks over [start, end] into `path`.
inline bool WriteMotionCache(const std::string& path, const std::vector<Motion>& motion,
                             kv::TimeValue start, kv::TimeValue end, kv::TimeValue step) {
  MotionSource src(motion);
  KelvaneTools::kvCacheWriter w(path, kv::Matrix3(), start, end, step, KelvaneTools::kWriterVersion,
                                src);
  for (int i = 0; i < src.Count(); ++i)
    if (!w.AddElement(i, start)) return false;
  return w.Write();
}

}  // namespace kvtest
