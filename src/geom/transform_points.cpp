#include "geom/transform_points.h"

#if defined(__x86_64__) || defined(_M_X64)
#include <immintrin.h>
#define KV_X64 1
#else
#define KV_X64 0
#endif

namespace kv {

static_assert(sizeof(Point3) == 12, "vertices are packed float triples");

namespace {

void TransformScalar(const Matrix3& m, const float* __restrict in, float* __restrict out,
                     std::size_t n) {
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2), r3 = m.GetRow(3);
  for (std::size_t j = 0; j < n; ++j, in += 3, out += 3) {
    const float x = in[0], y = in[1], z = in[2];
    out[0] = x * r0.x + y * r1.x + z * r2.x + r3.x;
    out[1] = x * r0.y + y * r1.y + z * r2.y + r3.y;
    out[2] = x * r0.z + y * r1.z + z * r2.z + r3.z;
  }
}

#if KV_X64
// Four packed vertices are three registers x0 y0 z0 x1 | y1 z1 x2 y2 | z2 x3 y3 z3. They are
// turned into one register per coordinate, carried with every multiply four wide, and turned
// back. The same shuffles work within each 128-bit half of a 256-bit register, so the AVX
// path does eight vertices with them.
#define KV_TO_SOA(SHUF, i0, i1, i2, X, Y, Z)                               \
  const auto t_ = SHUF(i1, i2, _MM_SHUFFLE(2, 1, 3, 2)); /* x2 y2 x3 y3 */ \
  const auto u_ = SHUF(i0, i1, _MM_SHUFFLE(1, 0, 2, 1)); /* y0 z0 y1 z1 */ \
  const auto X = SHUF(i0, t_, _MM_SHUFFLE(2, 0, 3, 0));                    \
  const auto Y = SHUF(u_, t_, _MM_SHUFFLE(3, 1, 2, 0));                    \
  const auto Z = SHUF(u_, i2, _MM_SHUFFLE(3, 0, 3, 1))

#define KV_TO_AOS(SHUF, UNPACKLO, UNPACKHI, ox, oy, oz, o0, o1, o2)                               \
  const auto xy01_ = UNPACKLO(ox, oy); /* x0 y0 x1 y1 */                                          \
  const auto xy23_ = UNPACKHI(ox, oy); /* x2 y2 x3 y3 */                                          \
  const auto o0 = SHUF(xy01_, SHUF(oz, xy01_, _MM_SHUFFLE(2, 2, 0, 0)), _MM_SHUFFLE(2, 0, 1, 0)); \
  const auto o1 = SHUF(SHUF(xy01_, oz, _MM_SHUFFLE(1, 1, 3, 3)), xy23_, _MM_SHUFFLE(1, 0, 2, 0)); \
  const auto o2 = SHUF(SHUF(oz, xy23_, _MM_SHUFFLE(2, 2, 2, 2)),                                  \
                       SHUF(xy23_, oz, _MM_SHUFFLE(3, 3, 3, 3)), _MM_SHUFFLE(2, 0, 2, 0))

// Whole groups of four; returns how many vertices it did.
std::size_t TransformSse(const Matrix3& m, const float* __restrict in, float* __restrict out,
                         std::size_t n) {
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2), r3 = m.GetRow(3);
  const __m128 a0 = _mm_set1_ps(r0.x), a1 = _mm_set1_ps(r0.y), a2 = _mm_set1_ps(r0.z);
  const __m128 b0 = _mm_set1_ps(r1.x), b1 = _mm_set1_ps(r1.y), b2 = _mm_set1_ps(r1.z);
  const __m128 c0 = _mm_set1_ps(r2.x), c1 = _mm_set1_ps(r2.y), c2 = _mm_set1_ps(r2.z);
  const __m128 t0 = _mm_set1_ps(r3.x), t1 = _mm_set1_ps(r3.y), t2 = _mm_set1_ps(r3.z);
  std::size_t j = 0;
  for (; j + 4 <= n; j += 4) {
    const float* p = in + 3 * j;
    const __m128 i0 = _mm_loadu_ps(p), i1 = _mm_loadu_ps(p + 4), i2 = _mm_loadu_ps(p + 8);
    KV_TO_SOA(_mm_shuffle_ps, i0, i1, i2, X, Y, Z);
    const __m128 ox = _mm_add_ps(_mm_add_ps(_mm_mul_ps(X, a0), _mm_mul_ps(Y, b0)),
                                 _mm_add_ps(_mm_mul_ps(Z, c0), t0));
    const __m128 oy = _mm_add_ps(_mm_add_ps(_mm_mul_ps(X, a1), _mm_mul_ps(Y, b1)),
                                 _mm_add_ps(_mm_mul_ps(Z, c1), t1));
    const __m128 oz = _mm_add_ps(_mm_add_ps(_mm_mul_ps(X, a2), _mm_mul_ps(Y, b2)),
                                 _mm_add_ps(_mm_mul_ps(Z, c2), t2));
    KV_TO_AOS(_mm_shuffle_ps, _mm_unpacklo_ps, _mm_unpackhi_ps, ox, oy, oz, o0, o1, o2);
    float* q = out + 3 * j;
    _mm_storeu_ps(q, o0);
    _mm_storeu_ps(q + 4, o1);
    _mm_storeu_ps(q + 8, o2);
  }
  return j;
}

