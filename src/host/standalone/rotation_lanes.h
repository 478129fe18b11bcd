// Rotation arithmetic of the standalone controllers, written once for one value (float) and
// for four at a time (F4, on the x86-64 vector unit). Both go through the very same sequence of
// IEEE operations (the library built with -ffp-contract=off, the sine, cosine and arc cosine
// our own polynomials), so a rotation track sampled four times at once gives the same bits as
// the controller's own evaluation at each time: key reduction relies on that.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>

#if defined(__x86_64__) || defined(_M_X64)
#include <emmintrin.h>
#define KV_ROTATION_LANES 1
#else
#define KV_ROTATION_LANES 0
#endif

// Every sample goes through these several times: inlined, so that their values stay in
// registers.
#if defined(__GNUC__)
#define KV_LANE [[gnu::always_inline]] inline
#else
#define KV_LANE inline
#endif

namespace kv::standalone::lanes {

// ---- one value

inline float Sqrt(float x) {
  return std::sqrt(x);
}
inline float Abs(float x) {
  return std::fabs(x);
}
inline bool Greater(float a, float b) {
  return a > b;
}
inline bool Less(float a, float b) {
  return a < b;
}
inline float Select(bool m, float a, float b) {
  return m ? a : b;
}
// As the vector unit's max and min: the second operand when the two are unordered.
inline float Max(float a, float b) {
  return a > b ? a : b;
}
inline float Min(float a, float b) {
  return a < b ? a : b;
}
inline int32_t Truncate(float x) {
  return static_cast<int32_t>(x);
}
inline float ToFloat(int32_t i) {
  return static_cast<float>(i);
}
inline bool Bit(int32_t i, int32_t b) {
  return (i & b) != 0;
}

// ---- four values

#if KV_ROTATION_LANES
struct F4 {
  __m128 v;
  F4() = default;
  explicit F4(__m128 x) : v(x) {}
  F4(float x) : v(_mm_set1_ps(x)) {}  // NOLINT: constants read as in the scalar code
};
struct M4 {
  __m128 m;
};
struct I4 {
  __m128i i;
};
inline F4 operator+(F4 a, F4 b) {
  return F4(_mm_add_ps(a.v, b.v));
}
inline F4 operator-(F4 a, F4 b) {
  return F4(_mm_sub_ps(a.v, b.v));
}
inline F4 operator*(F4 a, F4 b) {
  return F4(_mm_mul_ps(a.v, b.v));
}
inline F4 operator/(F4 a, F4 b) {
  return F4(_mm_div_ps(a.v, b.v));
}
inline F4 operator-(F4 a) {
  return F4(_mm_xor_ps(a.v, _mm_set1_ps(-0.0f)));
}
inline F4 Sqrt(F4 x) {
  return F4(_mm_sqrt_ps(x.v));
}
inline F4 Abs(F4 x) {
  return F4(_mm_andnot_ps(_mm_set1_ps(-0.0f), x.v));
}
inline M4 Greater(F4 a, F4 b) {
  return {_mm_cmpgt_ps(a.v, b.v)};
}
inline M4 Less(F4 a, F4 b) {
  return {_mm_cmplt_ps(a.v, b.v)};
}
inline F4 Select(M4 m, F4 a, F4 b) {
  return F4(_mm_or_ps(_mm_and_ps(m.m, a.v), _mm_andnot_ps(m.m, b.v)));
}
inline F4 Max(F4 a, F4 b) {
  return F4(_mm_max_ps(a.v, b.v));
}
inline F4 Min(F4 a, F4 b) {
  return F4(_mm_min_ps(a.v, b.v));
}
inline I4 Truncate(F4 x) {
  return {_mm_cvttps_epi32(x.v)};
}
inline F4 ToFloat(I4 i) {
  return F4(_mm_cvtepi32_ps(i.i));
}
inline I4 operator+(I4 a, int32_t b) {
  return {_mm_add_epi32(a.i, _mm_set1_epi32(b))};
}
inline M4 Bit(I4 i, int32_t b) {
  const __m128i k = _mm_set1_epi32(b);
  return {_mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(i.i, k), k))};
}
#endif

// ---- the functions, for either

// Sine and cosine, accurate to a few units in the last place for the angles rotations use
// (0 to a little over pi): reduced by the nearest multiple of pi/2, in three parts so that the
// remainder keeps its precision, then the usual minimax polynomials on [-pi/4, pi/4].
template <class F>
struct Reduced {
  decltype(Truncate(F{})) j;
  F r, z;
};
template <class F>
KV_LANE Reduced<F> Reduce(F x) {
  const auto j = Truncate(x * F(0.636619772f) + F(0.5f));
  const F q = ToFloat(j);
  const F r = ((x - q * F(1.5703125f)) - q * F(4.837512969970703125e-4f)) - q * F(7.54978995e-8f);
  return {j, r, r * r};
}
template <class F>
KV_LANE F SinPoly(F r, F z) {
  return ((F(-1.9515295891e-4f) * z + F(8.3321608736e-3f)) * z - F(1.6666654611e-1f)) * z * r + r;
}
template <class F>
KV_LANE F CosPoly(F z) {
  return ((F(2.443315711809948e-5f) * z - F(1.388731625493765e-3f)) * z +
          F(4.166664568298827e-2f)) *
             z * z -
         F(0.5f) * z + F(1.0f);
}

