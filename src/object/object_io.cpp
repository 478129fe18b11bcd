#include "object/object_io.h"

#include <vector>

#include "groups/chunk_io.h"

namespace kv {

namespace {

bool WriteMatrix(host::ISave& s, const Matrix3& m) {
  float f[12];
  m.ToFloats(f);
  for (const float v : f) {
    if (!io::WriteF32(s, v)) return false;
  }
  return true;
}

bool ReadMatrix(host::ILoad& l, Matrix3& m) {
  float f[12];
  for (float& v : f) {
    if (!io::ReadF32(l, v)) return false;
  }
  m = Matrix3::FromFloats(f);
  return true;
}

}  // namespace

bool SaveBitArray(host::ISave& s, const BitArray& bits) {
  const int n = bits.GetSize();
  if (!io::WriteU32(s, static_cast<uint32_t>(n))) return false;
  for (int w = 0; w < (n + 31) / 32; ++w) {
    uint32_t word = 0;
    for (int b = 0; b < 32 && w * 32 + b < n; ++b) {
      if (bits[w * 32 + b]) word |= 1u << b;
    }
    if (!io::WriteU32(s, word)) return false;
  }
  return true;
}

host::IOResult LoadBitArray(host::ILoad& l, BitArray& bits) {
  uint32_t n = 0;
  if (!io::ReadU32(l, n) || n > static_cast<uint32_t>(INT32_MAX)) return host::IOResult::Error;
  std::vector<uint32_t> words;
  for (uint32_t w = 0; w < (uint64_t{n} + 31) / 32; ++w) {
    uint32_t word = 0;
    if (!io::ReadU32(l, word)) return host::IOResult::Error;
    words.push_back(word);
  }
  bits.SetSize(static_cast<int>(n), false);
  for (uint32_t i = 0; i < n; ++i) {
    if ((words[i / 32] >> (i % 32)) & 1u) bits.Set(static_cast<int>(i));
  }
  return host::IOResult::Ok;
}

bool SaveController(host::ISave& s, const host::Control* c) {
  const int keys = c ? c->NumKeys() : 0;
  if (!io::WriteU32(s, static_cast<uint32_t>(keys))) return false;
  if (keys == 0) return WriteMatrix(s, c ? c->GetMatrix(0) : Matrix3());
  for (int i = 0; i < keys; ++i) {
    const TimeValue t = c->GetKeyTime(i);
    if (!io::WriteI32(s, t) || !WriteMatrix(s, c->GetMatrix(t))) return false;
  }
  return true;
}

host::IOResult LoadController(host::ILoad& l, host::Control* c) {
  uint32_t keys = 0;
  if (!io::ReadU32(l, keys)) return host::IOResult::Error;
  Matrix3 m;
  if (keys == 0) {
    if (!ReadMatrix(l, m)) return host::IOResult::Error;
    if (c) c->SetValue(0, m, false);
    return host::IOResult::Ok;
  }
  for (uint32_t i = 0; i < keys; ++i) {
    int32_t t = 0;
    if (!io::ReadI32(l, t) || !ReadMatrix(l, m)) return host::IOResult::Error;
    if (c) c->SetValue(t, m, true);
  }
  return host::IOResult::Ok;
}

}  // namespace kv