#if defined(__GNUC__) || defined(__AVX2__)
#if defined(__GNUC__)
#define KV_AVX_TARGET __attribute__((target("avx2,fma")))
#else
#define KV_AVX_TARGET
#endif
// Whole groups of eight, the first four in the low halves of the registers. Three plain loads
// and a blend or lane swap each put vertices 0-3 in the low halves and 4-7 in the high halves,
// cheaper than loading the halves one by one; the stores undo it the same way.
KV_AVX_TARGET std::size_t TransformAvx(const Matrix3& m, const float* __restrict in,
                                       float* __restrict out, std::size_t n) {
  if (n < 8) return 0;
  const Point3 &r0 = m.GetRow(0), &r1 = m.GetRow(1), &r2 = m.GetRow(2), &r3 = m.GetRow(3);
  const __m256 a0 = _mm256_broadcast_ss(&r0.x), a1 = _mm256_broadcast_ss(&r0.y),
               a2 = _mm256_broadcast_ss(&r0.z);
  const __m256 b0 = _mm256_broadcast_ss(&r1.x), b1 = _mm256_broadcast_ss(&r1.y),
               b2 = _mm256_broadcast_ss(&r1.z);
  const __m256 c0 = _mm256_broadcast_ss(&r2.x), c1 = _mm256_broadcast_ss(&r2.y),
               c2 = _mm256_broadcast_ss(&r2.z);
  const __m256 t0 = _mm256_broadcast_ss(&r3.x), t1 = _mm256_broadcast_ss(&r3.y),
               t2 = _mm256_broadcast_ss(&r3.z);
  std::size_t j = 0;
  for (; j + 8 <= n; j += 8) {
    const float* p = in + 3 * j;
    const __m256 l0 = _mm256_loadu_ps(p), l1 = _mm256_loadu_ps(p + 8), l2 = _mm256_loadu_ps(p + 16);
    const __m256 i0 = _mm256_blend_ps(l0, l1, 0xF0);         // f0-3  | f12-15
    const __m256 i1 = _mm256_permute2f128_ps(l0, l2, 0x21);  // f4-7  | f16-19
    const __m256 i2 = _mm256_blend_ps(l1, l2, 0xF0);         // f8-11 | f20-23
    KV_TO_SOA(_mm256_shuffle_ps, i0, i1, i2, X, Y, Z);
    const __m256 ox = _mm256_fmadd_ps(X, a0, _mm256_fmadd_ps(Y, b0, _mm256_fmadd_ps(Z, c0, t0)));
    const __m256 oy = _mm256_fmadd_ps(X, a1, _mm256_fmadd_ps(Y, b1, _mm256_fmadd_ps(Z, c1, t1)));
    const __m256 oz = _mm256_fmadd_ps(X, a2, _mm256_fmadd_ps(Y, b2, _mm256_fmadd_ps(Z, c2, t2)));
    KV_TO_AOS(_mm256_shuffle_ps, _mm256_unpacklo_ps, _mm256_unpackhi_ps, ox, oy, oz, o0, o1, o2);
    float* q = out + 3 * j;
    _mm256_storeu_ps(q, _mm256_permute2f128_ps(o0, o1, 0x20));
    _mm256_storeu_ps(q + 8, _mm256_blend_ps(o2, o0, 0xF0));
    _mm256_storeu_ps(q + 16, _mm256_permute2f128_ps(o1, o2, 0x31));
  }
  return j;
}

bool HasAvx() {
#if defined(__AVX2__) && (defined(__FMA__) || defined(_MSC_VER))
  return true;
#else
  static const bool has = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  return has;
#endif
}
#define KV_HAVE_AVX_PATH 1
#endif
#endif  // KV_X64

}  // namespace

namespace {

// Whatever the widest path left: one group of four, then single vertices. Never inlined into
// the AVX path, where the compiler could fuse their multiplies and adds and so change the
// results of a tail from one machine to the next.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
void TransformTail(const Matrix3& m, const float* in, float* out, std::size_t n) {
  std::size_t done = 0;
#if KV_X64
  // Its twelve broadcasts are wasted on a tail of fewer than four (an element's vertex count
  // is often a multiple of eight).
  if (n >= 4) done = TransformSse(m, in, out, n);
#endif
  TransformScalar(m, in + 3 * done, out + 3 * done, n - done);
}

#if defined(KV_HAVE_AVX_PATH)
KV_AVX_TARGET void RunsAvx(const PointRun* runs, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) {
    const PointRun& r = runs[k];
    const float* src = reinterpret_cast<const float*>(r.in);
    float* dst = reinterpret_cast<float*>(r.out);
    const std::size_t done = TransformAvx(*r.m, src, dst, r.n);
    if (done != r.n) TransformTail(*r.m, src + 3 * done, dst + 3 * done, r.n - done);
  }
}
#endif

void RunsPortable(const PointRun* runs, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) {
    const PointRun& r = runs[k];
    TransformTail(*r.m, reinterpret_cast<const float*>(r.in), reinterpret_cast<float*>(r.out), r.n);
  }
}

}  // namespace

void TransformPointRuns(const PointRun* runs, std::size_t count) {
#if defined(KV_HAVE_AVX_PATH)
  if (HasAvx()) return RunsAvx(runs, count);
#endif
  RunsPortable(runs, count);
}

void TransformPoints(const Matrix3& m, const Point3* in, Point3* out, std::size_t n) {
  const PointRun run{&m, in, out, n};
  TransformPointRuns(&run, 1);
}

}  // namespace kv
