// Key reduction: removes the keys of animation controllers that their curves do not need.
//
// Keys are tried one at a time from the last to the first; a deletion is kept when the curve,
// sampled every `step` ticks from the interval's start while before its end, stays within the
// threshold of the curve as it was before anything was removed. The threshold is a distance
// in the controller's own units (an angle in radians for rotations; scale factors only for
// scales, not the stretch axes).
//
// Deleting a key changes the curve only near it (two keys away for Bezier and TCB keys, one
// for step and linear keys, by the interpolation the controller reports), and the curve was
// within the threshold everywhere before the deletion, so only the samples in that window are
// compared: the same decisions as comparing every sample, at a cost that does not grow with
// the length of the track. Where the controller offers a sampler of its keys, the tries run on
// that private copy and only the deletions that stay touch the working clone.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "geom/time.h"
#include "host/controller.h"
#include "host/interface.h"

namespace kv::explode {

inline constexpr float kDefaultReduceThreshold = 0.02f;

// Whether reduction handles a controller of this kind (floats, 2D, 3D and 4D points,
// positions, rotations and scales).
bool IsReducible(host::ControlKind kind);

// Squared distance between two values of a controller of `kind` as reduction compares them;
// 0 for kinds it does not handle.
float ReduceDistance2(host::ControlKind kind, const host::ControlValue& a,
                      const host::ControlValue& b);

// The times at which a controller is compared: start, start + step, ... while before the
// end (never the end itself). Empty when end <= start. A step below 1 counts as 1.
std::vector<TimeValue> ReduceSampleTimes(const Interval& range, TimeValue step);

// Reduces one controller within `range`: the keys inside it are tried, those outside only
// shape the curve. Works on a clone with undo suspended and copies the result back as one
// change. Unsupported kinds and tracks without keys are left alone. Returns the number of
// keys removed.
int ReduceControllerKeys(host::Hold& hold, host::Control& c, const Interval& range, TimeValue step,
                         float threshold);

struct ReduceOptions {
  // Extra progress sink (controllers done, total), asked every 100 controllers next to the
  // host's Escape key; answering false cancels.
  std::function<bool(int done, int total)> progress;
};

struct ReduceResult {
  bool completed = true;  // false when cancelled (every controller was then put back)
  int controllers = 0;    // distinct controllers in the set
  int keysBefore = 0;     // keys within the interval before and after
  int keysAfter = 0;
};

// Reduces a set of controllers as one undo step, "Reduce Keys". The set is ordered by
// identity, each controller once (null entries ignored). Progress and the Escape key are
// polled every 100 controllers; a cancel puts every controller back.
ReduceResult ReduceKeys(host::Interface& ip, std::span<host::Control* const> controllers,
                        const Interval& range, TimeValue step,
                        float threshold = kDefaultReduceThreshold, const ReduceOptions& opt = {});

}  // namespace kv::explode
