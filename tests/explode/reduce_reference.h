// Key reduction as plainly as it can be written: every tentative deletion re-samples the
// whole interval. The windowed reduction must give exactly the keys this gives.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "explode/key_reduce.h"

namespace kvtest {

inline int ReduceControllerReference(kv::host::Hold& hold, kv::host::Control& c,
                                     const kv::Interval& range, kv::TimeValue step,
                                     float threshold) {
  const kv::host::ControlKind kind = c.Kind();
  if (!kv::explode::IsReducible(kind) || c.NumKeys() == 0) return 0;
  std::vector<kv::TimeValue> keys;
  c.GetKeyTimes(range, keys);
  if (keys.empty()) return 0;
  step = std::max<kv::TimeValue>(step, 1);
  const float limit = threshold * threshold;
  // One slot per step; the end itself is never sampled.
  const int64_t count = (int64_t{range.End()} - range.Start()) / step + 1;
  std::vector<kv::host::ControlValue> ref(static_cast<size_t>(std::max<int64_t>(count, 1)));
  int64_t used = 0;
  for (int64_t t = range.Start(); t < range.End(); t += step)
    ref[size_t(used++)] = c.GetValue(kv::TimeValue(t));

  hold.Suspend();
  std::unique_ptr<kv::host::Control> clone = c.Clone();
  int removed = 0;
  for (auto it = keys.rbegin(); it != keys.rend(); ++it) {
    const kv::Interval instant(*it, *it);
    const int i = clone->GetKeyIndex(*it);
    std::unique_ptr<kv::host::TrackClip> saved = clone->CopyTrack(instant);
    clone->DeleteKey(i);
    bool keep = false;
    int64_t j = 0;
    for (int64_t t = range.Start(); t < range.End() && !keep; t += step, ++j)
      keep = kv::explode::ReduceDistance2(kind, ref[size_t(j)], clone->GetValue(kv::TimeValue(t))) >
             limit;
    if (keep)
      clone->PasteTrack(*saved, instant);
    else
      ++removed;
  }
  hold.Resume();
  if (removed > 0) c.CopyFrom(*clone);
  return removed;
}

}  // namespace kvtest
