#include "explode/key_reduce.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include "res/strings.h"

#if defined(__x86_64__) || defined(_M_X64)
#include <emmintrin.h>
#define KV_REDUCE_SSE2 1
#else
#define KV_REDUCE_SSE2 0
#endif

namespace kv::explode {
namespace {

using host::ControlKind;
using host::ControlValue;

// A value as up to four floats, so that the reference table holds no variants.
struct Flat {
  float v[4] = {0, 0, 0, 0};
};

Flat Flatten(ControlKind kind, const ControlValue& x) {
  Flat f;
  switch (kind) {
    case ControlKind::Float:
      if (const float* p = std::get_if<float>(&x)) f.v[0] = *p;
      break;
    case ControlKind::Point2:
      if (const Point2* p = std::get_if<Point2>(&x)) f.v[0] = p->x, f.v[1] = p->y;
      break;
    case ControlKind::Point3:
    case ControlKind::Position:
      if (const Point3* p = std::get_if<Point3>(&x)) f.v[0] = p->x, f.v[1] = p->y, f.v[2] = p->z;
      break;
    case ControlKind::Point4:
      if (const Point4* p = std::get_if<Point4>(&x))
        f.v[0] = p->x, f.v[1] = p->y, f.v[2] = p->z, f.v[3] = p->w;
      break;
    case ControlKind::Rotation:
      if (const Quat* p = std::get_if<Quat>(&x))
        f.v[0] = p->x, f.v[1] = p->y, f.v[2] = p->z, f.v[3] = p->w;
      break;
    case ControlKind::Scale:
      // The stretch axes are not compared: only the factors.
      if (const host::ScaleValue* p = std::get_if<host::ScaleValue>(&x))
        f.v[0] = p->s.x, f.v[1] = p->s.y, f.v[2] = p->s.z;
      break;
    default:
      break;
  }
  return f;
}

// Squared distance of two values given as `width` floats each (see Flatten).
float Distance2(ControlKind kind, const float* a, const float* b, int width) {
  if (kind == ControlKind::Rotation) {
    // The angle of the rotation that takes a to b, from the chord between the two unit
    // quaternions: |a - b| = 2 sin(angle / 4), and |a + b| for the other sign, so the shorter
    // way is the smaller chord. Equal rotations give exactly 0, and small angles keep their
    // precision (the cosine of a dot product would round them away).
    auto unit = [](const float* q, float out[4]) {
      const float l = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
      const float inv = l > 0 ? 1.0f / l : 0.0f;
      for (int i = 0; i < 4; ++i) out[i] = q[i] * inv;
    };
    float p[4], q[4];
    unit(a, p);
    unit(b, q);
    float minus = 0, plus = 0;
    for (int i = 0; i < 4; ++i) {
      minus += (p[i] - q[i]) * (p[i] - q[i]);
      plus += (p[i] + q[i]) * (p[i] + q[i]);
    }
    const float chord = std::sqrt(std::min(minus, plus));
    const float angle = 4.0f * std::asin(std::min(1.0f, chord * 0.5f));
    return angle * angle;
  }
  float d = 0;
  for (int i = 0; i < width; ++i) d += (a[i] - b[i]) * (a[i] - b[i]);
  return d;
}

// The floats of a value that reduction compares.
int Width(ControlKind kind) {
  switch (kind) {
    case ControlKind::Float:
      return 1;
    case ControlKind::Point2:
      return 2;
    case ControlKind::Point3:
    case ControlKind::Position:
    case ControlKind::Scale:
      return 3;
    case ControlKind::Point4:
    case ControlKind::Rotation:
      return 4;
    default:
      return 0;
  }
}

float Distance2(ControlKind kind, const Flat& a, const Flat& b) {
  return Distance2(kind, a.v, b.v, Width(kind));
}

// How far one key shapes the curve: deleting key i changes the track only between the keys
// `reach` away (and beyond the ends when those do not exist). Step and linear segments depend
// on their own two keys; Bezier and TCB tangents on the neighbours too. 0: the whole track.
int KeyReach(const host::Control& c) {
  switch (c.GetInterp()) {
    case host::Interp::Step:
    case host::Interp::Linear:
      return 1;
    case host::Interp::Bezier:
    case host::Interp::TCB:
      return 2;
  }
  return 0;
}

// Tells whether samples lie beyond the threshold from the reference samples, deciding
// exactly as Distance2 > threshold² does. For rotations the reference quaternions are made
// unit once, and the angle's arcsine is taken only near the threshold: the angle grows with
// the squared chord at least as fast, relatively, as the chord itself, so a chord clearly
// inside or outside the threshold's chord decides the same as the angle.
class Comparer {
 public:
  Comparer(ControlKind kind, int width, float threshold, const std::vector<float>& ref)
      : kind_(kind), w_(static_cast<size_t>(width)), limit_(threshold * threshold), ref_(ref) {
    if (kind_ != ControlKind::Rotation) return;
    for (size_t j = 0; j + 4 <= ref_.size(); j += 4) Unit(&ref.data()[j], &ref_[j]);
    if (limit_ > 1e-20f && threshold < 3.0f) {
      const double chord = 2.0 * std::sin(double(threshold) / 4.0);
      below_ = static_cast<float>(chord * chord * (1.0 - 1e-4));
      above_ = static_cast<float>(chord * chord * (1.0 + 1e-4));
    }
  }

