#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "cache/frame.h"

namespace KelvaneTools {

namespace {
bool Cyclic(int ort) {
  return ort == kOrtLoop || ort == kOrtPingPong;
}
}  // namespace

bool MapTimeToSamples(int32_t step, int32_t numSamples, const FrameSettings& s,
                      ElementFrameState& r) {
  r.shown = true;
  r.beforeRange = r.afterRange = false;
  r.interpolate = false;
  r.sampleA = r.sampleB = 0;
  r.fraction = 0;
  if (numSamples <= 0 || step <= 0) {
    r.shown = false;
    return false;
  }
  const int32_t last = numSamples - 1;
  // With a single sample there is no period to loop over: hold it.
  const int inOrt = (last == 0 && Cyclic(s.inOrt)) ? kOrtHold : s.inOrt;
  const int outOrt = (last == 0 && Cyclic(s.outOrt)) ? kOrtHold : s.outOrt;
  const float time = std::isfinite(r.time) ? r.time : 0.0f;

  // Clamp so that the conversion to an integer is defined for any time.
  const float position = std::clamp(time / static_cast<float>(step), -2.0e9f, 2.0e9f);
  int64_t a = static_cast<int64_t>(position);  // toward zero
  float f = std::fabs(position - static_cast<float>(a));
  if (f >= 1.0f) f = 0.0f;  // rounding at huge positions
  int rule = outOrt;

  // Before the start.
  if (a < 0 || (time < 0 && Cyclic(inOrt) && a == 0)) {
    r.beforeRange = true;
    switch (inOrt) {
      case kOrtHide:
        a = 0, f = 0, r.shown = false;
        break;
      case kOrtHold:
        a = 0, f = 0;
        break;
      case kOrtLoop:
        if (!(a == 0 && f == 0)) {
          if (time < 0) --a;
          if (a < 1) a += ((1 - a) + last - 1) / last * last;
          f = 1 - f;
        }
        rule = inOrt;
        break;
      case kOrtPingPong:
        a = std::llabs(a);
        rule = inOrt;
        break;
      default:
        a = 0, f = 0;
        break;
    }
  }

  // After the end.
  if (a > last || (a == last && Cyclic(rule))) {
    r.afterRange = true;
    switch (rule) {
      case kOrtHide:
        a = last, f = 0, r.shown = false;
        break;
      case kOrtLoop:
        if (!(a == last && f == 0)) a %= last;
        break;
      case kOrtPingPong: {
        const int64_t q = a / last, rem = a % last;
        a = (q % 2 == 0) ? rem : last - rem;
        if (q % 2 != 0 && f > 0) f = 1 - f, a = last - rem - 1;
        break;
      }
      default:  // Hold
        a = last, f = 0;
        break;
    }
  }

  // The second sample.
  int64_t b = a;
  if (f > 0) {
    if (time < 0 && a == 0 && inOrt == kOrtHide) {
      r.beforeRange = true, r.shown = false, f = 0;
    } else if (time < 0 && a == 0 && inOrt == kOrtHold) {
      b = 0, f = 0;
    } else {
      b = a + 1;
      if (b > last) {
        r.afterRange = true;
        switch (rule) {
          case kOrtPingPong:
            f = 1 - f, b = a, a = a - 1;
            break;
          case kOrtLoop:
            b = 0, f = 0;
            break;
          case kOrtHide:
            r.shown = false, f = 0;
            break;
          default:
            b = last, f = 0;
            break;
        }
      }
    }
  }

  if (s.reverse && (r.beforeRange || r.afterRange)) std::swap(r.beforeRange, r.afterRange);

  // Exactly on a sample (or pinned there): the "Hide" end hides already on its last sample.
  if (f == 0) {
    if (!s.reverse && a == last && outOrt == kOrtHide) r.afterRange = true, r.shown = false;
    if (s.reverse && a == 0 && inOrt == kOrtHide) r.afterRange = true, r.shown = false;
  }

  // Defensive: every index handed out lies within the table.
  if (a < 0 || a > last) a = a < 0 ? 0 : last, f = 0;
  if (b < 0 || b > last) b = a, f = 0;
  r.sampleA = static_cast<int32_t>(a);
  r.sampleB = static_cast<int32_t>(b);
  r.fraction = f;
  r.interpolate = r.shown && s.interpolate && f > 0;
  return r.interpolate;
}

}  // namespace KelvaneTools
