// Animation controllers: keyframed tracks of floats, points, rotations, scales and matrices,
// and the position-rotation-scale transform controller.
#pragma once

#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "geom/matrix3.h"
#include "geom/point.h"
#include "geom/quat.h"
#include "geom/time.h"

namespace kv::host {

enum class ControlKind { Float, Point2, Point3, Position, Point4, Rotation, Scale, Matrix, PRS };

// Key interpolation of keyframe controllers.
enum class Interp { Step, Linear, Bezier, TCB };

// A scale with its stretch axes; the axes are identity for plain axis scales.
struct ScaleValue {
  Point3 s{1, 1, 1};
  Quat q;
  bool operator==(const ScaleValue&) const = default;
};

using ControlValue = std::variant<float, Point2, Point3, Point4, Quat, ScaleValue, Matrix3>;

// A copy of a stretch of a track (its keys with their tangent settings), to be pasted back.
class TrackClip {
 public:
  virtual ~TrackClip() = default;
};

// A private copy of a keyframe track's keys that samples the track's curve itself at a fixed
// set of times, for work that deletes keys and re-samples the curve many times (key
// reduction): no virtual call, no copy of the track and no undo record per sample, and what
// stays the same between looks is worked out once. A sample is the value's components as
// floats, Width() of them: 1 for floats, 2, 3 and 4 for points, x y z w for rotations, and
// for scales the three factors only (the stretch axes are not sampled). Samples equal the
// controller's own GetValue on the same keys to the last bit.
class TrackSampler {
 public:
  virtual ~TrackSampler() = default;
  virtual int Width() const = 0;
  virtual int NumKeys() const = 0;
  virtual TimeValue KeyTime(int i) const = 0;
  // The curve at every sampling time, Width() floats each into `out`.
  virtual void Sample(float* out) = 0;
  // The curve as it would be without key i (which stays) at the sampling times [from, to),
  // into `out` from its start. Those times must lie where deleting key i can change the
  // curve: from the key two before it up to, not including, the key two after it (from or
  // to the track's end where there is no such key).
  virtual void SampleWithout(int i, size_t from, size_t to, float* out) = 0;
  virtual void DeleteKey(int i) = 0;
};

class Control {
 public:
  virtual ~Control() = default;
  virtual ControlKind Kind() const = 0;

  // Value at t. Position and Point3 controllers give Point3, Rotation gives Quat, Scale gives
  // ScaleValue, Matrix and PRS give Matrix3 (the local transform).
  virtual ControlValue GetValue(TimeValue t) const = 0;
  // Sets the value at t. With makeKey a key is made (or replaced) at t; without it a
  // controller that has no keys changes its constant value, and one that has keys moves the
  // key at t if there is one, else it is left alone.
  virtual void SetValue(TimeValue t, const ControlValue& v, bool makeKey) = 0;

  // Keys (a PRS controller reports none of its own: ask its sub-controllers).
  virtual int NumKeys() const = 0;
  virtual TimeValue GetKeyTime(int i) const = 0;
  // Index of the key at exactly t, or -1.
  virtual int GetKeyIndex(TimeValue t) const = 0;
  virtual void DeleteKey(int i) = 0;
  // Key times within [range.Start(), range.End()], ascending.
  void GetKeyTimes(const Interval& range, std::vector<TimeValue>& out) const {
    out.clear();
    for (int i = 0; i < NumKeys(); ++i) {
      const TimeValue k = GetKeyTime(i);
      if (range.InInterval(k)) out.push_back(k);
    }
  }
  bool IsAnimated() const { return NumKeys() > 0; }

  // Copies this track's state at instant t into `into`'s track at instant `at` (a key there).
  virtual void CopyInstant(TimeValue t, Control& into, TimeValue at) const {
    into.SetValue(at, GetValue(t), true);
  }
  virtual std::unique_ptr<Control> Clone() const = 0;
  // Replaces this controller's animation by a copy of another's of the same kind.
  virtual bool CopyFrom(const Control& other) = 0;

  // Copies the keys within [range.Start(), range.End()] with their tangents; null when the
  // controller cannot. PasteTrack replaces the keys within range by the clip's keys.
  virtual std::unique_ptr<TrackClip> CopyTrack(const Interval& range) const {
    (void)range;
    return nullptr;
  }
  virtual bool PasteTrack(const TrackClip& clip, const Interval& range) {
    (void)clip, (void)range;
    return false;
  }

  // A sampler holding a copy of this track's keys, sampling at `times` (ascending); null when
  // the controller has none to give (callers then work on the controller itself).
  virtual std::unique_ptr<TrackSampler> MakeSampler(std::span<const TimeValue> times) const {
    (void)times;
    return nullptr;
  }

  // Interpolation of a keyframe controller (Linear for anything else).
  virtual Interp GetInterp() const { return Interp::Linear; }
  // Tension, continuity and bias of key i (-1..1 each, 0 = smooth); false when the
  // controller has no such key or no such settings.
  virtual bool GetKeyTCB(int i, float& tension, float& continuity, float& bias) const {
    (void)i, (void)tension, (void)continuity, (void)bias;
    return false;
  }
  virtual bool SetKeyTCB(int i, float tension, float continuity, float bias) {
    (void)i, (void)tension, (void)continuity, (void)bias;
    return false;
  }

  // Sub-controllers of a PRS controller; null otherwise.
  virtual Control* GetPositionController() { return nullptr; }
  virtual Control* GetRotationController() { return nullptr; }
  virtual Control* GetScaleController() { return nullptr; }
  // Replaces a PRS controller's sub-controller by one of the matching kind (Position or
  // Point3, Rotation, Scale); false when this is no PRS controller or the kind does not fit.
  virtual bool SetPositionController(std::unique_ptr<Control> c) {
    (void)c;
    return false;
  }
  virtual bool SetRotationController(std::unique_ptr<Control> c) {
    (void)c;
    return false;
  }
  virtual bool SetScaleController(std::unique_ptr<Control> c) {
    (void)c;
    return false;
  }

  // Typed reads; a value of another kind gives the type's default.
  float GetFloat(TimeValue t) const { return As<float>(t); }
  Point3 GetPoint3(TimeValue t) const { return As<Point3>(t); }
  Quat GetQuat(TimeValue t) const { return As<Quat>(t); }
  ScaleValue GetScale(TimeValue t) const { return As<ScaleValue>(t); }
  Matrix3 GetMatrix(TimeValue t) const { return As<Matrix3>(t); }

 private:
  template <class T>
  T As(TimeValue t) const {
    const ControlValue v = GetValue(t);
    if (const T* p = std::get_if<T>(&v)) return *p;
    return T{};
  }
};

}  // namespace kv::host