  // Whether any of the `count` samples `b` differs too much from the reference from sample
  // `from` on.
  bool AnyBeyond(size_t from, const float* b, size_t count) const {
    const float* a = ref_.data() + from * w_;
    if (kind_ == ControlKind::Rotation) {
      size_t j = 0;
#if KV_REDUCE_SSE2
      // Four at a time: the chords alone settle nearly every sample, in the same arithmetic
      // as RotationBeyond; the few near the threshold are decided one by one.
      const __m128 below = _mm_set1_ps(below_), above = _mm_set1_ps(above_);
      for (; j + 4 <= count; j += 4, a += 16, b += 16) {
        __m128 p0 = _mm_loadu_ps(a), p1 = _mm_loadu_ps(a + 4), p2 = _mm_loadu_ps(a + 8),
               p3 = _mm_loadu_ps(a + 12);
        __m128 q0 = _mm_loadu_ps(b), q1 = _mm_loadu_ps(b + 4), q2 = _mm_loadu_ps(b + 8),
               q3 = _mm_loadu_ps(b + 12);
        _MM_TRANSPOSE4_PS(p0, p1, p2, p3);
        _MM_TRANSPOSE4_PS(q0, q1, q2, q3);
        const __m128 l = _mm_sqrt_ps(_mm_add_ps(
            _mm_add_ps(_mm_add_ps(_mm_mul_ps(q0, q0), _mm_mul_ps(q1, q1)), _mm_mul_ps(q2, q2)),
            _mm_mul_ps(q3, q3)));
        const __m128 inv =
            _mm_and_ps(_mm_cmpgt_ps(l, _mm_setzero_ps()), _mm_div_ps(_mm_set1_ps(1.0f), l));
        q0 = _mm_mul_ps(q0, inv), q1 = _mm_mul_ps(q1, inv), q2 = _mm_mul_ps(q2, inv),
        q3 = _mm_mul_ps(q3, inv);
        auto sq = [](__m128 x) { return _mm_mul_ps(x, x); };
        const __m128 minus =
            _mm_add_ps(_mm_add_ps(_mm_add_ps(sq(_mm_sub_ps(p0, q0)), sq(_mm_sub_ps(p1, q1))),
                                  sq(_mm_sub_ps(p2, q2))),
                       sq(_mm_sub_ps(p3, q3)));
        const __m128 plus =
            _mm_add_ps(_mm_add_ps(_mm_add_ps(sq(_mm_add_ps(p0, q0)), sq(_mm_add_ps(p1, q1))),
                                  sq(_mm_add_ps(p2, q2))),
                       sq(_mm_add_ps(p3, q3)));
        const __m128 m = _mm_min_ps(plus, minus);
        if (_mm_movemask_ps(_mm_cmpgt_ps(m, above))) return true;
        const int unsure = _mm_movemask_ps(_mm_cmpnlt_ps(m, below));
        for (int k = 0; k < 4; ++k)
          if ((unsure >> k & 1) && RotationBeyond(a + 4 * k, b + 4 * k)) return true;
      }
#endif
      for (; j < count; ++j, a += 4, b += 4)
        if (RotationBeyond(a, b)) return true;
      return false;
    }
    for (size_t j = 0; j < count; ++j, a += w_, b += w_)
      if (Distance2(kind_, a, b, static_cast<int>(w_)) > limit_) return true;
    return false;
  }

 private:
  static void Unit(const float* q, float* out) {
    const float l = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    const float inv = l > 0 ? 1.0f / l : 0.0f;
    for (int i = 0; i < 4; ++i) out[i] = q[i] * inv;
  }
  // `p`: a unit reference quaternion. The same arithmetic as Distance2.
  bool RotationBeyond(const float* p, const float* b) const {
    float q[4];
    Unit(b, q);
    float minus = 0, plus = 0;
    for (int i = 0; i < 4; ++i) {
      minus += (p[i] - q[i]) * (p[i] - q[i]);
      plus += (p[i] + q[i]) * (p[i] + q[i]);
    }
    const float m = std::min(minus, plus);
    if (m < below_) return false;
    if (m > above_) return true;
    const float angle = 4.0f * std::asin(std::min(1.0f, std::sqrt(m) * 0.5f));
    return angle * angle > limit_;
  }

