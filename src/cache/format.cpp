#include "cache/format.h"

namespace KelvaneTools {

bool ParseHeader(const uint8_t* b, CacheHeader& h) {
  h.version = b[7];
  h.reserved = b[8];
  h.start = LoadLE<int32_t>(b + 9);
  h.end = LoadLE<int32_t>(b + 13);
  h.step = LoadLE<int32_t>(b + 17);
  h.frameRate = LoadLE<int32_t>(b + 21);
  h.numNodes = LoadLE<int32_t>(b + 25);
  h.numSamples = LoadLE<int32_t>(b + 29);
  h.sampleStride = LoadLE<int32_t>(b + 33);
  h.dataOffset = LoadLE<uint32_t>(b + 37);
  h.sampleTableOffset = LoadLE<int32_t>(b + 41);
  h.hasVisibility = b[45];
  return std::memcmp(b, kCacheMagic, sizeof kCacheMagic) == 0 && h.version >= kFirstVersion &&
         h.version <= kLastVersion && h.start <= h.end && h.step >= 1 && h.frameRate >= 1 &&
         h.numNodes >= 0 && h.numSamples >= 0 && h.sampleStride >= 1 &&
         h.dataOffset == kDataOffset && h.sampleTableOffset >= kMinSampleTableOffset;
}

void SerializeHeader(const CacheHeader& h, uint8_t* b) {
  std::memcpy(b, kCacheMagic, sizeof kCacheMagic);
  b[7] = h.version;
  b[8] = h.reserved;
  StoreLE(b + 9, h.start);
  StoreLE(b + 13, h.end);
  StoreLE(b + 17, h.step);
  StoreLE(b + 21, h.frameRate);
  StoreLE(b + 25, h.numNodes);
  StoreLE(b + 29, h.numSamples);
  StoreLE(b + 33, h.sampleStride);
  StoreLE(b + 37, h.dataOffset);
  StoreLE(b + 41, h.sampleTableOffset);
  b[45] = h.hasVisibility;
}

}  // namespace KelvaneTools
