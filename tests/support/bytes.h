// Little-endian byte builders for hand-made expected files, and whole-file reads and writes.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace kvtest {

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

}  // namespace kvtest
