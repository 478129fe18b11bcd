// Small hand-built caches shared by the reader tests.
#pragma once

#include "cache_bytes.h"

namespace kvtest {

// Two elements, two samples:
//  0 "Cube": 3 vertices, 1 face (matId 4, smoothing 5, edge byte 0x0F, selected), explicit
//    normals (0,0,1) when the version has them; map channels 1 (3 vertices) and 3 (1 vertex).
//  1 "Würfel": its 6 characters stored as 6 bytes of Windows-1252; 3 vertices,
//    1 face (matId 2, smoothing 1, edges 3, reversed corners), channel 3 only (3 vertices).
//  Sample 0: element 0 at the origin, element 1 at x = 10 and invisible.
//  Sample 1: element 0 at x = 2, element 1 at x = 20 and visible.
inline Bytes TwoElementCache(uint8_t version) {
  const bool v2 = version >= 2;
  Bytes f;
  HeaderFields h;
  h.version = version;
  h.end = 160;
  h.nodes = 2;
  h.samples = 2;
  h.stride = 98;
  h.hasVis = 1;
  PutHeader(f, h);
  f.zeros(256 - f.size());

  // Element records.
  f.i32(4).str("Cube").f32(0).f32(0).f32(0).f32(1).f32(1).f32(0);
  f.i32(3).i32(1).i32(2).i32(1).i32(3).i32(3).i32(1);
  if (v2) f.u8(1);
  f.i32(6).str("W\xFCrfel");
  f.f32(5).f32(5).f32(5).f32(6).f32(6).f32(5);
  f.i32(3).i32(1).i32(1).i32(3).i32(3);
  if (v2) f.u8(0);

  // Geometry blocks.
  f.f32(0).f32(0).f32(0).f32(1).f32(0).f32(0).f32(0).f32(1).f32(0);
  f.u16(4).u32(5).u8(0x0F).u8(1).u32(0).u32(1).u32(2);
  if (v2)
    for (int c = 0; c < 3; ++c) f.f32(0).f32(0).f32(1);
  else
    f.zeros(12);
  f.f32(5).f32(5).f32(5).f32(6).f32(5).f32(5).f32(5).f32(6).f32(5);
  f.u16(2).u32(1).u8(3).u8(0).u32(2).u32(1).u32(0);
  for (int k = 0; k < (v2 ? 9 : 3); ++k) f.f32(9);  // ignored: no normals here

  // Channel 1: element 0 only.
  f.f32(0.1f).f32(0.2f).f32(0).f32(0.3f).f32(0.4f).f32(0).f32(0.5f).f32(0.6f).f32(0);
  f.u32(0).u32(1).u32(2);
  // Channel 3: element 0, then element 1.
  f.f32(1).f32(1).f32(1).u32(0).u32(0).u32(0);
  f.f32(0.7f).f32(0).f32(0).f32(0.8f).f32(0).f32(0).f32(0.9f).f32(0).f32(0);
  f.u32(2).u32(1).u32(0);

  f.PatchI32(kTableOffsetField, int32_t(f.size()));
  PutSample(f, 1, 0, 0, 0, true);
  PutSample(f, 1, 10, 0, 0, false);
  PutSample(f, 1, 2, 0, 0, true);
  PutSample(f, 1, 20, 0, 0, true);
  return f;
}

// `elements` unit triangles (element e at x = e in its own space), `samples` samples 160
// ticks apart; element e at sample s is translated by (s, e, 0) and visible.
inline Bytes GridCache(int elements, int samples) {
  Bytes f;
  HeaderFields h;
  h.end = (samples - 1) * 160;
  h.nodes = elements;
  h.samples = samples;
  h.stride = elements * 49;
  PutHeader(f, h);
  f.zeros(256 - f.size());
  for (int e = 0; e < elements; ++e) {
    f.i32(1).str("e").f32(float(e)).f32(0).f32(0).f32(float(e) + 1).f32(1).f32(0);
    f.i32(3).i32(1).i32(0).u8(0);
  }
  for (int e = 0; e < elements; ++e) {
    f.f32(float(e)).f32(0).f32(0).f32(float(e) + 1).f32(0).f32(0).f32(float(e)).f32(1).f32(0);
    f.u16(uint16_t(e)).u32(1).u8(7).u8(0).u32(0).u32(1).u32(2).zeros(36);
  }
  f.PatchI32(kTableOffsetField, int32_t(f.size()));
  for (int s = 0; s < samples; ++s)
    for (int e = 0; e < elements; ++e) PutSample(f, 1, float(s), float(e), 0, true);
  return f;
}

}  // namespace kvtest
