// Keyframe controllers of the standalone host: tracks of floats, 2D, 3D and 4D points,
// rotations, scales and matrices with step, linear, Bezier and TCB interpolation, and the
// position-rotation-scale transform controller.
//
// Keys hold absolute values. Outside the keys a track holds the first or last key's value;
// a track without keys has one constant value. Interpolation:
// - Step: the value of the key at or before t.
// - Linear: straight lines (slerp for rotations, a transform blend for matrices).
// - Bezier: cubic Hermite segments with smooth tangents, m_i = (p[i+1] - p[i-1]) /
//   (t[i+1] - t[i-1]) per tick, one-sided at the end keys.
// - TCB: Kochanek-Bartels splines with each key's tension, continuity and bias, with the
//   usual adjustment for unequal key spacing; end keys take the one-sided difference scaled
//   by (1 - tension). With all three at zero and evenly spaced keys this is Catmull-Rom.
// Rotations under Bezier and TCB use the quaternion form of the same spline (squad through
// inner control points built from the logarithms of the relative rotations); Bezier
// rotations use zero tension, continuity and bias. Matrix tracks interpolate linearly under
// Bezier and TCB.
//
// Every change made while the host's hold is open puts one snapshot of the track per hold
// level, so that Cancel and Undo put the whole track back.
#pragma once

#include <memory>

#include "host/controller.h"
#include "host/scene.h"

namespace kv::standalone {

class UndoStack;

// The interpolation a new controller of this kind gets: Bezier for floats, points and
// scales, TCB for rotations, Linear for matrices.
host::Interp DefaultInterp(host::ControlKind kind);

// A keyframe controller (any kind but PRS) or, for kind PRS, a transform controller with
// default sub-controllers. `undo` may be null (changes are then never held).
std::unique_ptr<host::Control> MakeControl(host::ControlKind kind, host::Interp interp,
                                           UndoStack* undo);
inline std::unique_ptr<host::Control> MakeControl(host::ControlKind kind, UndoStack* undo) {
  return MakeControl(kind, DefaultInterp(kind), undo);
}

// Changes the interpolation of a keyframe controller made by MakeControl; false for others.
bool SetInterp(host::Control& c, host::Interp interp);

// Gives key `key` explicit Bezier tangents, slopes per tick of the key's value type (for
// rotations the quaternion's components), used instead of the smooth ones under Bezier
// interpolation. A rotation uses them only when both keys of a segment have them, and then
// interpolates component-wise and normalises. False when the key or the types do not fit.
bool SetKeyTangents(host::Control& c, int key, const host::ControlValue& in,
                    const host::ControlValue& out);

// The tangents a Bezier or TCB track of floats, points or scales interpolates key `key` with,
// as slopes per tick: `in` arriving from the previous key, `out` leaving for the next (zero
// where there is no such segment; for scales, of the factors, with identity axes). False for
// other tracks and kinds, or when the track has fewer than two keys.
bool GetKeySlopes(const host::Control& c, int key, host::ControlValue& in, host::ControlValue& out);

// The scene-file form of a controller made by MakeControl: its kind, interpolation, constant
// value and keys (a PRS controller: its three sub-controllers), in one chunk.
bool SaveControl(const host::Control& c, host::ISave& s);
// Reads what SaveControl wrote, from inside the chunk it opened. Null on bad data.
std::unique_ptr<host::Control> LoadControl(host::ILoad& l, UndoStack* undo);

}  // namespace kv::standalone
