// Unit conversion for the played mesh: the unit drop-downs set `scaleUnits` from this table.
#pragma once

namespace kv {

inline constexpr int kNumUnits = 7;

// Inches per unit, in drop-down order: Inches, Feet, Miles, Milimeters, Centimeters, Meters,
// Kilometers. The mile factor is 160900 on purpose (files made with it must keep their scale),
// and the factors are single precision so that the computed scale matches bit for bit.
inline constexpr float kUnitFactors[kNumUnits] = {1.0f,      12.0f,    160900.0f, 0.0393701f,
                                                  0.393701f, 39.3701f, 39370.1f};

// The `scaleUnits` value for a conversion from unit `from` (the first drop-down) to unit `to`
// (the second): factor(to) / factor(from). An index outside the table counts as inches.
float UnitScale(int from, int to);

}  // namespace kv
