// 3ds Max's keyframe controller classes by value kind and interpolation, as data: the binding
// reports a controller's interpolation from its class (key reduction picks its tolerance by it)
// and creates the class a wanted interpolation needs. No SDK here, so the table can be checked
// anywhere; the binding asserts at compile time that it agrees with the SDK's constants.
#pragma once

#include <array>
#include <cstdint>

#include "host/controller.h"

namespace kv::max {

struct KeyControlClass {
  host::ControlKind kind;
  host::Interp interp;
  uint32_t superClassId;  // the controller super class of the kind
  uint32_t classIdA;      // first part of the class id; the second part is 0
};

inline constexpr uint32_t kSuperFloat = 0x9003;
inline constexpr uint32_t kSuperPoint3 = 0x900b;
inline constexpr uint32_t kSuperPosition = 0x900c;
inline constexpr uint32_t kSuperRotation = 0x900d;
inline constexpr uint32_t kSuperScale = 0x900e;

// Bezier controllers are the SDK's "hybrid" classes. Point3 tracks have no linear class.
inline constexpr std::array<KeyControlClass, 14> kKeyControlClasses{{
    {host::ControlKind::Float, host::Interp::Linear, kSuperFloat, 0x2001},
    {host::ControlKind::Float, host::Interp::Bezier, kSuperFloat, 0x2007},
    {host::ControlKind::Float, host::Interp::TCB, kSuperFloat, 0x442311},
    {host::ControlKind::Position, host::Interp::Linear, kSuperPosition, 0x2002},
    {host::ControlKind::Position, host::Interp::Bezier, kSuperPosition, 0x2008},
    {host::ControlKind::Position, host::Interp::TCB, kSuperPosition, 0x442312},
    {host::ControlKind::Rotation, host::Interp::Linear, kSuperRotation, 0x2003},
    {host::ControlKind::Rotation, host::Interp::Bezier, kSuperRotation, 0x2009},
    {host::ControlKind::Rotation, host::Interp::TCB, kSuperRotation, 0x442313},
    {host::ControlKind::Point3, host::Interp::Bezier, kSuperPoint3, 0x200A},
    {host::ControlKind::Point3, host::Interp::TCB, kSuperPoint3, 0x442314},
    {host::ControlKind::Scale, host::Interp::Linear, kSuperScale, 0x2004},
    {host::ControlKind::Scale, host::Interp::Bezier, kSuperScale, 0x2010},
    {host::ControlKind::Scale, host::Interp::TCB, kSuperScale, 0x442315},
}};

// The interpolation of a controller of class (a, b); Linear for any class not in the table
// (expression, list, constraint controllers: the core treats their samples as straight lines).
constexpr host::Interp InterpOfClass(uint32_t a, uint32_t b) {
  if (b != 0) return host::Interp::Linear;
  for (const KeyControlClass& c : kKeyControlClasses) {
    if (c.classIdA == a) return c.interp;
  }
  return host::Interp::Linear;
}

// The class to create for a track of `kind` keyed with `interp`, or null when the SDK has none
// (step keys, linear Point3 tracks, matrices); the caller then falls back to the default.
constexpr const KeyControlClass* FindKeyControlClass(host::ControlKind kind, host::Interp interp) {
  for (const KeyControlClass& c : kKeyControlClasses) {
    if (c.kind == kind && c.interp == interp) return &c;
  }
  return nullptr;
}

}  // namespace kv::max
