#include "geom/affine.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <type_traits>

#if defined(__SSE2__) || defined(_M_X64)
#include <immintrin.h>
#define KV_BLEND_SSE 1
#else
#define KV_BLEND_SSE 0
#endif

namespace kv {

namespace {

// 3x3 in double, row-vector convention like Matrix3. The decomposition squares the matrix,
// so it works in double to keep single-precision accuracy in the result.
struct Mat {
  double m[3][3];
};

// Stretch factors closer than this (relative to the largest) are treated as equal, so that
// float noise in a uniform scale does not pick an arbitrary stretch rotation.
constexpr double kEqualStretch = 2e-6;
// Singular values below this (relative to the largest) are a collapsed axis.
constexpr double kCollapsed = 1e-7;

using V3 = std::array<double, 3>;

double Dot(const V3& a, const V3& b) {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
V3 Cross(const V3& a, const V3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
V3 Unit(const V3& a) {
  const double l = std::sqrt(Dot(a, a));
  return l > 0 ? V3{a[0] / l, a[1] / l, a[2] / l} : V3{0, 0, 0};
}
// Any unit vector perpendicular to a unit vector.
V3 Perpendicular(const V3& a) {
  const int small = std::fabs(a[0]) < std::fabs(a[1]) ? (std::fabs(a[0]) < std::fabs(a[2]) ? 0 : 2)
                                                      : (std::fabs(a[1]) < std::fabs(a[2]) ? 1 : 2);
  V3 e{0, 0, 0};
  e[small] = 1;
  return Unit(Cross(a, e));
}

double Det(const V3& a, const V3& b, const V3& c) {
  return Dot(a, Cross(b, c));
}

Matrix3 ToMatrix3(const V3 rows[3]) {
  Matrix3 r;
  for (int i = 0; i < 3; ++i)
    r.SetRow(i, {static_cast<float>(rows[i][0]), static_cast<float>(rows[i][1]),
                 static_cast<float>(rows[i][2])});
  return r;
}

// Cyclic Jacobi on a symmetric matrix: on return a is diagonal (the eigenvalues) and the
// columns of v are the eigenvectors.
void Jacobi(Mat& a, Mat& v) {
  v = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  for (int sweep = 0; sweep < 50; ++sweep) {
    const double off = a.m[0][1] * a.m[0][1] + a.m[0][2] * a.m[0][2] + a.m[1][2] * a.m[1][2];
    const double diag = a.m[0][0] * a.m[0][0] + a.m[1][1] * a.m[1][1] + a.m[2][2] * a.m[2][2];
    // Off-diagonal mass this small moves the result less than float rounding of the input
    // does; stopping here spares the extra sweeps that near-equal eigenvalues (any rigid
    // rotation) would otherwise take.
    if (off <= 1e-15 * diag) return;
    for (int p = 0; p < 2; ++p) {
      for (int q = p + 1; q < 3; ++q) {
        const double apq = a.m[p][q];
        if (apq == 0) continue;
        const double theta = (a.m[q][q] - a.m[p][p]) / (2 * apq);
        // The smaller root of t^2 + 2 theta t - 1 = 0 keeps the rotation under 45 degrees.
        const double t =
            std::fabs(theta) > 1e100
                ? 0.5 / theta
                : (theta >= 0 ? 1 : -1) / (std::fabs(theta) + std::sqrt(theta * theta + 1));
        const double c = 1 / std::sqrt(t * t + 1), s = t * c;
        for (int k = 0; k < 3; ++k) {
          const double akp = a.m[k][p], akq = a.m[k][q];
          a.m[k][p] = c * akp - s * akq;
          a.m[k][q] = s * akp + c * akq;
        }
        for (int k = 0; k < 3; ++k) {
          const double apk = a.m[p][k], aqk = a.m[q][k];
          a.m[p][k] = c * apk - s * aqk;
          a.m[q][k] = s * apk + c * aqk;
        }
        for (int k = 0; k < 3; ++k) {
          const double vkp = v.m[k][p], vkq = v.m[k][q];
          v.m[k][p] = c * vkp - s * vkq;
          v.m[k][q] = s * vkp + c * vkq;
        }
      }
    }
  }
}

// Among the rotations that describe the same stretch (the stretch axes permuted and their
// signs flipped), picks the one closest to the identity and reorders k to match. Stretches
// that are equal along several axes leave a whole family of rotations; the closest of the
// family is chosen. Input: axes[i] (unit, right-handed or not) carries factor k[i].
Quat Snuggle(const V3 axes[3], double k[3]) {
  const double kmax = std::max({std::fabs(k[0]), std::fabs(k[1]), std::fabs(k[2])});
  const double tol = kEqualStretch * kmax;
  const bool e01 = std::fabs(k[0] - k[1]) <= tol, e02 = std::fabs(k[0] - k[2]) <= tol,
             e12 = std::fabs(k[1] - k[2]) <= tol;
  if ((e01 && e02) || (e01 && e12) || (e02 && e12)) {
    const double mean = (k[0] + k[1] + k[2]) / 3;
    k[0] = k[1] = k[2] = mean;
    return {};
  }
  if (e01 || e02 || e12) {
    // One distinct axis d: put it on the coordinate axis it is nearest to by the smallest
    // rotation; the equal pair fills the other two slots.
    const int c = e01 ? 2 : (e02 ? 1 : 0);
    const double pair = (k[0] + k[1] + k[2] - k[c]) / 2;
    const double kc = k[c];
    const V3& d = axes[c];
    int j = 0;
    for (int i = 1; i < 3; ++i)
      if (std::fabs(d[i]) > std::fabs(d[j])) j = i;
    const double s = d[j] < 0 ? -1 : 1;
    const V3 to{s * d[0], s * d[1], s * d[2]};
    V3 from{0, 0, 0};
    from[j] = 1;
    const V3 axis = Cross(from, to);
    const Quat u = Quat(static_cast<float>(axis[0]), static_cast<float>(axis[1]),
                        static_cast<float>(axis[2]), static_cast<float>(1 + Dot(from, to)))
                       .Normalized();
    k[0] = k[1] = k[2] = pair;
    k[j] = kc;
    return u;
  }
  // Distinct factors: 6 permutations x sign choices; keep the right-handed one with the
  // largest trace (the smallest rotation angle).
  static constexpr int kPerms[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                       {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
  const double handed = Det(axes[0], axes[1], axes[2]) < 0 ? -1 : 1;
  double bestTrace = -4;
  int bestPerm = 0;
  double bestSign[3] = {1, 1, 1};
  for (int p = 0; p < 6; ++p) {
    double sign[3], diag[3], product = 1;
    for (int i = 0; i < 3; ++i) {
      diag[i] = axes[kPerms[p][i]][i];
      sign[i] = diag[i] < 0 ? -1 : 1;
      product *= sign[i];
    }
    const double parity = p < 3 ? 1 : -1;
    if (product * parity * handed < 0) {
      int weakest = 0;
      for (int i = 1; i < 3; ++i)
        if (std::fabs(diag[i]) < std::fabs(diag[weakest])) weakest = i;
      sign[weakest] = -sign[weakest];
    }
    const double trace = sign[0] * diag[0] + sign[1] * diag[1] + sign[2] * diag[2];
    if (trace > bestTrace) {
      bestTrace = trace;
      bestPerm = p;
      std::copy(sign, sign + 3, bestSign);
    }
  }
  V3 rows[3];
  double kp[3];
  for (int i = 0; i < 3; ++i) {
    const int src = kPerms[bestPerm][i];
    rows[i] = {bestSign[i] * axes[src][0], bestSign[i] * axes[src][1], bestSign[i] * axes[src][2]};
    kp[i] = k[src];
  }
  std::copy(kp, kp + 3, k);
  return Quat(ToMatrix3(rows));
}

}  // namespace

AffineParts DecompAffine(const Matrix3& m) {
  AffineParts parts;
  parts.t = m.GetTrans();
  V3 a[3];
  double scale = 0;
  for (int i = 0; i < 3; ++i) {
    const Point3 r = m.GetRow(i);
    a[i] = {r.x, r.y, r.z};
    for (double x : a[i]) scale = std::max(scale, std::fabs(x));
  }
  if (!(scale > 0) || !std::isfinite(scale)) {
    parts.k = {0, 0, 0};
    return parts;
  }
  for (V3& r : a)
    for (double& x : r) x /= scale;

  // With A = S Q (S symmetric, Q orthogonal), A A^T = S^2: its eigenvectors are the stretch
  // axes and the square roots of its eigenvalues the stretch factors. This is the singular
  // value decomposition A = V sigma W^T, and Q = V W^T; unlike the polar iteration it stays
  // defined when A is singular.
  Mat b, v;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) b.m[i][j] = Dot(a[i], a[j]);
  Jacobi(b, v);
  int order[3] = {0, 1, 2};
  std::sort(order, order + 3, [&b](int x, int y) { return b.m[x][x] > b.m[y][y]; });
  V3 axis[3];  // eigenvectors, largest stretch first
  double sigma[3];
  for (int i = 0; i < 3; ++i) {
    const int c = order[i];
    axis[i] = {v.m[0][c], v.m[1][c], v.m[2][c]};
    sigma[i] = std::sqrt(std::max(0.0, b.m[c][c]));
  }
  // w_i = A^T v_i / sigma_i, made exactly orthonormal; collapsed axes are completed by cross
  // products, with the handedness that makes Q a rotation (a singular matrix has no sign).
  V3 w[3];
  int rank = 0;
  for (int i = 0; i < 3; ++i) {
    if (sigma[i] <= kCollapsed * sigma[0]) break;
    V3 wi{0, 0, 0};
    for (int r = 0; r < 3; ++r)
      for (int c = 0; c < 3; ++c) wi[c] += a[r][c] * axis[i][r];
    for (int j = 0; j < i; ++j) {
      const double d = Dot(wi, w[j]);
      for (int c = 0; c < 3; ++c) wi[c] -= d * w[j][c];
    }
    w[i] = Unit(wi);
    ++rank;
  }
  for (int i = rank; i < 3; ++i) sigma[i] = 0;
  const double handed = Det(axis[0], axis[1], axis[2]) < 0 ? -1 : 1;
  if (rank < 2) w[1] = Perpendicular(w[0]);
  if (rank < 3) {
    w[2] = Cross(w[0], w[1]);
    for (double& x : w[2]) x *= handed;
  }

  // Q = V W^T: row r is sum_i V[r][i] w_i.
  V3 q[3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      q[r][c] = axis[0][r] * w[0][c] + axis[1][r] * w[1][c] + axis[2][r] * w[2][c];
  if (Det(q[0], q[1], q[2]) < 0) {
    parts.f = -1;
    for (V3& r : q)
      for (double& x : r) x = -x;
  }
  parts.q = Quat(ToMatrix3(q));

  double k[3] = {sigma[0] * scale, sigma[1] * scale, sigma[2] * scale};
  parts.u = Snuggle(axis, k);
  parts.k = {static_cast<float>(k[0]), static_cast<float>(k[1]), static_cast<float>(k[2])};
  return parts;
}

Matrix3 ComposeAffine(const AffineParts& p) {
  const Matrix3 u = p.u.ToMatrix();
  // inverse(U) x Scale(k) x U is the symmetric stretch S(i, j) = sum_m U(m, i) k_m U(m, j).
  Point3 s[3];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      s[i][j] = u.GetRow(0)[i] * p.k.x * u.GetRow(0)[j] + u.GetRow(1)[i] * p.k.y * u.GetRow(1)[j] +
                u.GetRow(2)[i] * p.k.z * u.GetRow(2)[j];
  const Matrix3 q = p.q.ToMatrix();
  Matrix3 r;
  for (int i = 0; i < 3; ++i) r.SetRow(i, q.VectorTransform(s[i] * p.f));
  r.SetTrans(p.t);
  return r;
}

Matrix3 BlendTransforms(const Matrix3& a, const Matrix3& b, float f) {
  const AffineParts pa = DecompAffine(a);
  const AffineParts pb = DecompAffine(b);
  const float g = 1 - f;
  AffineParts p;
  p.t = pa.t * g + pb.t * f;
  p.k = pa.k * g + pb.k * f;
  p.f = pa.f * g + pb.f * f;
  p.q = Slerp(pa.q, pb.q.Closest(pa.q), f);
  p.u = Slerp(pa.u, pb.u.Closest(pa.u), f);
  return ComposeAffine(p);
}

namespace {

// Beyond this the truncated series loses accuracy quickly; such wide steps are rare.
constexpr float kSeriesMinCos = 0.6f;

// sin(t theta) / sin(theta) = sum_i c_i (x - 1)^i with x = cos(theta), c_0 = t and
// c_i = c_(i-1) (t^2 - i^2) / (i (2i + 1)). Nine coefficients (through i = 8) keep the error
// below 6e-8 for x >= kSeriesMinCos; near x = 1 the series is exact where the trigonometric
// form divides by almost zero.
void SinRatioCoefficients(float t, float* c) {
  // (t^2 - i^2) / (i (2i + 1)) = u_i t^2 - v_i.
  static constexpr float kU[8] = {1.f / 3,  1.f / 10, 1.f / 21,  1.f / 36,
                                  1.f / 55, 1.f / 78, 1.f / 105, 1.f / 136};
  static constexpr float kV[8] = {1.f / 3,  2.f / 5,  3.f / 7,  4.f / 9,
                                  5.f / 11, 6.f / 13, 7.f / 15, 8.f / 17};
  const float tt = t * t;
  c[0] = t;
  for (int i = 0; i < 8; ++i) c[i + 1] = c[i] * (kU[i] * tt - kV[i]);
}

// Estrin's scheme: a short dependency chain, as every blended element evaluates two of these.
inline float Polynomial(const float* c, float x) {
  static_assert(SlerpWeights::kTerms == 9);
  const float x2 = x * x, x4 = x2 * x2;
  return ((c[0] + c[1] * x) + x2 * (c[2] + c[3] * x)) +
         x4 * (((c[4] + c[5] * x) + x2 * (c[6] + c[7] * x)) + x4 * c[8]);
}

bool UniformStretch(const AffineParts& p) {
  return p.k.x == p.k.y && p.k.y == p.k.z;
}

}  // namespace

SlerpWeights::SlerpWeights(float fraction) : f(fraction) {
  SinRatioCoefficients(1 - fraction, wa);
  SinRatioCoefficients(fraction, wb);
}

Quat SlerpSeries(const Quat& a, const Quat& b, const SlerpWeights& w) {
  const Quat c = b.Closest(a);
  const float x = std::min(1.0f, a.Dot(c));
  if (!(x >= kSeriesMinCos)) return Slerp(a, b, w.f);
  const float wa = Polynomial(w.wa, x - 1), wb = Polynomial(w.wb, x - 1);
  const Quat r(wa * a.x + wb * c.x, wa * a.y + wb * c.y, wa * a.z + wb * c.z, wa * a.w + wb * c.w);
  const float n2 = r.Dot(r);
  if (!(n2 > 0) || !std::isfinite(n2)) return a;
  const float inv = 1 / std::sqrt(n2);
  return {r.x * inv, r.y * inv, r.z * inv, r.w * inv};
}

Quat SlerpSeries(const Quat& a, const Quat& b, float t) {
  return SlerpSeries(a, b, SlerpWeights(t));
}

Matrix3 BlendAffineParts(const AffineParts& a, const AffineParts& b, float f) {
  return BlendAffineParts(a, b, SlerpWeights(f));
}

Matrix3 BlendAffineParts(const AffineParts& a, const AffineParts& b, const SlerpWeights& w) {
  const float f = w.f, g = 1 - f;
  const Quat q = SlerpSeries(a.q, b.q, w);
  const Point3 t = a.t * g + b.t * f;
  if (UniformStretch(a) && UniformStretch(b)) {
    // inverse(U) x Scale(k) x U is k times the identity for any U.
    const float s = (a.k.x * g + b.k.x * f) * (a.f * g + b.f * f);
    const float xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
    const float xy = q.x * q.y, xz = q.x * q.z, yz = q.y * q.z;
    const float wx = q.w * q.x, wy = q.w * q.y, wz = q.w * q.z;
    const float s2 = 2 * s;
    return {{s - s2 * (yy + zz), s2 * (xy + wz), s2 * (xz - wy)},
            {s2 * (xy - wz), s - s2 * (xx + zz), s2 * (yz + wx)},
            {s2 * (xz + wy), s2 * (yz - wx), s - s2 * (xx + yy)},
            t};
  }
  AffineParts p;
  p.t = t;
  p.k = a.k * g + b.k * f;
  p.f = a.f * g + b.f * f;
  p.q = q;
  // Rigid motion keeps the stretch axes: equal ones need no slerp.
  p.u = a.u == b.u ? a.u : SlerpSeries(a.u, b.u, w);
  return ComposeAffine(p);
}

#if KV_BLEND_SSE
namespace {

static_assert(offsetof(AffineParts, t) == 0 && offsetof(AffineParts, q) == 12 &&
                  offsetof(AffineParts, k) == 44 && offsetof(AffineParts, f) == 56,
              "the parts are read as runs of floats");
static_assert(sizeof(Matrix3) == 12 * sizeof(float) && std::is_standard_layout_v<Matrix3>,
              "a matrix is its twelve floats, row by row");

// Polynomial above, four values of x at once, in the same order of operations.
inline __m128 Polynomial4(const float* c, __m128 x) {
  const auto k = [c](int i) { return _mm_set1_ps(c[i]); };
  const __m128 x2 = _mm_mul_ps(x, x), x4 = _mm_mul_ps(x2, x2);
  const __m128 lo = _mm_add_ps(_mm_add_ps(k(0), _mm_mul_ps(k(1), x)),
                               _mm_mul_ps(x2, _mm_add_ps(k(2), _mm_mul_ps(k(3), x))));
  const __m128 hi = _mm_add_ps(_mm_add_ps(k(4), _mm_mul_ps(k(5), x)),
                               _mm_mul_ps(x2, _mm_add_ps(k(6), _mm_mul_ps(k(7), x))));
  return _mm_add_ps(lo, _mm_mul_ps(x4, _mm_add_ps(hi, _mm_mul_ps(x4, k(8)))));
}

// Four elements whose blends take the uniform-stretch path with the series slerp; returns a
// mask of the lanes that do not (the caller blends those one by one).
int Blend4(const AffineParts* const* a, const AffineParts* const* b, const SlerpWeights& w,
           float* const* out) {
  const auto floats = [](const AffineParts* p, int offset) {
    return _mm_loadu_ps(reinterpret_cast<const float*>(p) + offset);
  };
  // Translations (the fourth lane is q.x, unused) and quaternions, one coordinate a register.
  __m128 atx = floats(a[0], 0), aty = floats(a[1], 0), atz = floats(a[2], 0), at3 = floats(a[3], 0);
  _MM_TRANSPOSE4_PS(atx, aty, atz, at3);
  __m128 btx = floats(b[0], 0), bty = floats(b[1], 0), btz = floats(b[2], 0), bt3 = floats(b[3], 0);
  _MM_TRANSPOSE4_PS(btx, bty, btz, bt3);
  __m128 ax = floats(a[0], 3), ay = floats(a[1], 3), az = floats(a[2], 3), aw = floats(a[3], 3);
  _MM_TRANSPOSE4_PS(ax, ay, az, aw);
  __m128 bx = floats(b[0], 3), by = floats(b[1], 3), bz = floats(b[2], 3), bw = floats(b[3], 3);
  _MM_TRANSPOSE4_PS(bx, by, bz, bw);
  // Stretch factors and signs the same way; a stretch is uniform when its three factors
  // compare equal (a NaN never does).
  __m128 ak = floats(a[0], 11), aky = floats(a[1], 11), akz = floats(a[2], 11),
         af = floats(a[3], 11);
  _MM_TRANSPOSE4_PS(ak, aky, akz, af);
  __m128 bk = floats(b[0], 11), bky = floats(b[1], 11), bkz = floats(b[2], 11),
         bf = floats(b[3], 11);
  _MM_TRANSPOSE4_PS(bk, bky, bkz, bf);
  int other =
      _mm_movemask_ps(_mm_or_ps(_mm_or_ps(_mm_cmpneq_ps(ak, aky), _mm_cmpneq_ps(aky, akz)),
                                _mm_or_ps(_mm_cmpneq_ps(bk, bky), _mm_cmpneq_ps(bky, bkz))));

  // SlerpSeries: c is b or -b, whichever is closer to a.
  const __m128 d =
      _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(bx, ax), _mm_mul_ps(by, ay)), _mm_mul_ps(bz, az)),
                 _mm_mul_ps(bw, aw));
  const __m128 flip = _mm_and_ps(_mm_cmplt_ps(d, _mm_setzero_ps()), _mm_set1_ps(-0.0f));
  const __m128 cx = _mm_xor_ps(bx, flip), cy = _mm_xor_ps(by, flip), cz = _mm_xor_ps(bz, flip),
               cw = _mm_xor_ps(bw, flip);
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 x = _mm_min_ps(
      _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(ax, cx), _mm_mul_ps(ay, cy)), _mm_mul_ps(az, cz)),
                 _mm_mul_ps(aw, cw)),
      one);
  other |= _mm_movemask_ps(_mm_cmpnge_ps(x, _mm_set1_ps(kSeriesMinCos)));
  const __m128 xm = _mm_sub_ps(x, one);
  const __m128 wa = Polynomial4(w.wa, xm), wb = Polynomial4(w.wb, xm);
  const __m128 rx = _mm_add_ps(_mm_mul_ps(wa, ax), _mm_mul_ps(wb, cx));
  const __m128 ry = _mm_add_ps(_mm_mul_ps(wa, ay), _mm_mul_ps(wb, cy));
  const __m128 rz = _mm_add_ps(_mm_mul_ps(wa, az), _mm_mul_ps(wb, cz));
  const __m128 rw = _mm_add_ps(_mm_mul_ps(wa, aw), _mm_mul_ps(wb, cw));
  const __m128 n2 =
      _mm_add_ps(_mm_add_ps(_mm_add_ps(_mm_mul_ps(rx, rx), _mm_mul_ps(ry, ry)), _mm_mul_ps(rz, rz)),
                 _mm_mul_ps(rw, rw));
  other |= _mm_movemask_ps(
      _mm_or_ps(_mm_cmpngt_ps(n2, _mm_setzero_ps()), _mm_cmpnle_ps(n2, _mm_set1_ps(FLT_MAX))));
  if (other == 0xF) return other;
  const __m128 inv = _mm_div_ps(one, _mm_sqrt_ps(n2));
  const __m128 qx = _mm_mul_ps(rx, inv), qy = _mm_mul_ps(ry, inv), qz = _mm_mul_ps(rz, inv),
               qw = _mm_mul_ps(rw, inv);

