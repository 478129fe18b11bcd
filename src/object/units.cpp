#include "object/units.h"

namespace kv {

float UnitScale(int from, int to) {
  const auto factor = [](int i) { return i >= 0 && i < kNumUnits ? kUnitFactors[i] : 1.0f; };
  return factor(to) / factor(from);
}

}  // namespace kv