template <class F>
KV_LANE void SinCos(F x, F& sn, F& cs) {
  const Reduced<F> d = Reduce(x);
  const F ps = SinPoly(d.r, d.z), pc = CosPoly(d.z);
  const auto swap = Bit(d.j, 1);
  const F s = Select(swap, pc, ps), c = Select(swap, ps, pc);
  sn = Select(Bit(d.j, 2), -s, s);
  cs = Select(Bit(d.j + 1, 2), -c, c);
}

// The sine alone, the same bits as SinCos's.
template <class F>
KV_LANE F Sin(F x) {
  if constexpr (std::is_same_v<F, float>) {
    const Reduced<F> d = Reduce(x);
    const F s = (d.j & 1) ? CosPoly(d.z) : SinPoly(d.r, d.z);
    return (d.j & 2) ? -s : s;
  } else {
    F sn, cs;
    SinCos(x, sn, cs);
    return sn;
  }
}

// Arc cosine of x in [-1, 1]: from the arc sine's polynomial on [0, 1/2], through the half
// angle near +-1 so that small angles keep their precision.
template <class F>
KV_LANE F Acos(F x) {
  const F a = Abs(x);
  const auto big = Greater(a, F(0.5f));
  F z, s;
  if constexpr (std::is_same_v<F, float>) {
    // One value takes only its own branch; the arithmetic is the same.
    if (big)
      z = F(0.5f) * (F(1.0f) - a), s = Sqrt(z);
    else
      z = a * a, s = a;
  } else {
    const F half = F(0.5f) * (F(1.0f) - a);
    z = Select(big, half, a * a);
    s = Select(big, Sqrt(half), a);
  }
  const F p = ((((F(4.2163199048e-2f) * z + F(2.4181311049e-2f)) * z + F(4.5470025998e-2f)) * z +
                F(7.4953002686e-2f)) *
                   z +
               F(1.6666752422e-1f)) *
                  z * s +
              s;
  const auto negative = Less(x, F(0.0f));
  if constexpr (std::is_same_v<F, float>) {
    if (big) return negative ? F(3.14159265f) - F(2.0f) * p : F(2.0f) * p;
    return F(1.57079633f) - (negative ? -p : p);
  } else {
    const F twice = F(2.0f) * p;
    const F far = Select(negative, F(3.14159265f) - twice, twice);
    const F near = F(1.57079633f) - Select(negative, -p, p);
    return Select(big, far, near);
  }
}

template <class F>
struct QuatL {
  F x{}, y{}, z{}, w{};
};

template <class F>
KV_LANE QuatL<F> Unit(const QuatL<F>& q) {
  const F l = Sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w);
  if constexpr (std::is_same_v<F, float>) {
    if (!(l > 0)) return {0, 0, 0, 1};
    return {q.x / l, q.y / l, q.z / l, q.w / l};
  }
  const auto ok = Greater(l, F(0.0f));
  return {Select(ok, q.x / l, F(0.0f)), Select(ok, q.y / l, F(0.0f)), Select(ok, q.z / l, F(0.0f)),
          Select(ok, q.w / l, F(1.0f))};
}

// A great arc from a to b, not necessarily the shorter one, with its angle measured once.
template <class F>
struct ArcL {
  QuatL<F> a, b;
  F th{}, sinTh{}, cosTh{};
};

template <class F>
KV_LANE ArcL<F> MakeArc(const QuatL<F>& a, const QuatL<F>& b) {
  const F d = Min(Max(a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w, F(-1.0f)), F(1.0f));
  const F th = Acos(d);
  return {a, b, th, Sin(th), d};
}

// The point a fraction s along the arc. Both weights come from one sine and cosine,
// sin((1 - s)θ) = sinθ cos sθ - cosθ sin sθ, without their common factor 1 / sinθ, which the
// normalisation takes out anyway; a nearly closed arc blends linearly.
template <class F>
KV_LANE QuatL<F> Along(const ArcL<F>& c, F s) {
  const QuatL<F>& a = c.a;
  const QuatL<F>& b = c.b;
  if constexpr (std::is_same_v<F, float>) {
    if (!(c.sinTh > 1e-6f))
      return Unit(QuatL<F>{a.x * (1 - s) + b.x * s, a.y * (1 - s) + b.y * s,
                           a.z * (1 - s) + b.z * s, a.w * (1 - s) + b.w * s});
  }
  F sn, cs;
  SinCos(s * c.th, sn, cs);
  const auto curved = Greater(c.sinTh, F(1e-6f));
  const F wa = Select(curved, c.sinTh * cs - c.cosTh * sn, F(1.0f) - s);
  const F wb = Select(curved, sn, s);
  return Unit(
      QuatL<F>{a.x * wa + b.x * wb, a.y * wa + b.y * wb, a.z * wa + b.z * wb, a.w * wa + b.w * wb});
}

// An arc measured once, as the same value in every lane.
template <class F>
KV_LANE ArcL<F> Broadcast(const ArcL<float>& c) {
  auto q = [](const QuatL<float>& p) { return QuatL<F>{F(p.x), F(p.y), F(p.z), F(p.w)}; };
  return {q(c.a), q(c.b), F(c.th), F(c.sinTh), F(c.cosTh)};
}

// A squad segment at the fraction s: the slerp, by 2s(1 - s), from the outer arc's point at
// s to the inner arc's.
template <class F>
KV_LANE QuatL<F> Squad(const ArcL<F>& outer, const ArcL<F>& inner, F s) {
  return Along(MakeArc(Along(outer, s), Along(inner, s)), F(2.0f) * s * (F(1.0f) - s));
}

}  // namespace kv::standalone::lanes