  // BlendAffineParts, uniform stretch.
  const __m128 f = _mm_set1_ps(w.f), g = _mm_set1_ps(1 - w.f);
  const __m128 tx = _mm_add_ps(_mm_mul_ps(atx, g), _mm_mul_ps(btx, f));
  const __m128 ty = _mm_add_ps(_mm_mul_ps(aty, g), _mm_mul_ps(bty, f));
  const __m128 tz = _mm_add_ps(_mm_mul_ps(atz, g), _mm_mul_ps(btz, f));
  const __m128 s = _mm_mul_ps(_mm_add_ps(_mm_mul_ps(ak, g), _mm_mul_ps(bk, f)),
                              _mm_add_ps(_mm_mul_ps(af, g), _mm_mul_ps(bf, f)));
  const __m128 xx = _mm_mul_ps(qx, qx), yy = _mm_mul_ps(qy, qy), zz = _mm_mul_ps(qz, qz);
  const __m128 xy = _mm_mul_ps(qx, qy), xz = _mm_mul_ps(qx, qz), yz = _mm_mul_ps(qy, qz);
  const __m128 wx = _mm_mul_ps(qw, qx), wy = _mm_mul_ps(qw, qy), wz = _mm_mul_ps(qw, qz);
  const __m128 s2 = _mm_mul_ps(_mm_set1_ps(2.0f), s);
  __m128 m00 = _mm_sub_ps(s, _mm_mul_ps(s2, _mm_add_ps(yy, zz)));
  __m128 m01 = _mm_mul_ps(s2, _mm_add_ps(xy, wz));
  __m128 m02 = _mm_mul_ps(s2, _mm_sub_ps(xz, wy));
  __m128 m10 = _mm_mul_ps(s2, _mm_sub_ps(xy, wz));
  __m128 m11 = _mm_sub_ps(s, _mm_mul_ps(s2, _mm_add_ps(xx, zz)));
  __m128 m12 = _mm_mul_ps(s2, _mm_add_ps(yz, wx));
  __m128 m20 = _mm_mul_ps(s2, _mm_add_ps(xz, wy));
  __m128 m21 = _mm_mul_ps(s2, _mm_sub_ps(yz, wx));
  __m128 m22 = _mm_sub_ps(s, _mm_mul_ps(s2, _mm_add_ps(xx, yy)));
  __m128 t0 = tx, t1 = ty, t2 = tz;
  // Back to one matrix a lane: floats 0-3, 4-7 and 8-11 of each.
  _MM_TRANSPOSE4_PS(m00, m01, m02, m10);
  _MM_TRANSPOSE4_PS(m11, m12, m20, m21);
  _MM_TRANSPOSE4_PS(m22, t0, t1, t2);
  const __m128 rows[4][3] = {{m00, m11, m22}, {m01, m12, t0}, {m02, m20, t1}, {m10, m21, t2}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j) _mm_storeu_ps(out[i] + 4 * j, rows[i][j]);
  return other;
}

