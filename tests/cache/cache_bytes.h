// Hand-built cache file bytes for the tests: every field is appended explicitly, in file
// order, so that a test states the layout it expects instead of trusting our writer.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace kvtest {

struct Bytes {
  std::vector<uint8_t> b;
  Bytes& u8(uint8_t v) { return raw(&v, 1); }
  Bytes& u16(uint16_t v) { return raw(&v, 2); }
  Bytes& u32(uint32_t v) { return raw(&v, 4); }
  Bytes& i32(int32_t v) { return raw(&v, 4); }
  Bytes& f32(float v) { return raw(&v, 4); }
  Bytes& str(const std::string& s) { return raw(s.data(), s.size()); }
  Bytes& zeros(size_t n) {
    b.insert(b.end(), n, 0);
    return *this;
  }
  Bytes& raw(const void* p, size_t n) {
    const auto* c = static_cast<const uint8_t*>(p);
    b.insert(b.end(), c, c + n);
    return *this;
  }
  size_t size() const { return b.size(); }
  void PatchI32(size_t at, int32_t v) { std::memcpy(&b[at], &v, 4); }
};

// Header fields in file order; sampleTableOffset is patched once the data is laid out.
struct HeaderFields {
  uint8_t version = 2;
  int32_t start = 0, end = 0, step = 160, fps = 30, nodes = 1, samples = 1;
  int32_t stride = 49;
  uint32_t dataOffset = 256;
  int32_t tableOffset = 0;
  uint8_t hasVis = 0;
};

inline void PutHeader(Bytes& out, const HeaderFields& h) {
  out.str("KVCACHE").u8(h.version).u8(0).i32(h.start).i32(h.end).i32(h.step).i32(h.fps);
  out.i32(h.nodes).i32(h.samples).i32(h.stride).u32(h.dataOffset).i32(h.tableOffset);
  out.u8(h.hasVis);
}
inline constexpr size_t kTableOffsetField = 41;

// One sample record: rows of a matrix that scales by s and translates by (tx, ty, tz).
inline void PutSample(Bytes& out, float s, float tx, float ty, float tz, bool visible) {
  out.f32(s).f32(0).f32(0).f32(0).f32(s).f32(0).f32(0).f32(0).f32(s);
  out.f32(tx).f32(ty).f32(tz).u8(visible ? 1 : 0);
}

// A scratch file that removes itself.
struct TempFile {
  std::string path;
  explicit TempFile(const std::string& name, const char* ext = ".kvc") {
    path = (std::filesystem::temp_directory_path() /
            ("kvtest_" + std::to_string(::getpid()) + "_" + name + ext))
               .string();
  }
  ~TempFile() {
    std::error_code ec;
    std::filesystem::remove(path, ec);
  }
  void Write(const std::vector<uint8_t>& data, size_t n = SIZE_MAX) const {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (n > data.size()) n = data.size();
    if (n) std::fwrite(data.data(), 1, n, f);
    std::fclose(f);
  }
  std::vector<uint8_t> Read() const {
    std::vector<uint8_t> out;
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
      uint8_t buf[65536];
      size_t n;
      while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.insert(out.end(), buf, buf + n);
      std::fclose(f);
    }
    return out;
  }
};

}  // namespace kvtest
