#include "host/standalone/controls.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "geom/affine.h"
#include "host/standalone/rotation_lanes.h"
#include "host/standalone/rotation_lanes_avx2.h"
#include "host/standalone/undo_stack.h"

namespace kv::standalone {
namespace {

using host::ControlKind;
using host::ControlValue;
using host::Interp;
using host::ScaleValue;

// The few small functions every rotation sample goes through several times: inlined, so that
// their results stay in registers.
#if defined(__GNUC__)
#define KV_HOT [[gnu::always_inline]] inline
#else
#define KV_HOT inline
#endif

// ---- quaternion helpers in the Hamilton product (a then b as matrices is Ham(b, a))

KV_HOT Quat Ham(const Quat& a, const Quat& b) {
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

KV_HOT lanes::QuatL<float> Lanes(const Quat& q) {
  return {q.x, q.y, q.z, q.w};
}
KV_HOT Quat FromLanes(const lanes::QuatL<float>& q) {
  return {q.x, q.y, q.z, q.w};
}

KV_HOT Quat Unit(const Quat& q) {
  return FromLanes(lanes::Unit(Lanes(q)));
}

// Logarithm of a unit quaternion: half the rotation angle times the axis.
KV_HOT Point3 QLog(const Quat& q) {
  const Point3 v{q.x, q.y, q.z};
  const float s = v.Length();
  if (s < 1e-9f) return v;
  return v * (std::atan2(s, q.w) / s);
}

KV_HOT Quat QExp(const Point3& v) {
  const float a = v.Length();
  if (a < 1e-9f) return Unit({v.x, v.y, v.z, 1});
  const Point3 u = v * (std::sin(a) / a);
  return {u.x, u.y, u.z, std::cos(a)};
}

// Slerp without choosing the shorter arc: squad needs its inner arcs as they are. The arc's
// angle is kept apart from the blend, so that a segment sampled many times measures it once.
using Arc = lanes::ArcL<float>;

KV_HOT Arc MakeArc(const Quat& a, const Quat& b) {
  return lanes::MakeArc(Lanes(a), Lanes(b));
}

KV_HOT Quat Along(const Arc& c, float s) {
  return FromLanes(lanes::Along(c, s));
}

KV_HOT Quat ClosestTo(const Quat& q, const Quat& to) {
  return q.Dot(to) < 0 ? -q : q;
}

// ---- keys and tracks

template <class T>
struct Key {
  TimeValue t = 0;
  T v{};
  float tens = 0, cont = 0, bias = 0;
  // Explicit Bezier tangents (slopes per tick) instead of the smooth ones.
  bool hasTan = false;
  T inTan{}, outTan{};
};

template <class T>
struct TrackData {
  std::vector<Key<T>> keys;  // ascending, distinct times
  T constant{};
  Interp interp = Interp::Linear;
};

template <class V>
V HermiteV(const V& p0, const V& m0, const V& p1, const V& m1, float s) {
  const float s2 = s * s, s3 = s2 * s;
  return p0 * (2 * s3 - 3 * s2 + 1) + m0 * (s3 - 2 * s2 + s) + p1 * (-2 * s3 + 3 * s2) +
         m1 * (s3 - s2);
}

// Kochanek-Bartels tangents at key i from its neighbour differences g1 (from i-1) and g2
// (to i+1), with the time adjustment for unequal spacing. Out leaves key i, In arrives.
template <class V>
V TcbOut(const V& g1, const V& g2, float T, float C, float B, float n0, float n1) {
  const V d = g1 * ((1 - T) * (1 + C) * (1 + B) / 2) + g2 * ((1 - T) * (1 - C) * (1 - B) / 2);
  return d * (2 * n1 / (n0 + n1));
}
template <class V>
V TcbIn(const V& g1, const V& g2, float T, float C, float B, float n0, float n1) {
  const V d = g1 * ((1 - T) * (1 - C) * (1 + B) / 2) + g2 * ((1 - T) * (1 + C) * (1 - B) / 2);
  return d * (2 * n0 / (n0 + n1));
}

// The Hermite tangents of the segment from key i to key i+1 of a Bezier or TCB track of n
// keys, in value per segment: m0 leaving key i, m1 arriving at key i+1.
template <class T, class Get, class V>
void SegmentTangents(const Key<T>* k, size_t n, Interp ip, size_t i, Get get, V& m0, V& m1) {
  const V p0 = get(k[i].v), p1 = get(k[i + 1].v);
  const float seg = static_cast<float>(k[i + 1].t - k[i].t);
  if (ip == Interp::Bezier) {
    // Smooth tangents per tick, scaled to this segment.
    m0 = (i == 0) ? (p1 - p0)
                  : (p1 - get(k[i - 1].v)) * (seg / static_cast<float>(k[i + 1].t - k[i - 1].t));
    m1 = (i + 2 >= n) ? (p1 - p0)
                      : (get(k[i + 2].v) - p0) * (seg / static_cast<float>(k[i + 2].t - k[i].t));
    if (k[i].hasTan) m0 = get(k[i].outTan) * seg;
    if (k[i + 1].hasTan) m1 = get(k[i + 1].inTan) * seg;
  } else {
    const Key<T>& a = k[i];
    const Key<T>& b = k[i + 1];
    m0 = (i == 0) ? (p1 - p0) * (1 - a.tens)
                  : TcbOut(p0 - get(k[i - 1].v), p1 - p0, a.tens, a.cont, a.bias,
                           static_cast<float>(a.t - k[i - 1].t), seg);
    m1 = (i + 2 >= n) ? (p1 - p0) * (1 - b.tens)
                      : TcbIn(p1 - p0, get(k[i + 2].v) - p1, b.tens, b.cont, b.bias, seg,
                              static_cast<float>(k[i + 2].t - b.t));
  }
}

// A segment between two keys with everything that depends only on the keys worked out, so
// that evaluating it is only the blend. Every evaluation goes through these, which keeps a
// segment sampled once and one sampled many times equal to the last bit.
template <class V>
struct VecSegment {
  Interp ip = Interp::Step;
  V p0{}, m0{}, p1{}, m1{};
};

// The vector part `get` of keys i and i+1 of n keys.
template <class T, class Get>
auto MakeVecSegment(const Key<T>* k, size_t n, Interp ip, size_t i, Get get) {
  using V = decltype(get(k[0].v));
  VecSegment<V> g;
  g.ip = ip;
  g.p0 = get(k[i].v);
  g.p1 = get(k[i + 1].v);
  if (ip == Interp::Bezier || ip == Interp::TCB) SegmentTangents(k, n, ip, i, get, g.m0, g.m1);
  return g;
}

template <class V>
V EvalSegment(const VecSegment<V>& g, float s) {
  if (g.ip == Interp::Step) return g.p0;
  if (g.ip == Interp::Linear) return g.p0 + (g.p1 - g.p0) * s;
  return HermiteV(g.p0, g.m0, g.p1, g.m1, s);
}

struct RotSegment {
  enum class Form { Hold, Slerp, Cubic, Squad } form = Form::Hold;
  Quat q1;
  Arc outer, inner;  // Slerp: outer; Squad: both
  // Cubic: the two keys and their explicit tangents, and the segment's length in ticks.
  Quat p, q, mo, mi;
  float seg = 0;
};

// The rotation part `get` of keys i and i+1 of n keys.
template <class T, class Get>
RotSegment MakeRotSegment(const Key<T>* k, size_t n, Interp ip, size_t i, Get get) {
  RotSegment r;
  const Quat q1 = Unit(get(k[i].v));
  r.q1 = q1;
  if (ip == Interp::Step) return r;
  const Quat q2 = ClosestTo(Unit(get(k[i + 1].v)), q1);
  if (ip == Interp::Linear) {
    r.form = RotSegment::Form::Slerp;
    r.outer = MakeArc(q1, q2);
    return r;
  }
  const bool tcb = ip == Interp::TCB;
  const Key<T>& a = k[i];
  const Key<T>& b = k[i + 1];
  const float seg = static_cast<float>(b.t - a.t);
  if (!tcb && a.hasTan && b.hasTan) {
    // Explicit tangents: component-wise Hermite, then back onto the unit sphere (the cubic
    // spline of interchange formats).
    r.form = RotSegment::Form::Cubic;
    r.p = get(a.v), r.q = get(b.v), r.mo = get(a.outTan), r.mi = get(b.inTan);
    r.seg = seg;
    return r;
  }
  const Point3 g12 = QLog(Ham(q1.Conjugate(), q2));
  // Outgoing tangent at q1 and the inner point after it.
  Point3 out = g12 * (1 - (tcb ? a.tens : 0));
  if (i > 0) {
    const Quat q0 = ClosestTo(Unit(get(k[i - 1].v)), q1);
    const Point3 g01 = QLog(Ham(q0.Conjugate(), q1));
    out = tcb ? TcbOut(g01, g12, a.tens, a.cont, a.bias, static_cast<float>(a.t - k[i - 1].t), seg)
              : TcbOut(g01, g12, 0.f, 0.f, 0.f, static_cast<float>(a.t - k[i - 1].t), seg);
  }
  Point3 in = g12 * (1 - (tcb ? b.tens : 0));
  if (i + 2 < n) {
    const Quat q3 = ClosestTo(Unit(get(k[i + 2].v)), q2);
    const Point3 g23 = QLog(Ham(q2.Conjugate(), q3));
    const float n1 = static_cast<float>(k[i + 2].t - b.t);
    in = tcb ? TcbIn(g12, g23, b.tens, b.cont, b.bias, seg, n1)
             : TcbIn(g12, g23, 0.f, 0.f, 0.f, seg, n1);
  }
  const Quat ai = Ham(q1, QExp((out - g12) * 0.5f));
  const Quat bi = Ham(q2, QExp((g12 - in) * 0.5f));
  r.form = RotSegment::Form::Squad;
  r.outer = MakeArc(q1, q2);
  r.inner = MakeArc(ai, bi);
  return r;
}

Quat EvalSegment(const RotSegment& r, float s) {
  switch (r.form) {
    case RotSegment::Form::Hold:
      return r.q1;
    case RotSegment::Form::Slerp:
      return Along(r.outer, s);
    case RotSegment::Form::Cubic: {
      const float s2 = s * s, s3 = s2 * s;
      const float h00 = 2 * s3 - 3 * s2 + 1, h10 = (s3 - 2 * s2 + s) * r.seg;
      const float h01 = -2 * s3 + 3 * s2, h11 = (s3 - s2) * r.seg;
      auto h = [&](float p0, float m0, float p1, float m1) {
        return h00 * p0 + h10 * m0 + h01 * p1 + h11 * m1;
      };
      const Quat &p = r.p, &q = r.q, &mo = r.mo, &mi = r.mi;
      return Unit({h(p.x, mo.x, q.x, mi.x), h(p.y, mo.y, q.y, mi.y), h(p.z, mo.z, q.z, mi.z),
                   h(p.w, mo.w, q.w, mi.w)});
    }
    case RotSegment::Form::Squad:
      break;
  }
  return FromLanes(lanes::Squad(r.outer, r.inner, s));
}

// Per value type: the part of a value that a segment interpolates as one piece, and how a
// whole value is put together from its parts.
template <class T>
T Interpolate(const Key<T>* k, size_t n, Interp ip, size_t i, float s) {
  return EvalSegment(MakeVecSegment(k, n, ip, i, [](const T& v) { return v; }), s);
}
template <>
Quat Interpolate(const Key<Quat>* k, size_t n, Interp ip, size_t i, float s) {
  return EvalSegment(MakeRotSegment(k, n, ip, i, [](const Quat& v) { return v; }), s);
}
template <>
ScaleValue Interpolate(const Key<ScaleValue>* k, size_t n, Interp ip, size_t i, float s) {
  ScaleValue r;
  r.s = EvalSegment(MakeVecSegment(k, n, ip, i, [](const ScaleValue& v) { return v.s; }), s);
  r.q = EvalSegment(MakeRotSegment(k, n, ip, i, [](const ScaleValue& v) { return v.q; }), s);
  return r;
}
template <>
Matrix3 Interpolate(const Key<Matrix3>* k, size_t, Interp ip, size_t i, float s) {
  if (ip == Interp::Step) return k[i].v;
  return BlendTransforms(k[i].v, k[i + 1].v, s);
}

// The fraction of segment i at t.
template <class T>
float SegmentFraction(const Key<T>* k, size_t i, TimeValue t) {
  return static_cast<float>(static_cast<double>(t - k[i].t) / (k[i + 1].t - k[i].t));
}

template <class T>
T Evaluate(const TrackData<T>& d, TimeValue t) {
  const auto& k = d.keys;
  if (k.empty()) return d.constant;
  if (t <= k.front().t) return k.front().v;
  if (t >= k.back().t) return k.back().v;
  const auto it = std::upper_bound(k.begin(), k.end(), t,
                                   [](TimeValue x, const Key<T>& key) { return x < key.t; });
  const size_t i = static_cast<size_t>(it - k.begin()) - 1;
  return Interpolate(k.data(), k.size(), d.interp, i, SegmentFraction(k.data(), i, t));
}

// ---- sampling for key reduction

// What a track sampler gives of a value: its components as floats, a scale's factors only.
template <class T>
struct Sampled;
template <>
struct Sampled<float> {
  static constexpr int kWidth = 1;
  static float Part(const float& v) { return v; }
  static void Put(float v, float* out) { out[0] = v; }
};
template <>
struct Sampled<Point2> {
  static constexpr int kWidth = 2;
  static Point2 Part(const Point2& v) { return v; }
  static void Put(const Point2& v, float* out) { out[0] = v.x, out[1] = v.y; }
};
template <>
struct Sampled<Point3> {
  static constexpr int kWidth = 3;
  static Point3 Part(const Point3& v) { return v; }
  static void Put(const Point3& v, float* out) { out[0] = v.x, out[1] = v.y, out[2] = v.z; }
};
// Four floats in x, y, z, w order.
template <class T>
struct SampledXyzw {
  static constexpr int kWidth = 4;
  static T Part(const T& v) { return v; }
  static void Put(const T& v, float* out) {
    out[0] = v.x, out[1] = v.y, out[2] = v.z, out[3] = v.w;
  }
};
template <>
struct Sampled<Point4> : SampledXyzw<Point4> {};
template <>
struct Sampled<Quat> : SampledXyzw<Quat> {};
// Only the factors: reduction never compares the stretch axes.
template <>
struct Sampled<ScaleValue> : Sampled<Point3> {
  static Point3 Part(const ScaleValue& v) { return v.s; }
};

template <class T, class Get>
auto MakeSampledSegment(const Key<T>* k, size_t n, Interp ip, size_t i, Get get) {
  if constexpr (std::is_same_v<T, Quat>)
    return MakeRotSegment(k, n, ip, i, get);
  else
    return MakeVecSegment(k, n, ip, i, get);
}

// Snapshot of a whole track for undo; the track data is shared so that a record outlives a
// controller that was deleted meanwhile.
template <class T>
class TrackRestore final : public host::RestoreObj {
 public:
  explicit TrackRestore(std::shared_ptr<TrackData<T>> d) : d_(std::move(d)), undo_(*d_) {}
  void Restore(bool isUndo) override {
    if (isUndo && !haveRedo_) redo_ = *d_, haveRedo_ = true;
    *d_ = undo_;
  }
  void Redo() override {
    if (haveRedo_) *d_ = redo_;
  }
  int Size() const override {
    return static_cast<int>(sizeof(*this) +
                            (undo_.keys.size() + redo_.keys.size()) * sizeof(Key<T>));
  }
  std::string Description() const override { return "track"; }

 private:
  std::shared_ptr<TrackData<T>> d_;
  TrackData<T> undo_, redo_;
  bool haveRedo_ = false;
};

template <class T>
struct KeyClip final : host::TrackClip {
  std::vector<Key<T>> keys;
};

// A point of a segment's outer arc remembered for one sampling time: the arc depends only on
// the segment's two keys, so it stays valid while those two keys are the segment's ends.
struct ArcPoint {
  TimeValue a = 0, b = -1;  // the segment's key times; b < a: nothing remembered
  Quat q;
};

// A squad segment at `count` fractions, four at a time where the vector unit allows, into
// `out` as x, y, z, w each: bit for bit EvalSegment at each fraction.
void SquadRun(const RotSegment& r, const float* s, size_t count, float* out) {
  size_t j = 0;
  // A last partial block goes through the vector unit too, its spare lanes repeating the
  // last fraction, unless a single time is left.
#if KV_ROTATION_AVX2
  if (count > 1 && lanes::HasAvx2()) {
    j = lanes::SquadRunAvx2(r.outer, r.inner, s, count, out);
    if (count - j > 1) {
      float f[8], q[32];
      for (size_t m = 0; m < 8; ++m) f[m] = s[std::min(j + m, count - 1)];
      lanes::SquadRunAvx2(r.outer, r.inner, f, 8, q);
      std::copy(q, q + 4 * (count - j), out + 4 * j);
      j = count;
    }
  }
#endif
#if KV_ROTATION_LANES
  using lanes::F4;
  const lanes::ArcL<F4> outer = lanes::Broadcast<F4>(r.outer);
  const lanes::ArcL<F4> inner = lanes::Broadcast<F4>(r.inner);
  for (; j + 1 < count; j += 4) {
    float f[4], q[16];
    for (size_t m = 0; m < 4; ++m) f[m] = s[std::min(j + m, count - 1)];
    lanes::QuatL<F4> v = lanes::Squad(outer, inner, F4(_mm_loadu_ps(f)));
    _MM_TRANSPOSE4_PS(v.x.v, v.y.v, v.z.v, v.w.v);
    _mm_storeu_ps(q, v.x.v);
    _mm_storeu_ps(q + 4, v.y.v);
    _mm_storeu_ps(q + 8, v.z.v);
    _mm_storeu_ps(q + 12, v.w.v);
    std::copy(q, q + 4 * std::min<size_t>(4, count - j), out + 4 * j);
  }
#endif
  for (; j < count; ++j) Sampled<Quat>::Put(EvalSegment(r, s[j]), out + 4 * j);
}

// A cubic segment of points at `count` fractions, four at a time where the vector unit
// allows, into `out` as x, y, z each: bit for bit EvalSegment at each fraction.
void HermiteRun(const VecSegment<Point3>& g, const float* s, size_t count, float* out) {
  size_t j = 0;
#if KV_ROTATION_LANES
  using lanes::F4;
  for (; j + 4 <= count; j += 4, out += 12) {
    const F4 f(_mm_loadu_ps(s + j));
    const F4 s2 = f * f, s3 = s2 * f;
    const F4 h0 = F4(2.0f) * s3 - F4(3.0f) * s2 + F4(1.0f), h1 = s3 - F4(2.0f) * s2 + f;
    const F4 h2 = F4(-2.0f) * s3 + F4(3.0f) * s2, h3 = s3 - s2;
    auto blend = [&](float p0, float m0, float p1, float m1) {
      return (F4(p0) * h0 + F4(m0) * h1 + F4(p1) * h2 + F4(m1) * h3).v;
    };
    alignas(16) float x[4], y[4], z[4];
    _mm_store_ps(x, blend(g.p0.x, g.m0.x, g.p1.x, g.m1.x));
    _mm_store_ps(y, blend(g.p0.y, g.m0.y, g.p1.y, g.m1.y));
    _mm_store_ps(z, blend(g.p0.z, g.m0.z, g.p1.z, g.m1.z));
    for (int l = 0; l < 4; ++l) out[3 * l] = x[l], out[3 * l + 1] = y[l], out[3 * l + 2] = z[l];
  }
#endif
  for (; j < count; ++j, out += 3) Sampled<Point3>::Put(EvalSegment(g, s[j]), out);
}

// Samples the keys k[0..n) at `times` (ascending) as Evaluate would, where `front` and `back`
// say whether those keys begin and end the track: beyond an end that is not the track's, the
// times must not reach. Each segment is worked out once, however many times fall in it.
// `arcs`, one per time or null, remembers rotation segments' outer arcs between calls.
template <class T>
void SampleKeys(const Key<T>* k, size_t n, bool front, bool back, Interp ip,
                std::span<const TimeValue> times, float* out, ArcPoint* arcs) {
  using S = Sampled<T>;
  auto get = [](const T& v) { return S::Part(v); };
  decltype(MakeSampledSegment(k, n, ip, 0, get)) seg{};
  size_t i = 0, made = n;  // segment i; `made`: the one in `seg`
  [[maybe_unused]] float fractions[64];
  for (size_t j = 0; j < times.size(); ++j, out += S::kWidth) {
    const TimeValue t = times[j];
    if (n < 2 || (front && t <= k[0].t)) {
      S::Put(S::Part(k[0].v), out);
      continue;
    }
    if (back && t >= k[n - 1].t) {
      S::Put(S::Part(k[n - 1].v), out);
      continue;
    }
    while (i + 2 < n && k[i + 1].t <= t) ++i;
    if (made != i) seg = MakeSampledSegment(k, n, ip, i, get), made = i;
    // Runs of times in one squad or cubic segment go through the vector unit, a block at a
    // time.
    bool run = false;
    if constexpr (std::is_same_v<T, Quat>)
      run = seg.form == RotSegment::Form::Squad;
    else if constexpr (std::is_same_v<decltype(seg), VecSegment<Point3>>)
      run = seg.ip == Interp::Bezier || seg.ip == Interp::TCB;
    if (run) {
      const TimeValue end = i + 2 >= n ? kTimePosInfinity : k[i + 1].t;
      const TimeValue stop = back ? std::min(end, k[n - 1].t) : end;
      size_t e = j + 1;
      const size_t most = std::min(times.size(), j + std::size(fractions));
      while (e < most && times[e] < stop) ++e;
      for (size_t m = j; m < e; ++m) fractions[m - j] = SegmentFraction(k, i, times[m]);
      if constexpr (std::is_same_v<T, Quat>)
        SquadRun(seg, fractions, e - j, out);
      else if constexpr (std::is_same_v<decltype(seg), VecSegment<Point3>>)
        HermiteRun(seg, fractions, e - j, out);
      out += (e - j - 1) * S::kWidth;
      j = e - 1;
      continue;
    }
    const float s = SegmentFraction(k, i, t);
    if constexpr (std::is_same_v<T, Quat>) {
      if (arcs && seg.form == RotSegment::Form::Slerp) {
        ArcPoint& p = arcs[j];
        if (p.a != k[i].t || p.b != k[i + 1].t) p = {k[i].t, k[i + 1].t, Along(seg.outer, s)};
        S::Put(p.q, out);
        continue;
      }
    }
    S::Put(EvalSegment(seg, s), out);
  }
}

// Key reduction's private copy of a track: the same keys and the same evaluation as the
// controller, with a key left out of a small copy of its neighbourhood for one look.
template <class T>
class KeySampler final : public host::TrackSampler {
 public:
  KeySampler(const TrackData<T>& d, std::span<const TimeValue> times)
      : keys_(d.keys), constant_(d.constant), ip_(d.interp), times_(times.begin(), times.end()) {
    near_.reserve(6);
    if constexpr (std::is_same_v<T, Quat>) arcs_.resize(times_.size());
  }
  int Width() const override { return Sampled<T>::kWidth; }
  int NumKeys() const override { return static_cast<int>(keys_.size()); }
  TimeValue KeyTime(int i) const override { return keys_[static_cast<size_t>(i)].t; }
  void Sample(float* out) override {
    if (keys_.empty()) return Fill(Sampled<T>::Part(constant_), times_.size(), out);
    SampleKeys(keys_.data(), keys_.size(), true, true, ip_, std::span<const TimeValue>(times_), out,
               Arcs());
  }
  void SampleWithout(int key, size_t from, size_t to, float* out) override {
    to = std::min(to, times_.size());
    if (from >= to) return;
    const size_t n = keys_.size(), i = static_cast<size_t>(key);
    // The last key left becomes the track's constant value.
    if (n == 1) return Fill(Sampled<T>::Part(keys_[0].v), to - from, out);
    // The times allowed lie in segments that reach at most three keys away.
    const size_t a = i >= 3 ? i - 3 : 0, b = std::min(n, i + 4);
    near_.assign(keys_.begin() + static_cast<ptrdiff_t>(a),
                 keys_.begin() + static_cast<ptrdiff_t>(i));
    near_.insert(near_.end(), keys_.begin() + static_cast<ptrdiff_t>(i + 1),
                 keys_.begin() + static_cast<ptrdiff_t>(b));
    ArcPoint* arcs = Arcs();
    SampleKeys(near_.data(), near_.size(), a == 0, b == n, ip_,
               std::span<const TimeValue>(times_.data() + from, to - from), out,
               arcs ? arcs + from : nullptr);
  }
  void DeleteKey(int i) override {
    if (keys_.size() == 1) constant_ = keys_[0].v;
    keys_.erase(keys_.begin() + i);
  }

 private:
  template <class P>
  static void Fill(const P& v, size_t count, float* out) {
    for (size_t j = 0; j < count; ++j, out += Sampled<T>::kWidth) Sampled<T>::Put(v, out);
  }
  ArcPoint* Arcs() { return arcs_.empty() ? nullptr : arcs_.data(); }

  std::vector<Key<T>> keys_;
  T constant_;
  Interp ip_;
  std::vector<TimeValue> times_;
  std::vector<Key<T>> near_;    // the neighbourhood of the key left out
  std::vector<ArcPoint> arcs_;  // rotations: per time, the outer arc's point last used
};

// Owned by every controller the host makes, so that SetInterp and SaveControl can reach the
// typed track behind a host::Control.
class KeyControlBase : public host::Control {
 public:
  virtual void SetInterpolation(Interp ip) = 0;
  virtual bool SetTangents(int key, const ControlValue& in, const ControlValue& out) = 0;
  virtual void SaveTrack(host::ISave& s) const = 0;
  virtual bool LoadTrack(host::ILoad& l) = 0;
  virtual bool Slopes(int key, ControlValue& in, ControlValue& out) const {
    (void)key, (void)in, (void)out;
    return false;
  }
};

template <class T>
class KeyControl final : public KeyControlBase {
 public:
  KeyControl(ControlKind kind, Interp ip, UndoStack* undo)
      : kind_(kind), d_(std::make_shared<TrackData<T>>()), undo_(undo) {
    d_->interp = ip;
  }

  ControlKind Kind() const override { return kind_; }
  ControlValue GetValue(TimeValue t) const override { return Evaluate(*d_, t); }

  void SetValue(TimeValue t, const ControlValue& v, bool makeKey) override {
    const T* p = std::get_if<T>(&v);
    if (!p) return;
    const int i = GetKeyIndex(t);
    if (makeKey) {
      Hold();
      if (i >= 0) {
        d_->keys[i].v = *p;
      } else {
        auto& k = d_->keys;
        const auto it = std::lower_bound(k.begin(), k.end(), t,
                                         [](const Key<T>& key, TimeValue x) { return key.t < x; });
        Key<T> key;
        key.t = t;
        key.v = *p;
        k.insert(it, key);
      }
    } else if (d_->keys.empty()) {
      Hold();
      d_->constant = *p;
    } else if (i >= 0) {
      Hold();
      d_->keys[i].v = *p;
    }
  }

  int NumKeys() const override { return static_cast<int>(d_->keys.size()); }
  TimeValue GetKeyTime(int i) const override {
    return InRange(i) ? d_->keys[i].t : kTimeNegInfinity;
  }
  int GetKeyIndex(TimeValue t) const override {
    const auto& k = d_->keys;
    const auto it = std::lower_bound(k.begin(), k.end(), t,
                                     [](const Key<T>& key, TimeValue x) { return key.t < x; });
    return (it != k.end() && it->t == t) ? static_cast<int>(it - k.begin()) : -1;
  }
  void DeleteKey(int i) override {
    if (!InRange(i)) return;
    Hold();
    // The last key's value stays as the constant, so the track keeps its look.
    if (d_->keys.size() == 1) d_->constant = d_->keys[0].v;
    d_->keys.erase(d_->keys.begin() + i);
  }

  std::unique_ptr<host::Control> Clone() const override {
    auto c = std::make_unique<KeyControl<T>>(kind_, d_->interp, undo_);
    *c->d_ = *d_;
    return c;
  }
  bool CopyFrom(const host::Control& other) override {
    const auto* o = dynamic_cast<const KeyControl<T>*>(&other);
    if (!o || !SameFamily(o->kind_)) return false;
    if (o == this) return true;
    Hold();
    *d_ = *o->d_;
    return true;
  }

  // Keys are sorted by time: a stretch is found by binary search, so saving and restoring one
  // key (as reduction does for every key it tries) does not walk the whole track.
  std::unique_ptr<host::TrackClip> CopyTrack(const Interval& range) const override {
    auto clip = std::make_unique<KeyClip<T>>();
    const auto [from, to] = Stretch(range);
    clip->keys.assign(d_->keys.begin() + from, d_->keys.begin() + to);
    return clip;
  }
  bool PasteTrack(const host::TrackClip& clip, const Interval& range) override {
    const auto* c = dynamic_cast<const KeyClip<T>*>(&clip);
    if (!c) return false;
    Hold();
    auto& k = d_->keys;
    const auto [from, to] = Stretch(range);
    k.erase(k.begin() + from, k.begin() + to);
    for (const auto& key : c->keys) {
      if (!range.InInterval(key.t)) continue;
      const auto it = std::lower_bound(k.begin(), k.end(), key.t,
                                       [](const Key<T>& a, TimeValue x) { return a.t < x; });
      k.insert(it, key);
    }
    return true;
  }

  std::unique_ptr<host::TrackSampler> MakeSampler(std::span<const TimeValue> times) const override {
    if constexpr (std::is_same_v<T, Matrix3>)
      return nullptr;
    else
      return std::make_unique<KeySampler<T>>(*d_, times);
  }

  Interp GetInterp() const override { return d_->interp; }
  bool GetKeyTCB(int i, float& tension, float& continuity, float& bias) const override {
    if (!InRange(i)) return false;
    const Key<T>& k = d_->keys[i];
    tension = k.tens, continuity = k.cont, bias = k.bias;
    return true;
  }
  bool SetKeyTCB(int i, float tension, float continuity, float bias) override {
    if (!InRange(i)) return false;
    Hold();
    Key<T>& k = d_->keys[i];
    k.tens = std::clamp(tension, -1.0f, 1.0f);
    k.cont = std::clamp(continuity, -1.0f, 1.0f);
    k.bias = std::clamp(bias, -1.0f, 1.0f);
    return true;
  }

  void SetInterpolation(Interp ip) override {
    Hold();
    d_->interp = ip;
  }
  bool SetTangents(int key, const ControlValue& in, const ControlValue& out) override {
    const T* a = std::get_if<T>(&in);
    const T* b = std::get_if<T>(&out);
    if (!InRange(key) || !a || !b) return false;
    Hold();
    Key<T>& k = d_->keys[key];
    k.hasTan = true, k.inTan = *a, k.outTan = *b;
    return true;
  }
  void SaveTrack(host::ISave& s) const override;
  bool LoadTrack(host::ILoad& l) override;

  bool Slopes(int key, ControlValue& in, ControlValue& out) const override {
    const auto& k = d_->keys;
    if (!InRange(key) || k.size() < 2) return false;
    if (d_->interp != Interp::Bezier && d_->interp != Interp::TCB) return false;
    auto slopes = [&](auto get, auto& inS, auto& outS) {
      const size_t i = static_cast<size_t>(key);
      using V = std::decay_t<decltype(inS)>;
      V m0{}, m1{};
      inS = V{}, outS = V{};
      if (i > 0) {
        SegmentTangents(k.data(), k.size(), d_->interp, i - 1, get, m0, m1);
        inS = m1 * (1.0f / static_cast<float>(k[i].t - k[i - 1].t));
      }
      if (i + 1 < k.size()) {
        SegmentTangents(k.data(), k.size(), d_->interp, i, get, m0, m1);
        outS = m0 * (1.0f / static_cast<float>(k[i + 1].t - k[i].t));
      }
    };
    if constexpr (std::is_same_v<T, float> || std::is_same_v<T, Point2> ||
                  std::is_same_v<T, Point3> || std::is_same_v<T, Point4>) {
      T a{}, b{};
      slopes([](const T& v) { return v; }, a, b);
      in = a, out = b;
      return true;
    } else if constexpr (std::is_same_v<T, ScaleValue>) {
      Point3 a, b;
      slopes([](const ScaleValue& v) { return v.s; }, a, b);
      in = ScaleValue{a, Quat{}}, out = ScaleValue{b, Quat{}};
      return true;
    } else {
      return false;
    }
  }

 private:
  bool InRange(int i) const { return i >= 0 && i < static_cast<int>(d_->keys.size()); }
  // Indices [from, to) of the keys within range.
  std::pair<ptrdiff_t, ptrdiff_t> Stretch(const Interval& range) const {
    const auto& k = d_->keys;
    if (range.IsEmpty()) return {0, 0};
    const auto a = std::lower_bound(k.begin(), k.end(), range.Start(),
                                    [](const Key<T>& key, TimeValue x) { return key.t < x; });
    const auto b = std::upper_bound(a, k.end(), range.End(),
                                    [](TimeValue x, const Key<T>& key) { return x < key.t; });
    return {a - k.begin(), b - k.begin()};
  }
  bool SameFamily(ControlKind k) const {
    auto fam = [](ControlKind x) { return x == ControlKind::Position ? ControlKind::Point3 : x; };
    return fam(k) == fam(kind_);
  }
  // One snapshot per hold level: enough to put the track back, and cheap when a long run of
  // changes (baking keys) happens inside one step.
  void Hold() {
    if (!undo_ || !undo_->Holding() || heldSerial_ == undo_->Serial()) return;
    heldSerial_ = undo_->Serial();
    undo_->Put(std::make_unique<TrackRestore<T>>(d_));
  }

  ControlKind kind_;
  std::shared_ptr<TrackData<T>> d_;
  UndoStack* undo_;
  uint64_t heldSerial_ = 0;
};

// ---- PRS

// The sub-controller slots of a PRS controller, shared with the undo records that swap
// them, so that a record outlives a controller deleted meanwhile.
struct PRSSlots {
  std::unique_ptr<host::Control> c[3];  // position, rotation, scale
};

class SubSlotRestore final : public host::RestoreObj {
 public:
  SubSlotRestore(std::shared_ptr<PRSSlots> s, int i, std::unique_ptr<host::Control> kept)
      : s_(std::move(s)), i_(i), kept_(std::move(kept)) {}
  void Restore(bool) override { std::swap(s_->c[i_], kept_); }
  void Redo() override { std::swap(s_->c[i_], kept_); }
  int Size() const override { return static_cast<int>(sizeof(*this)); }

 private:
  std::shared_ptr<PRSSlots> s_;
  int i_;
  std::unique_ptr<host::Control> kept_;
};

class PRSControl final : public KeyControlBase {
 public:
  explicit PRSControl(UndoStack* undo) : s_(std::make_shared<PRSSlots>()), undo_(undo) {
    s_->c[0] = MakeControl(ControlKind::Position, undo);
    s_->c[1] = MakeControl(ControlKind::Rotation, undo);
    s_->c[2] = MakeControl(ControlKind::Scale, undo);
  }

  ControlKind Kind() const override { return ControlKind::PRS; }
  ControlValue GetValue(TimeValue t) const override {
    AffineParts p;
    p.t = s_->c[0]->GetPoint3(t);
    p.q = s_->c[1]->GetQuat(t);
    const ScaleValue s = s_->c[2]->GetScale(t);
    p.k = s.s;
    p.u = s.q;
    return ComposeAffine(p);
  }
  // A matrix is split into position, rotation and scale (a mirroring matrix keeps its sign
  // in the scale factors).
  void SetValue(TimeValue t, const ControlValue& v, bool makeKey) override {
    const Matrix3* m = std::get_if<Matrix3>(&v);
    if (!m) return;
    const AffineParts p = DecompAffine(*m);
    s_->c[0]->SetValue(t, p.t, makeKey);
    s_->c[1]->SetValue(t, p.q, makeKey);
    s_->c[2]->SetValue(t, ScaleValue{p.k * p.f, p.u}, makeKey);
  }
  int NumKeys() const override { return 0; }
  TimeValue GetKeyTime(int) const override { return kTimeNegInfinity; }
  int GetKeyIndex(TimeValue) const override { return -1; }
  void DeleteKey(int) override {}
  std::unique_ptr<host::Control> Clone() const override {
    auto c = std::make_unique<PRSControl>(undo_);
    c->s_->c[0] = s_->c[0]->Clone();
    c->s_->c[1] = s_->c[1]->Clone();
    c->s_->c[2] = s_->c[2]->Clone();
    return c;
  }
  bool CopyFrom(const host::Control& other) override {
    const auto* o = dynamic_cast<const PRSControl*>(&other);
    if (!o) return false;
    if (o == this) return true;
    // Sub-controllers of other classes are replaced by copies.
    for (int i = 0; i < 3; ++i)
      if (!s_->c[i]->CopyFrom(*o->s_->c[i])) Replace(i, o->s_->c[i]->Clone());
    return true;
  }
  Control* GetPositionController() override { return s_->c[0].get(); }
  Control* GetRotationController() override { return s_->c[1].get(); }
  Control* GetScaleController() override { return s_->c[2].get(); }
  bool SetPositionController(std::unique_ptr<Control> c) override {
    if (!c || (c->Kind() != ControlKind::Position && c->Kind() != ControlKind::Point3))
      return false;
    Replace(0, std::move(c));
    return true;
  }
  bool SetRotationController(std::unique_ptr<Control> c) override {
    if (!c || c->Kind() != ControlKind::Rotation) return false;
    Replace(1, std::move(c));
    return true;
  }
  bool SetScaleController(std::unique_ptr<Control> c) override {
    if (!c || c->Kind() != ControlKind::Scale) return false;
    Replace(2, std::move(c));
    return true;
  }
  void SetInterpolation(Interp) override {}
  bool SetTangents(int, const ControlValue&, const ControlValue&) override { return false; }
  void SaveTrack(host::ISave& s) const override {
    SaveControl(*s_->c[0], s);
    SaveControl(*s_->c[1], s);
    SaveControl(*s_->c[2], s);
  }
  bool LoadTrack(host::ILoad& l) override {
    std::unique_ptr<Control>* slots[3] = {&s_->c[0], &s_->c[1], &s_->c[2]};
    const ControlKind want[3] = {ControlKind::Position, ControlKind::Rotation, ControlKind::Scale};
    for (int i = 0; i < 3; ++i) {
      if (l.OpenChunk() != host::IOResult::Ok) return false;
      auto c = LoadControl(l, undo_);
      if (l.CloseChunk() != host::IOResult::Ok || !c) return false;
      const ControlKind k = c->Kind() == ControlKind::Point3 ? ControlKind::Position : c->Kind();
      if (k != want[i]) return false;
      *slots[i] = std::move(c);
    }
    return true;
  }

 private:
  // Swaps in a new sub-controller; the old one goes into the undo record when a hold is open.
  void Replace(int i, std::unique_ptr<Control> c) {
    std::swap(s_->c[i], c);
    if (undo_ && undo_->Holding())
      undo_->Put(std::make_unique<SubSlotRestore>(s_, i, std::move(c)));
  }

  std::shared_ptr<PRSSlots> s_;
  UndoStack* undo_;
};

// ---- scene-file form

constexpr uint16_t kControlChunk = 0x3000;

void Put(host::ISave& s, const void* p, size_t n) {
  s.Write(p, n);
}
bool Get(host::ILoad& l, void* p, size_t n) {
  return l.Read(p, n) == host::IOResult::Ok;
}

// Values as little-endian floats, field by field.
void WriteValue(host::ISave& s, float v) {
  Put(s, &v, 4);
}
void WriteValue(host::ISave& s, const Point2& v) {
  WriteValue(s, v.x), WriteValue(s, v.y);
}
void WriteValue(host::ISave& s, const Point3& v) {
  WriteValue(s, v.x), WriteValue(s, v.y), WriteValue(s, v.z);
}
void WriteValue(host::ISave& s, const Point4& v) {
  WriteValue(s, v.x), WriteValue(s, v.y), WriteValue(s, v.z), WriteValue(s, v.w);
}
void WriteValue(host::ISave& s, const Quat& v) {
  WriteValue(s, v.x), WriteValue(s, v.y), WriteValue(s, v.z), WriteValue(s, v.w);
}
void WriteValue(host::ISave& s, const ScaleValue& v) {
  WriteValue(s, v.s), WriteValue(s, v.q);
}
void WriteValue(host::ISave& s, const Matrix3& m) {
  for (int r = 0; r < 4; ++r) WriteValue(s, m.GetRow(r));
}
bool ReadValue(host::ILoad& l, float& v) {
  return Get(l, &v, 4);
}
bool ReadValue(host::ILoad& l, Point2& v) {
  return ReadValue(l, v.x) && ReadValue(l, v.y);
}
bool ReadValue(host::ILoad& l, Point3& v) {
  return ReadValue(l, v.x) && ReadValue(l, v.y) && ReadValue(l, v.z);
}
bool ReadValue(host::ILoad& l, Point4& v) {
  return ReadValue(l, v.x) && ReadValue(l, v.y) && ReadValue(l, v.z) && ReadValue(l, v.w);
}
bool ReadValue(host::ILoad& l, Quat& v) {
  return ReadValue(l, v.x) && ReadValue(l, v.y) && ReadValue(l, v.z) && ReadValue(l, v.w);
}
bool ReadValue(host::ILoad& l, ScaleValue& v) {
  return ReadValue(l, v.s) && ReadValue(l, v.q);
}
bool ReadValue(host::ILoad& l, Matrix3& m) {
  for (int r = 0; r < 4; ++r) {
    Point3 row;
    if (!ReadValue(l, row)) return false;
    m.SetRow(r, row);
  }
  return true;
}

template <class T>
void KeyControl<T>::SaveTrack(host::ISave& s) const {
  WriteValue(s, d_->constant);
  const uint32_t n = static_cast<uint32_t>(d_->keys.size());
  Put(s, &n, 4);
  for (const auto& k : d_->keys) {
    Put(s, &k.t, 4);
    WriteValue(s, k.v);
    WriteValue(s, k.tens), WriteValue(s, k.cont), WriteValue(s, k.bias);
    const uint8_t hasTan = k.hasTan ? 1 : 0;
    Put(s, &hasTan, 1);
    if (k.hasTan) WriteValue(s, k.inTan), WriteValue(s, k.outTan);
  }
}

template <class T>
bool KeyControl<T>::LoadTrack(host::ILoad& l) {
  TrackData<T> d;
  d.interp = d_->interp;
  uint32_t n = 0;
  if (!ReadValue(l, d.constant) || !Get(l, &n, 4)) return false;
  // Keys are read one at a time (no reserve): a corrupt count fails at the chunk's end
  // instead of allocating.
  for (uint32_t i = 0; i < n; ++i) {
    Key<T> k;
    if (!Get(l, &k.t, 4) || !ReadValue(l, k.v) || !ReadValue(l, k.tens) || !ReadValue(l, k.cont) ||
        !ReadValue(l, k.bias))
      return false;
    uint8_t hasTan = 0;
    if (!Get(l, &hasTan, 1) || hasTan > 1) return false;
    k.hasTan = hasTan == 1;
    if (k.hasTan && (!ReadValue(l, k.inTan) || !ReadValue(l, k.outTan))) return false;
    if (!d.keys.empty() && k.t <= d.keys.back().t) return false;  // keys must ascend
    d.keys.push_back(k);
  }
  *d_ = std::move(d);
  return true;
}

template <class T>
std::unique_ptr<KeyControlBase> MakeKeyed(ControlKind kind, Interp ip, UndoStack* undo) {
  return std::make_unique<KeyControl<T>>(kind, ip, undo);
}

std::unique_ptr<KeyControlBase> MakeBase(ControlKind kind, Interp ip, UndoStack* undo) {
  switch (kind) {
    case ControlKind::Float:
      return MakeKeyed<float>(kind, ip, undo);
    case ControlKind::Point2:
      return MakeKeyed<Point2>(kind, ip, undo);
    case ControlKind::Point3:
    case ControlKind::Position:
      return MakeKeyed<Point3>(kind, ip, undo);
    case ControlKind::Point4:
      return MakeKeyed<Point4>(kind, ip, undo);
    case ControlKind::Rotation:
      return MakeKeyed<Quat>(kind, ip, undo);
    case ControlKind::Scale:
      return MakeKeyed<ScaleValue>(kind, ip, undo);
    case ControlKind::Matrix:
      return MakeKeyed<Matrix3>(kind, ip, undo);
    case ControlKind::PRS:
      return std::make_unique<PRSControl>(undo);
  }
  return nullptr;
}

}  // namespace

host::Interp DefaultInterp(host::ControlKind kind) {
  switch (kind) {
    case ControlKind::Rotation:
      return Interp::TCB;
    case ControlKind::Matrix:
      return Interp::Linear;
    default:
      return Interp::Bezier;
  }
}

std::unique_ptr<host::Control> MakeControl(host::ControlKind kind, host::Interp interp,
                                           UndoStack* undo) {
  return MakeBase(kind, interp, undo);
}

bool SetInterp(host::Control& c, host::Interp interp) {
  auto* k = dynamic_cast<KeyControlBase*>(&c);
  if (!k || c.Kind() == ControlKind::PRS) return false;
  k->SetInterpolation(interp);
  return true;
}

bool SetKeyTangents(host::Control& c, int key, const host::ControlValue& in,
                    const host::ControlValue& out) {
  auto* k = dynamic_cast<KeyControlBase*>(&c);
  return k && k->SetTangents(key, in, out);
}

bool GetKeySlopes(const host::Control& c, int key, host::ControlValue& in,
                  host::ControlValue& out) {
  const auto* k = dynamic_cast<const KeyControlBase*>(&c);
  return k && k->Slopes(key, in, out);
}

bool SaveControl(const host::Control& c, host::ISave& s) {
  const auto* k = dynamic_cast<const KeyControlBase*>(&c);
  if (!k) return false;
  s.BeginChunk(kControlChunk);
  const uint8_t head[2] = {static_cast<uint8_t>(c.Kind()), static_cast<uint8_t>(c.GetInterp())};
  Put(s, head, 2);
  k->SaveTrack(s);
  s.EndChunk();
  return true;
}

std::unique_ptr<host::Control> LoadControl(host::ILoad& l, UndoStack* undo) {
  if (l.CurChunkID() != kControlChunk) return nullptr;
  uint8_t head[2];
  if (!Get(l, head, 2)) return nullptr;
  if (head[0] > static_cast<uint8_t>(ControlKind::PRS) ||
      head[1] > static_cast<uint8_t>(Interp::TCB))
    return nullptr;
  auto c = MakeBase(static_cast<ControlKind>(head[0]), static_cast<Interp>(head[1]), undo);
  if (!c || !c->LoadTrack(l)) return nullptr;
  return c;
}

}  // namespace kv::standalone