#if defined(__GNUC__) || defined(__AVX__)
#define KV_BLEND_AVX 1
#if defined(__GNUC__)
// Plain AVX, no fused multiply-add: every lane must round as Blend4 and the one-by-one blend
// do.
#define KV_BLEND_AVX_TARGET __attribute__((target("avx")))
#else
#define KV_BLEND_AVX_TARGET
#endif

bool HasAvxBlend() {
#if defined(__AVX__)
  return true;
#else
  static const bool has = __builtin_cpu_supports("avx");
  return has;
#endif
}

// _MM_TRANSPOSE4_PS within each 128-bit half.
KV_BLEND_AVX_TARGET inline void Transpose4x2(__m256& r0, __m256& r1, __m256& r2, __m256& r3) {
  const __m256 t0 = _mm256_unpacklo_ps(r0, r1), t1 = _mm256_unpackhi_ps(r0, r1);
  const __m256 t2 = _mm256_unpacklo_ps(r2, r3), t3 = _mm256_unpackhi_ps(r2, r3);
  r0 = _mm256_castpd_ps(_mm256_unpacklo_pd(_mm256_castps_pd(t0), _mm256_castps_pd(t2)));
  r1 = _mm256_castpd_ps(_mm256_unpackhi_pd(_mm256_castps_pd(t0), _mm256_castps_pd(t2)));
  r2 = _mm256_castpd_ps(_mm256_unpacklo_pd(_mm256_castps_pd(t1), _mm256_castps_pd(t3)));
  r3 = _mm256_castpd_ps(_mm256_unpackhi_pd(_mm256_castps_pd(t1), _mm256_castps_pd(t3)));
}