  ControlKind kind_;
  size_t w_;
  float limit_;
  std::vector<float> ref_;
  // Squared chords below which a rotation is surely within the threshold and above which it
  // is surely beyond; between them the angle decides.
  float below_ = -1, above_ = std::numeric_limits<float>::infinity();
};

// Reduction on the host's private copy of the keys (see ReduceControllerKeys): a tried
// deletion samples only the window through the sampler, and only the deletions that stay
// are made on the working clone.
int ReduceSampled(host::Hold& hold, host::Control& c, host::TrackSampler& s, int first, int last,
                  int reach, const std::vector<TimeValue>& times, float threshold) {
  const size_t w = static_cast<size_t>(s.Width());
  std::vector<float> now(times.size() * w);
  s.Sample(now.data());
  const Comparer compare(c.Kind(), s.Width(), threshold, now);

  hold.Suspend();
  const std::unique_ptr<host::Control> work = c.Clone();
  int removed = 0;
  for (int i = last; work && i >= first; --i) {
    const int n = s.NumKeys();
    // The samples from the key `reach` before up to the key `reach` after: the curve beyond
    // them does not depend on key i.
    size_t lo = 0, hi = times.size();
    if (i - reach >= 0)
      lo = static_cast<size_t>(std::lower_bound(times.begin(), times.end(), s.KeyTime(i - reach)) -
                               times.begin());
    if (i + reach < n)
      hi = static_cast<size_t>(std::lower_bound(times.begin(), times.end(), s.KeyTime(i + reach)) -
                               times.begin());
    bool keep = false;
    if (lo < hi) {
      s.SampleWithout(i, lo, hi, now.data());
      keep = compare.AnyBeyond(lo, now.data(), hi - lo);
    }
    if (!keep) {
      s.DeleteKey(i);
      work->DeleteKey(i);
      ++removed;
    }
  }
  hold.Resume();
  if (removed > 0) c.CopyFrom(*work);
  return removed;
}

}  // namespace

bool IsReducible(ControlKind kind) {
  switch (kind) {
    case ControlKind::Float:
    case ControlKind::Point2:
    case ControlKind::Point3:
    case ControlKind::Position:
    case ControlKind::Point4:
    case ControlKind::Rotation:
    case ControlKind::Scale:
      return true;
    default:
      return false;
  }
}

float ReduceDistance2(ControlKind kind, const ControlValue& a, const ControlValue& b) {
  if (!IsReducible(kind)) return 0;
  return Distance2(kind, Flatten(kind, a), Flatten(kind, b));
}

std::vector<TimeValue> ReduceSampleTimes(const Interval& range, TimeValue step) {
  std::vector<TimeValue> out;
  const int64_t s = std::max<int64_t>(step, 1);
  const int64_t a = range.Start(), b = range.End();
  if (b <= a) return out;
  out.reserve(static_cast<size_t>((b - a + s - 1) / s));
  for (int64_t t = a; t < b; t += s) out.push_back(static_cast<TimeValue>(t));
  return out;
}

int ReduceControllerKeys(host::Hold& hold, host::Control& c, const Interval& range, TimeValue step,
                         float threshold) {
  const ControlKind kind = c.Kind();
  if (!IsReducible(kind) || c.NumKeys() == 0) return 0;
  std::vector<TimeValue> keys;
  c.GetKeyTimes(range, keys);
  if (keys.empty()) return 0;
  const std::vector<TimeValue> times = ReduceSampleTimes(range, step);

  // The keys within the range are contiguous: tried from the last index down to the first.
  const int reach = KeyReach(c);
  const int first = c.GetKeyIndex(keys.front()), last = c.GetKeyIndex(keys.back());
  if (reach >= 1 && reach <= 2 && first >= 0 && last >= first) {
    const std::unique_ptr<host::TrackSampler> s = c.MakeSampler(times);
    if (s && s->Width() == Width(kind) && s->NumKeys() == c.NumKeys())
      return ReduceSampled(hold, c, *s, first, last, reach, times, threshold);
  }

  const float limit = threshold * threshold;
  std::vector<Flat> ref(times.size());
  for (size_t j = 0; j < times.size(); ++j) ref[j] = Flatten(kind, c.GetValue(times[j]));

  hold.Suspend();
  const std::unique_ptr<host::Control> work = c.Clone();
  // A deletion is tried on a small copy holding only the keys around it, so that a key that
  // stays costs nothing on the whole track: only kept deletions touch `work`.
  const std::unique_ptr<host::Control> local = work ? work->Clone() : nullptr;
  const std::unique_ptr<host::TrackClip> none = local ? local->CopyTrack(Interval()) : nullptr;
  const Interval always(kTimeNegInfinity, kTimePosInfinity);
  int removed = 0;
  if (work) {
    for (auto it = keys.rbegin(); it != keys.rend(); ++it) {
      const TimeValue kt = *it;
      const int i = work->GetKeyIndex(kt);
      if (i < 0) continue;
      const int n = work->NumKeys();
      // The samples the deletion can change: those between the keys `reach` away (both
      // ends included, as the segments that start there are recomputed), or every one.
      size_t lo = 0, hi = times.size();
      if (reach > 0) {
        if (i - reach >= 0)
          lo = static_cast<size_t>(
              std::lower_bound(times.begin(), times.end(), work->GetKeyTime(i - reach)) -
              times.begin());
        if (i + reach < n)
          hi = static_cast<size_t>(
              std::upper_bound(times.begin(), times.end(), work->GetKeyTime(i + reach)) -
              times.begin());
      }
      if (lo >= hi) {
        work->DeleteKey(i);
        ++removed;
        continue;
      }
      const Interval instant(kt, kt);
      // Those samples depend on the keys up to `reach` + 1 beyond the window's ends; one more
      // on each side keeps the copy's own ends away from them.
      std::unique_ptr<host::TrackClip> around;
      if (reach > 0 && local && none) {
        const TimeValue a = work->GetKeyTime(std::max(0, i - reach - 2));
        const TimeValue b = work->GetKeyTime(std::min(n - 1, i + reach + 2));
        around = work->CopyTrack(Interval(a, b));
      }
      bool keep = false;
      if (around && local->PasteTrack(*none, always) && local->PasteTrack(*around, always)) {
        local->DeleteKey(local->GetKeyIndex(kt));
        for (size_t j = lo; j < hi && !keep; ++j)
          keep = Distance2(kind, ref[j], Flatten(kind, local->GetValue(times[j]))) > limit;
        if (!keep) work->DeleteKey(i);
      } else {
        const std::unique_ptr<host::TrackClip> saved = work->CopyTrack(instant);
        if (!saved) continue;  // a key that cannot be put back is never taken away
        work->DeleteKey(i);
        for (size_t j = lo; j < hi && !keep; ++j)
          keep = Distance2(kind, ref[j], Flatten(kind, work->GetValue(times[j]))) > limit;
        if (keep) work->PasteTrack(*saved, instant);
      }
      if (!keep) ++removed;
    }
  }
  hold.Resume();
  if (removed > 0) c.CopyFrom(*work);
  return removed;
}

ReduceResult ReduceKeys(host::Interface& ip, std::span<host::Control* const> controllers,
                        const Interval& range, TimeValue step, float threshold,
                        const ReduceOptions& opt) {
  ReduceResult r;
  std::vector<host::Control*> set;
  set.reserve(controllers.size());
  for (host::Control* c : controllers)
    if (c) set.push_back(c);
  std::sort(set.begin(), set.end());
  set.erase(std::unique(set.begin(), set.end()), set.end());
  r.controllers = static_cast<int>(set.size());
  if (set.empty()) return r;

  ip.SetStatusText(res::GetString(res::IDS_REDUCING_KEYS));
  ip.ProgressStart(std::string());
  ip.GetEscPressed();  // a press from before the run does not cancel it

  host::Hold& hold = ip.GetHold();
  hold.Begin();
  const int total = r.controllers;
  std::vector<TimeValue> scratch;
  for (int n = 0; n < total; ++n) {
    host::Control& c = *set[static_cast<size_t>(n)];
    c.GetKeyTimes(range, scratch);
    const int before = static_cast<int>(scratch.size());
    const int removed = ReduceControllerKeys(hold, c, range, step, threshold);
    r.keysBefore += before;
    r.keysAfter += before - removed;
    if ((n + 1) % 100 == 0) {
      const int done = n + 1;
      const int percent = static_cast<int>(int64_t{done} * 100 / total);
      char text[128];
      std::snprintf(text, sizeof text, res::LoadString(res::IDS_REDUCING_KEYS_PCT).data(), percent);
      ip.ProgressUpdate(percent, text);
      const bool go = !ip.GetEscPressed() && (!opt.progress || opt.progress(done, total));
      if (!go) {
        r.completed = false;
        break;
      }
    }
  }
  ip.ProgressEnd();
  ip.SetStatusText(std::string());
  if (r.completed) {
    hold.Accept(res::GetString(res::IDS_UNDO_REDUCE_KEYS));
  } else {
    hold.Cancel();
    r.keysAfter = r.keysBefore;
  }
  ip.RedrawViews(ip.GetTime());
  return r;
}

}  // namespace kv::explode
