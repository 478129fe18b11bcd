// Writes a large version 1 cache by hand, fast: every element a ring of `verts` vertices with
// `faces` faces and no map channels, each sample a turn about the element's own axis and a
// fall, so that every element moves rigidly. Shared by the benchmarks that need a file of
// destruction-shot size without the cost of capturing meshes.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cache/format.h"

namespace kv::bench {

struct ScaleFileShape {
  int elements = 100000;
  int verts = 100;
  int faces = 48;
  int samples = 120;
};

// Buffered little-endian appender for WriteScaleFile.
struct ScaleFileOut {
  std::FILE* f;
  std::vector<char> buf;
  void Put(const void* p, size_t n) {
    const char* c = static_cast<const char*>(p);
    buf.insert(buf.end(), c, c + n);
    if (buf.size() > (8u << 20)) Flush();
  }
  template <class T>
  void Put(T v) {
    Put(&v, sizeof v);
  }
  void Flush() {
    std::fwrite(buf.data(), 1, buf.size(), f);
    buf.clear();
  }
};

// Returns the sample table's offset: the bytes an open reads. 0 when the file cannot be
// written.
inline uint64_t WriteScaleFile(const std::string& path, const ScaleFileShape& s) {
  ScaleFileOut o{std::fopen(path.c_str(), "wb"), {}};
  if (!o.f) return 0;
  uint8_t header[256] = {};
  o.Put(header, sizeof header);
  for (int e = 0; e < s.elements; ++e) {
    o.Put(int32_t(1));
    o.Put("E", 1);
    for (float v : {-1.f, -1.f, -1.f, 1.f, 1.f, 1.f}) o.Put(v);
    o.Put(int32_t(s.verts)), o.Put(int32_t(s.faces)), o.Put(int32_t(0));
  }
  std::vector<float> ring;
  for (int v = 0; v < s.verts; ++v) {
    const float a = float(v) * 0.0628f;
    ring.insert(ring.end(), {std::cos(a), std::sin(a), float(v % 7) * 0.1f});
  }
  std::vector<uint8_t> faces;
  for (int f = 0; f < s.faces; ++f) {
    uint8_t rec[KelvaneTools::kFaceSizeV1] = {};
    const uint32_t idx[3] = {uint32_t(2 * f) % uint32_t(s.verts),
                             uint32_t(2 * f + 1) % uint32_t(s.verts),
                             uint32_t(2 * f + 2) % uint32_t(s.verts)};
    rec[2] = 1, rec[6] = 7;
    std::memcpy(rec + 8, idx, sizeof idx);
    faces.insert(faces.end(), rec, rec + sizeof rec);
  }
  for (int e = 0; e < s.elements; ++e) {
    o.Put(ring.data(), ring.size() * sizeof(float));
    o.Put(faces.data(), faces.size());
  }
  const uint64_t tableOffset = 256 + uint64_t(s.elements) * (4 + 1 + 24 + 12) +
                               uint64_t(s.elements) * (uint64_t(s.verts) * 12 + faces.size());
  for (int k = 0; k < s.samples; ++k) {
    for (int e = 0; e < s.elements; ++e) {
      const float a = 0.05f * float(k) + 0.001f * float(e);
      const float c = std::cos(a), sn = std::sin(a);
      const float row[12] = {c,
                             sn,
                             0,
                             -sn,
                             c,
                             0,
                             0,
                             0,
                             1,
                             float(e % 316) * 3,
                             float(e / 316) * 3,
                             100.0f - 0.5f * float(k)};
      o.Put(row, sizeof row);
      o.Put(uint8_t(1));
    }
  }
  o.Flush();
  // The header, now that the table's place is known.
  uint8_t h[KelvaneTools::kHeaderSize] = {};
  std::memcpy(h, "KVCACHE", 7);
  h[7] = 1;
  const int32_t fields[] = {
      0,   (s.samples - 1) * 160, 160, 30, s.elements, s.samples, int32_t(s.elements * 49),
      256, int32_t(tableOffset)};
  std::memcpy(h + 9, fields, sizeof fields);
  std::fseek(o.f, 0, SEEK_SET);
  std::fwrite(h, 1, sizeof h, o.f);
  std::fclose(o.f);
  return tableOffset;
}

}  // namespace kv::bench
