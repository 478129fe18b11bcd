// Animation controllers: keyframed tracks of floats, points, rotations, scales and matrices,
// and the position-rotation-scale transform controller.
#pragma once

#include <memory>
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

  // Sub-controllers of a PRS controller; null otherwise.
  virtual Control* GetPositionController() { return nullptr; }
  virtual Control* GetRotationController() { return nullptr; }
  virtual Control* GetScaleController() { return nullptr; }

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