KV_BLEND_AVX_TARGET inline __m256 Polynomial8(const float* c, __m256 x) {
#define KV_K(i) _mm256_set1_ps(c[i])
  const __m256 x2 = _mm256_mul_ps(x, x), x4 = _mm256_mul_ps(x2, x2);
  const __m256 lo =
      _mm256_add_ps(_mm256_add_ps(KV_K(0), _mm256_mul_ps(KV_K(1), x)),
                    _mm256_mul_ps(x2, _mm256_add_ps(KV_K(2), _mm256_mul_ps(KV_K(3), x))));
  const __m256 hi =
      _mm256_add_ps(_mm256_add_ps(KV_K(4), _mm256_mul_ps(KV_K(5), x)),
                    _mm256_mul_ps(x2, _mm256_add_ps(KV_K(6), _mm256_mul_ps(KV_K(7), x))));
  return _mm256_add_ps(lo, _mm256_mul_ps(x4, _mm256_add_ps(hi, _mm256_mul_ps(x4, KV_K(8)))));
#undef KV_K
}

// Four floats at `offset` of elements i and i + 4 in the two halves of one register.
KV_BLEND_AVX_TARGET inline __m256 Floats2(const AffineParts* const* p, int i, int offset) {
  const float* lo = reinterpret_cast<const float*>(p[i]) + offset;
  const float* hi = reinterpret_cast<const float*>(p[i + 4]) + offset;
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lo)), _mm_loadu_ps(hi), 1);
}

