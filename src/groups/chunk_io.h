// Little-endian reads and writes of plain numbers and strings through the host's scene-file
// streams. Values are encoded byte by byte so the stored form does not depend on the machine.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "host/scene.h"

namespace kv::io {

inline bool WriteU32(host::ISave& s, uint32_t v) {
  const unsigned char b[4] = {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
                              static_cast<unsigned char>(v >> 16),
                              static_cast<unsigned char>(v >> 24)};
  return s.Write(b, 4);
}
inline bool WriteI32(host::ISave& s, int32_t v) {
  return WriteU32(s, static_cast<uint32_t>(v));
}
inline bool WriteF32(host::ISave& s, float v) {
  uint32_t u;
  std::memcpy(&u, &v, 4);
  return WriteU32(s, u);
}
inline bool WriteU8(host::ISave& s, uint8_t v) {
  return s.Write(&v, 1);
}
inline bool WriteBytes(host::ISave& s, std::string_view b) {
  return b.empty() || s.Write(b.data(), b.size());
}
// u32 byte length, then the bytes.
inline bool WriteString(host::ISave& s, std::string_view str) {
  return WriteU32(s, static_cast<uint32_t>(str.size())) && WriteBytes(s, str);
}

inline bool ReadU32(host::ILoad& l, uint32_t& v) {
  unsigned char b[4];
  if (l.Read(b, 4) != host::IOResult::Ok) return false;
  v = uint32_t{b[0]} | uint32_t{b[1]} << 8 | uint32_t{b[2]} << 16 | uint32_t{b[3]} << 24;
  return true;
}
inline bool ReadI32(host::ILoad& l, int32_t& v) {
  uint32_t u;
  if (!ReadU32(l, u)) return false;
  v = static_cast<int32_t>(u);
  return true;
}
inline bool ReadF32(host::ILoad& l, float& v) {
  uint32_t u;
  if (!ReadU32(l, u)) return false;
  std::memcpy(&v, &u, 4);
  return true;
}
inline bool ReadU8(host::ILoad& l, uint8_t& v) {
  return l.Read(&v, 1) == host::IOResult::Ok;
}

// Reads n bytes in bounded pieces, so a corrupt length cannot make us allocate more than the
// stream actually holds.
inline bool ReadBytes(host::ILoad& l, uint32_t n, std::string& out) {
  out.clear();
  char buf[4096];
  while (n > 0) {
    const uint32_t k = n < sizeof buf ? n : static_cast<uint32_t>(sizeof buf);
    if (l.Read(buf, k) != host::IOResult::Ok) return false;
    out.append(buf, k);
    n -= k;
  }
  return true;
}
inline bool ReadString(host::ILoad& l, std::string& out) {
  uint32_t n;
  return ReadU32(l, n) && ReadBytes(l, n, out);
}

}  // namespace kv::io
