// Squad segments eight fractions at a time. Built for AVX2 (without fused multiply-adds) and
// called only where the processor has it; everything here has internal linkage so that no
// AVX2 code can stand in for the library's own inline functions.
#include "host/standalone/rotation_lanes_avx2.h"

#if KV_ROTATION_AVX2
#include <immintrin.h>

namespace kv::standalone::lanes {
namespace {

struct F8 {
  __m256 v;
  F8() = default;
  explicit F8(__m256 x) : v(x) {}
  F8(float x) : v(_mm256_set1_ps(x)) {}  // NOLINT: constants read as in the scalar code
};
struct M8 {
  __m256 m;
};
struct I8 {
  __m256i i;
};
F8 operator+(F8 a, F8 b) {
  return F8(_mm256_add_ps(a.v, b.v));
}
F8 operator-(F8 a, F8 b) {
  return F8(_mm256_sub_ps(a.v, b.v));
}
F8 operator*(F8 a, F8 b) {
  return F8(_mm256_mul_ps(a.v, b.v));
}
F8 operator/(F8 a, F8 b) {
  return F8(_mm256_div_ps(a.v, b.v));
}
F8 operator-(F8 a) {
  return F8(_mm256_xor_ps(a.v, _mm256_set1_ps(-0.0f)));
}
F8 Sqrt(F8 x) {
  return F8(_mm256_sqrt_ps(x.v));
}
F8 Abs(F8 x) {
  return F8(_mm256_andnot_ps(_mm256_set1_ps(-0.0f), x.v));
}
M8 Greater(F8 a, F8 b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_GT_OQ)};
}
M8 Less(F8 a, F8 b) {
  return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OQ)};
}
F8 Select(M8 m, F8 a, F8 b) {
  return F8(_mm256_blendv_ps(b.v, a.v, m.m));
}
F8 Max(F8 a, F8 b) {
  return F8(_mm256_max_ps(a.v, b.v));
}
F8 Min(F8 a, F8 b) {
  return F8(_mm256_min_ps(a.v, b.v));
}
I8 Truncate(F8 x) {
  return {_mm256_cvttps_epi32(x.v)};
}
F8 ToFloat(I8 i) {
  return F8(_mm256_cvtepi32_ps(i.i));
}
I8 operator+(I8 a, int32_t b) {
  return {_mm256_add_epi32(a.i, _mm256_set1_epi32(b))};
}
M8 Bit(I8 i, int32_t b) {
  const __m256i k = _mm256_set1_epi32(b);
  return {_mm256_castsi256_ps(_mm256_cmpeq_epi32(_mm256_and_si256(i.i, k), k))};
}

}  // namespace

size_t SquadRunAvx2(const ArcL<float>& outerArc, const ArcL<float>& innerArc, const float* s,
                    size_t count, float* out) {
  const ArcL<F8> outer = Broadcast<F8>(outerArc), inner = Broadcast<F8>(innerArc);
  size_t j = 0;
  for (; j + 8 <= count; j += 8, out += 32) {
    const F8 f(_mm256_loadu_ps(s + j));
    const QuatL<F8> q = Squad(outer, inner, f);
    // Eight x, y, z, w registers to eight quaternions one after the other.
    const __m256 xy0 = _mm256_unpacklo_ps(q.x.v, q.y.v), xy1 = _mm256_unpackhi_ps(q.x.v, q.y.v);
    const __m256 zw0 = _mm256_unpacklo_ps(q.z.v, q.w.v), zw1 = _mm256_unpackhi_ps(q.z.v, q.w.v);
    const __m256 q04 = _mm256_shuffle_ps(xy0, zw0, 0x44), q15 = _mm256_shuffle_ps(xy0, zw0, 0xEE);
    const __m256 q26 = _mm256_shuffle_ps(xy1, zw1, 0x44), q37 = _mm256_shuffle_ps(xy1, zw1, 0xEE);
    _mm256_storeu_ps(out, _mm256_permute2f128_ps(q04, q15, 0x20));
    _mm256_storeu_ps(out + 8, _mm256_permute2f128_ps(q26, q37, 0x20));
    _mm256_storeu_ps(out + 16, _mm256_permute2f128_ps(q04, q15, 0x31));
    _mm256_storeu_ps(out + 24, _mm256_permute2f128_ps(q26, q37, 0x31));
  }
  return j;
}

}  // namespace kv::standalone::lanes
#endif
