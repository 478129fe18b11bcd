// Scene time: integer ticks at 4800 per second, and intervals of ticks.
#pragma once

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>

namespace kv {

using TimeValue = int32_t;

inline constexpr int kTicksPerSecond = 4800;
inline constexpr TimeValue kTimeNegInfinity = INT32_MIN;
inline constexpr TimeValue kTimePosInfinity = INT32_MAX;

// Ticks per frame at a whole frame rate (160 at 30 fps). A rate that does not divide 4800
// truncates, as the host does.
constexpr int TicksPerFrame(int fps) {
  return fps > 0 ? kTicksPerSecond / fps : kTicksPerSecond;
}

// A decimal frame to the nearest tick.
inline TimeValue FrameToTicks(double frame, int ticksPerFrame) {
  return static_cast<TimeValue>(std::llround(frame * ticksPerFrame));
}
inline double TicksToFrames(TimeValue t, int ticksPerFrame) {
  return static_cast<double>(t) / ticksPerFrame;
}

// A closed range of ticks [start, end]. Empty when start > end.
class Interval {
 public:
  constexpr Interval() : start_(1), end_(0) {}  // empty
  constexpr Interval(TimeValue s, TimeValue e) : start_(s), end_(e) {}

  static constexpr Interval Forever() { return {kTimeNegInfinity, kTimePosInfinity}; }
  static constexpr Interval Never() { return {}; }
  static constexpr Interval Instant(TimeValue t) { return {t, t}; }

  constexpr TimeValue Start() const { return start_; }
  constexpr TimeValue End() const { return end_; }
  constexpr bool IsEmpty() const { return start_ > end_; }
  constexpr bool InInterval(TimeValue t) const { return !IsEmpty() && t >= start_ && t <= end_; }
  constexpr void SetEmpty() { *this = Interval(); }
  constexpr void SetInstant(TimeValue t) { start_ = end_ = t; }
  constexpr void Set(TimeValue s, TimeValue e) { start_ = s, end_ = e; }

  // Intersection.
  constexpr Interval& operator&=(const Interval& o) {
    start_ = std::max(start_, o.start_);
    end_ = std::min(end_, o.end_);
    return *this;
  }
  constexpr bool operator==(const Interval& o) const {
    return (IsEmpty() && o.IsEmpty()) || (start_ == o.start_ && end_ == o.end_);
  }

 private:
  TimeValue start_, end_;
};

}  // namespace kv