// Floats offset to offset + 3 of eight elements, one register each, lane i for element i.
KV_BLEND_AVX_TARGET inline void Load8(const AffineParts* const* p, int offset, __m256& r0,
                                      __m256& r1, __m256& r2, __m256& r3) {
  r0 = Floats2(p, 0, offset), r1 = Floats2(p, 1, offset), r2 = Floats2(p, 2, offset);
  r3 = Floats2(p, 3, offset);
  Transpose4x2(r0, r1, r2, r3);
}

KV_BLEND_AVX_TARGET inline __m256 NotEqual8(__m256 x, __m256 y) {
  return _mm256_cmp_ps(x, y, _CMP_NEQ_UQ);
}

// Blend4 for eight elements, lane i holding element i: the same operations in the same order.
KV_BLEND_AVX_TARGET int Blend8(const AffineParts* const* a, const AffineParts* const* b,
                               const SlerpWeights& w, Matrix3* const* out) {
  __m256 atx, aty, atz, at3, btx, bty, btz, bt3;
  Load8(a, 0, atx, aty, atz, at3);
  Load8(b, 0, btx, bty, btz, bt3);
  __m256 ax, ay, az, aw, bx, by, bz, bw;
  Load8(a, 3, ax, ay, az, aw);
  Load8(b, 3, bx, by, bz, bw);
  __m256 ak, aky, akz, af, bk, bky, bkz, bf;
  Load8(a, 11, ak, aky, akz, af);
  Load8(b, 11, bk, bky, bkz, bf);
  int other =
      _mm256_movemask_ps(_mm256_or_ps(_mm256_or_ps(NotEqual8(ak, aky), NotEqual8(aky, akz)),
                                      _mm256_or_ps(NotEqual8(bk, bky), NotEqual8(bky, bkz))));

  const __m256 d =
      _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(bx, ax), _mm256_mul_ps(by, ay)),
                                  _mm256_mul_ps(bz, az)),
                    _mm256_mul_ps(bw, aw));
  const __m256 flip =
      _mm256_and_ps(_mm256_cmp_ps(d, _mm256_setzero_ps(), _CMP_LT_OS), _mm256_set1_ps(-0.0f));
  const __m256 cx = _mm256_xor_ps(bx, flip), cy = _mm256_xor_ps(by, flip),
               cz = _mm256_xor_ps(bz, flip), cw = _mm256_xor_ps(bw, flip);
  const __m256 one = _mm256_set1_ps(1.0f);
  const __m256 x = _mm256_min_ps(
      _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(ax, cx), _mm256_mul_ps(ay, cy)),
                                  _mm256_mul_ps(az, cz)),
                    _mm256_mul_ps(aw, cw)),
      one);
  other |= _mm256_movemask_ps(_mm256_cmp_ps(x, _mm256_set1_ps(kSeriesMinCos), _CMP_NGE_US));
  const __m256 xm = _mm256_sub_ps(x, one);
  const __m256 wa = Polynomial8(w.wa, xm), wb = Polynomial8(w.wb, xm);
  const __m256 rx = _mm256_add_ps(_mm256_mul_ps(wa, ax), _mm256_mul_ps(wb, cx));
  const __m256 ry = _mm256_add_ps(_mm256_mul_ps(wa, ay), _mm256_mul_ps(wb, cy));
  const __m256 rz = _mm256_add_ps(_mm256_mul_ps(wa, az), _mm256_mul_ps(wb, cz));
  const __m256 rw = _mm256_add_ps(_mm256_mul_ps(wa, aw), _mm256_mul_ps(wb, cw));
  const __m256 n2 =
      _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(rx, rx), _mm256_mul_ps(ry, ry)),
                                  _mm256_mul_ps(rz, rz)),
                    _mm256_mul_ps(rw, rw));
  other |=
      _mm256_movemask_ps(_mm256_or_ps(_mm256_cmp_ps(n2, _mm256_setzero_ps(), _CMP_NGT_US),
                                      _mm256_cmp_ps(n2, _mm256_set1_ps(FLT_MAX), _CMP_NLE_US)));
  if (other == 0xFF) return other;
  const __m256 inv = _mm256_div_ps(one, _mm256_sqrt_ps(n2));
  const __m256 qx = _mm256_mul_ps(rx, inv), qy = _mm256_mul_ps(ry, inv),
               qz = _mm256_mul_ps(rz, inv), qw = _mm256_mul_ps(rw, inv);

  const __m256 f = _mm256_set1_ps(w.f), g = _mm256_set1_ps(1 - w.f);
  const __m256 tx = _mm256_add_ps(_mm256_mul_ps(atx, g), _mm256_mul_ps(btx, f));
  const __m256 ty = _mm256_add_ps(_mm256_mul_ps(aty, g), _mm256_mul_ps(bty, f));
  const __m256 tz = _mm256_add_ps(_mm256_mul_ps(atz, g), _mm256_mul_ps(btz, f));
  const __m256 s = _mm256_mul_ps(_mm256_add_ps(_mm256_mul_ps(ak, g), _mm256_mul_ps(bk, f)),
                                 _mm256_add_ps(_mm256_mul_ps(af, g), _mm256_mul_ps(bf, f)));
  const __m256 xx = _mm256_mul_ps(qx, qx), yy = _mm256_mul_ps(qy, qy), zz = _mm256_mul_ps(qz, qz);
  const __m256 xy = _mm256_mul_ps(qx, qy), xz = _mm256_mul_ps(qx, qz), yz = _mm256_mul_ps(qy, qz);
  const __m256 wx = _mm256_mul_ps(qw, qx), wy = _mm256_mul_ps(qw, qy), wz = _mm256_mul_ps(qw, qz);
  const __m256 s2 = _mm256_mul_ps(_mm256_set1_ps(2.0f), s);
  __m256 m00 = _mm256_sub_ps(s, _mm256_mul_ps(s2, _mm256_add_ps(yy, zz)));
  __m256 m01 = _mm256_mul_ps(s2, _mm256_add_ps(xy, wz));
  __m256 m02 = _mm256_mul_ps(s2, _mm256_sub_ps(xz, wy));
  __m256 m10 = _mm256_mul_ps(s2, _mm256_sub_ps(xy, wz));
  __m256 m11 = _mm256_sub_ps(s, _mm256_mul_ps(s2, _mm256_add_ps(xx, zz)));
  __m256 m12 = _mm256_mul_ps(s2, _mm256_add_ps(yz, wx));
  __m256 m20 = _mm256_mul_ps(s2, _mm256_add_ps(xz, wy));
  __m256 m21 = _mm256_mul_ps(s2, _mm256_sub_ps(yz, wx));
  __m256 m22 = _mm256_sub_ps(s, _mm256_mul_ps(s2, _mm256_add_ps(xx, yy)));
  __m256 t0 = tx, t1 = ty, t2 = tz;
  Transpose4x2(m00, m01, m02, m10);
  Transpose4x2(m11, m12, m20, m21);
  Transpose4x2(m22, t0, t1, t2);
  const __m256 rows[4][3] = {{m00, m11, m22}, {m01, m12, t0}, {m02, m20, t1}, {m10, m21, t2}};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j) {
      _mm_storeu_ps(reinterpret_cast<float*>(out[i]) + 4 * j, _mm256_castps256_ps128(rows[i][j]));
      _mm_storeu_ps(reinterpret_cast<float*>(out[i + 4]) + 4 * j,
                    _mm256_extractf128_ps(rows[i][j], 1));
    }
  return other;
}

