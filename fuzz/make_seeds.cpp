// Writes a small seed corpus for the cache fuzzer: valid caches of versions 1, 2 and 3 with
// map channels, explicit normals and hidden samples. Usage: fuzz_make_seeds <folder>
#include <cstdio>
#include <string>

#include "cache/writer.h"

using namespace KelvaneTools;

namespace {

struct SeedSource : ElementSource {
  int count;
  explicit SeedSource(int n) : count(n) {}
  int Count() const override { return count; }
  std::string Name(int i) const override {
    return i == 1 ? "W\xC3\xBC"
                    "rfel"
                  : "box";
  }
  bool CaptureMesh(int i, kv::TimeValue, bool, kv::Mesh& m) override {
    m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    m.faces.resize(2);
    m.faces[0].setVerts(0, 1, 2);
    m.faces[1].setVerts(0, 2, 3);
    m.faces[1].setMatID(kv::MtlID(i));
    m.faceSel.SetSize(2);
    if (i % 2 == 0) {
      m.setMapSupport(1, true);
      m.Map(1).verts = {{0, 0, 0}, {1, 1, 0}};
      m.Map(1).faces = {{{0, 1, 1}}, {{1, 0, 0}}};
    }
    if (i == 1) m.specNormals.assign(6, {0, 0, 1});
    return true;
  }
  kv::host::Mtl* Material(int) const override { return nullptr; }
  void Sample(kv::TimeValue t, std::span<const int> el, kv::Matrix3* tm, float* vis) override {
    for (size_t k = 0; k < el.size(); ++k) {
      tm[k] = kv::RotateZMatrix(float(t) * 0.001f) * kv::TransMatrix({float(t), float(k), 0});
      vis[k] = (t / 160 + el[k]) % 3 == 0 ? 0.0f : 1.0f;
    }
  }
  int FrameRate() const override { return 30; }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <folder>\n", argv[0]);
    return 2;
  }
  int written = 0;
  for (int version = 1; version <= 3; ++version) {
    for (int elements : {1, 3}) {
      SeedSource src(elements);
      const std::string path = std::string(argv[1]) + "/v" + std::to_string(version) + "_" +
                               std::to_string(elements) + ".kvc";
      // The writer's version 3 records lack the normals byte that readers expect: a version 3
      // seed is a version 2 file with its version byte changed.
      kvCacheWriter w(path, kv::Matrix3(), 0, 480, 160, version == 3 ? 2 : version, src);
      for (int i = 0; i < elements; ++i) w.AddElement(i, 0);
      if (!w.Write()) continue;
      if (version == 3) {
        std::FILE* f = std::fopen(path.c_str(), "r+b");
        const bool ok = f && std::fseek(f, 7, SEEK_SET) == 0 && std::fputc(3, f) == 3;
        if (f) std::fclose(f);
        if (!ok) continue;
      }
      ++written;
    }
  }
  std::printf("%d seeds\n", written);
  return written == 6 ? 0 : 1;
}
