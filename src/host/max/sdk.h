// The SDK headers the binding uses, in one place, and conversions between the SDK's value types
// and the core's. Win32 macros that would rename core members are taken back here.
#pragma once

#include <gfx.h>
#include <iparamb2.h>
#include <max.h>
#include <objmode.h>
#include <simpobj.h>

#undef MessageBox
#undef LoadString
#undef ReplaceFile

#include <string>
#include <string_view>

#include "geom/matrix3.h"
#include "geom/point.h"
#include "geom/time.h"

namespace kv::max {

inline kv::Point3 ToKv(const ::Point3& p) {
  return {p.x, p.y, p.z};
}
inline ::Point3 ToMax(const kv::Point3& p) {
  return ::Point3(p.x, p.y, p.z);
}
inline kv::Matrix3 ToKv(const ::Matrix3& m) {
  kv::Matrix3 r;
  for (int i = 0; i < 4; ++i) r.SetRow(i, ToKv(m.GetRow(i)));
  return r;
}
inline ::Matrix3 ToMax(const kv::Matrix3& m) {
  ::Matrix3 r;
  for (int i = 0; i < 4; ++i) r.SetRow(i, ToMax(m.GetRow(i)));
  return r;
}
inline kv::Interval ToKv(const ::Interval& i) {
  return {i.Start(), i.End()};
}
inline ::Interval ToMax(const kv::Interval& i) {
  return i.IsEmpty() ? ::Interval(TIME_NegInfinity, TIME_NegInfinity)
                     : ::Interval(i.Start(), i.End());
}

// The core speaks UTF-8, the SDK UTF-16.
std::wstring Widen(std::string_view s);
std::string Narrow(const wchar_t* s);

// The library's module handle, set when Windows attaches it; null before.
HINSTANCE ModuleHandle();
// A string table entry loaded from the library's resources into one shared buffer of 512
// characters, valid until the next call; null when the module handle is unset or the id absent.
const MCHAR* GetString(int id);

}  // namespace kv::max