// Groups of eight as BlendAffinePartsMany does groups of four.
KV_BLEND_AVX_TARGET void BlendManyAvx(const AffineParts* const* a, const AffineParts* const* b,
                                      std::size_t count, const SlerpWeights& w,
                                      Matrix3* const* out) {
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const int other = Blend8(a + i, b + i, w, out + i);
    if (other != 0)
      for (std::size_t l = 0; l < 8; ++l)
        if (other >> l & 1) *out[i + l] = BlendAffineParts(*a[i + l], *b[i + l], w);
  }
  if (i == count) return;
  // A last group of fewer than eight repeats its last element in the spare lanes.
  const AffineParts* pa[8];
  const AffineParts* pb[8];
  const std::size_t lanes = count - i;
  for (std::size_t l = 0; l < 8; ++l) {
    pa[l] = a[i + std::min(l, lanes - 1)];
    pb[l] = b[i + std::min(l, lanes - 1)];
  }
  Matrix3 spare[8];
  Matrix3* m[8];
  for (std::size_t l = 0; l < 8; ++l) m[l] = l < lanes ? out[i + l] : &spare[l];
  const int other = Blend8(pa, pb, w, m);
  for (std::size_t l = 0; l < lanes; ++l)
    if (other >> l & 1) *out[i + l] = BlendAffineParts(*pa[l], *pb[l], w);
}
#endif

}  // namespace
#endif

