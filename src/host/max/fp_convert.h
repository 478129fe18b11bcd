// Conversion between function-publishing values and script values, written once over the
// members of the SDK's FPValue (type, i, f, b, s, tstr, t, intvl, n, ctrl, bits, fpv_tab). The
// plug-in runs it on FPValue; the tests run the same code on a value of the same shape, since
// the SDK is not there.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/max/fp_table.h"

namespace kv::max::fp {

// Reads `v` as a script value. `in` supplies what needs the host:
//   std::string Text(const wchar_t*)          a UTF-16 text as UTF-8
//   kv::Interval Range(const IntervalT&)      an SDK interval
//   host::Node* Node(NodeT*)                  the core's node for an SDK node
//   host::Control* Control(ControlT*)         the core's controller for an SDK controller
// A null pointer (no string, node, interval, table) reads as undefined, as does a type the
// table never receives. Only tables of values are read item by item; other tables read as
// empty arrays.
template <class FPV, class In>
script::Value Read(const FPV& v, In& in) {
  using script::Value;
  const int code = static_cast<int>(v.type);
  const int base = BaseCode(code);
  switch (KindOf(code)) {
    case script::Kind::Int:
      return Value::Int(v.i);
    case script::Kind::Float:
      return Value::Float(v.f);
    case script::Kind::Bool:
      // TYPE_bool carries a C++ bool; TYPE_BOOL an int.
      return Value::Bool(base == kLowerBool ? v.b : v.i != 0);
    case script::Kind::String:
      if (base == kTStr) return v.tstr ? Value::String(in.Text(v.tstr->data())) : Value::Undef();
      return v.s ? Value::String(in.Text(v.s)) : Value::Undef();
    case script::Kind::Name:
      return v.s ? Value::Name(in.Text(v.s)) : Value::Undef();
    case script::Kind::Time:
      return Value::Time(v.t);
    case script::Kind::Interval:
      return v.intvl ? Value::Range(in.Range(*v.intvl)) : Value::Undef();
    case script::Kind::Node: {
      host::Node* n = v.n ? in.Node(v.n) : nullptr;
      return n ? Value::NodeRef(n) : Value::Undef();
    }
    case script::Kind::Controller: {
      host::Control* c = v.ctrl ? in.Control(v.ctrl) : nullptr;
      return c ? Value::Ctrl(c) : Value::Undef();
    }
    case script::Kind::BitArray: {
      if (!v.bits) return Value::Undef();
      const int size = v.bits->GetSize();
      kv::BitArray bits(size > 0 ? size : 0);
      for (int i = 0; i < bits.GetSize(); ++i) {
        if ((*v.bits)[i]) bits.Set(i);
      }
      return Value::Bits(std::move(bits));
    }
    case script::Kind::Array: {
      std::vector<Value> items;
      if (base == (kFPValue | kTab) && v.fpv_tab) {
        const int count = v.fpv_tab->Count();
        for (int i = 0; i < count; ++i) {
          const FPV* item = (*v.fpv_tab)[i];
          items.push_back(item ? Read(*item, in) : Value::Undef());
        }
      }
      return Value::List(std::move(items));
    }
    default:
      return Value::Undef();
  }
}

// Writes `s` into `out` with the type ResultCodeOf gives its kind. `o` supplies what needs the
// host or allocates; what it allocates is owned by `out` (the by-value types free it), names
// excepted, which point into `o`'s own storage:
//   TStrT* NewText(const std::string&)          an owned UTF-16 string
//   const wchar_t* NameText(const std::string&) a name's text, alive as long as `o`
//   IntervalT* NewRange(kv::Interval)
//   NodeT* SdkNode(host::Node*), ControlT* SdkControl(host::Control*)   null when foreign
//   BitsT* NewBits(int size), with Set(int)
//   TabT* NewTab(), FPV* NewValue(), void Append(TabT*, FPV*)
template <class FPV, class Out>
void Write(const script::Value& s, FPV& out, Out& o) {
  out.type = static_cast<decltype(out.type)>(ResultCodeOf(s.kind));
  switch (s.kind) {
    case script::Kind::Undefined:
    case script::Kind::Ok:
      out.ptr = nullptr;
      break;
    case script::Kind::Bool:
      out.i = s.b ? 1 : 0;
      break;
    case script::Kind::Int:
      out.i = s.i;
      break;
    case script::Kind::Float:
      out.f = s.f;
      break;
    case script::Kind::String:
      out.tstr = o.NewText(s.s);
      break;
    case script::Kind::Time:
      out.t = s.t;
      break;
    case script::Kind::Interval:
      out.intvl = o.NewRange(s.iv);
      break;
    case script::Kind::Node:
      out.n = o.SdkNode(s.node);
      break;
    case script::Kind::Name:
      out.s = const_cast<wchar_t*>(o.NameText(s.s));  // the member is not const in every SDK
      break;
    case script::Kind::Controller:
      out.ctrl = o.SdkControl(s.ctrl);
      break;
    case script::Kind::Array: {
      auto* tab = o.NewTab();
      for (const script::Value& item : s.items) {
        FPV* e = o.NewValue();
        Write(item, *e, o);
        o.Append(tab, e);
      }
      out.fpv_tab = tab;
      break;
    }
    case script::Kind::BitArray: {
      auto* bits = o.NewBits(s.bits.GetSize());
      s.bits.ForEachSet([bits](int i) { bits->Set(i); });
      out.bits = bits;
      break;
    }
  }
}

}  // namespace kv::max::fp
