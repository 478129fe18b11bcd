// Byte layout of a .kvc cache file: constants, the 46-byte header and its acceptance rules.
// The layout is little-endian and packed; every size the reader and the writer use is named
// here once, so the two mirror each other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace KelvaneTools {

inline constexpr char kCacheMagic[7] = {'K', 'V', 'C', 'A', 'C', 'H', 'E'};
inline constexpr size_t kHeaderSize = 46;
inline constexpr uint32_t kDataOffset = 256;  // first element record; 46..255 is zero fill
inline constexpr int32_t kMinSampleTableOffset = 257;

inline constexpr int kFirstVersion = 1;
inline constexpr int kLastVersion = 3;
inline constexpr int kWriterVersion = 2;
// From this version on, element records carry a normals byte and faces carry 9 normal floats.
inline constexpr int kVersionWithNormals = 2;

inline constexpr size_t kSampleRecordSize = 49;  // 12 floats of transform + visibility byte
inline constexpr size_t kFaceSizeV1 = 32;
inline constexpr size_t kFaceSizeV2 = 56;
inline constexpr size_t kFaceFixedPart = 20;  // matId, smoothing, edge bits, selected, verts
// Fixed part of an element record without name, channel list and normals byte.
inline constexpr size_t kElementRecordFixed = 4 + 24 + 4 + 4 + 4;
inline constexpr size_t kChannelEntrySize = 8;
inline constexpr size_t kMapFaceSize = 12;
inline constexpr size_t kPointSize = 12;

// The writer gathers at most this many sample records before one write (2,621,402 bytes).
inline constexpr size_t kSampleBufferRecords = 53498;

// Map channels the mesh can hold (0 = vertex colour, 1..99 texture coordinates).
inline constexpr int kMaxChannel = 99;
inline constexpr int kNoChannel = -99;  // lowest/highest channel while none has been seen

constexpr bool HasNormalsByte(int version) {
  return version >= kVersionWithNormals;
}
constexpr size_t FaceRecordSize(int version) {
  return version >= kVersionWithNormals ? kFaceSizeV2 : kFaceSizeV1;
}

struct CacheHeader {
  uint8_t version = 0;
  uint8_t reserved = 0;
  int32_t start = 0;
  int32_t end = 0;
  int32_t step = 0;
  int32_t frameRate = 0;
  int32_t numNodes = 0;
  int32_t numSamples = 0;
  int32_t sampleStride = 0;
  uint32_t dataOffset = kDataOffset;
  int32_t sampleTableOffset = 0;
  uint8_t hasVisibility = 0;
};

// Little-endian scalar access on raw bytes; memcpy keeps it free of alignment and aliasing
// faults (the build targets are little-endian).
template <class T>
inline T LoadLE(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
inline void StoreLE(uint8_t* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

// Decodes 46 header bytes. False when the magic differs or any acceptance rule fails (the
// caller reports an invalid cache file); `out` is filled either way.
bool ParseHeader(const uint8_t* bytes, CacheHeader& out);
// Encodes the header, magic included, into 46 bytes.
void SerializeHeader(const CacheHeader& h, uint8_t* bytes);

}  // namespace KelvaneTools