void BlendAffinePartsMany(const AffineParts* const* a, const AffineParts* const* b,
                          std::size_t count, const SlerpWeights& w, Matrix3* const* out) {
  std::size_t i = 0;
#if defined(KV_BLEND_AVX)
  if (count > 4 && HasAvxBlend()) return BlendManyAvx(a, b, count, w, out);
#endif
#if KV_BLEND_SSE
  for (; i < count; i += 4) {
    // A last group of fewer than four repeats its last element in the spare lanes.
    const AffineParts* pa[4];
    const AffineParts* pb[4];
    const std::size_t lanes = std::min<std::size_t>(4, count - i);
    for (std::size_t l = 0; l < 4; ++l) {
      pa[l] = a[i + std::min(l, lanes - 1)];
      pb[l] = b[i + std::min(l, lanes - 1)];
    }
    // Whole groups write straight into the output matrices (twelve floats, row by row).
    float spare[4][12];
    float* m[4];
    for (std::size_t l = 0; l < 4; ++l)
      m[l] = l < lanes ? reinterpret_cast<float*>(out[i + l]) : spare[l];
    const int other = Blend4(pa, pb, w, m);
    for (std::size_t l = 0; l < lanes; ++l)
      if (other >> l & 1) *out[i + l] = BlendAffineParts(*pa[l], *pb[l], w);
  }
#endif
  for (; i < count; ++i) *out[i] = BlendAffineParts(*a[i], *b[i], w);
}

}  // namespace kv
