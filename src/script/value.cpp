#include "script/value.h"

#include <algorithm>

namespace kv::script {

Value Value::Bool(bool v) {
  Value r = Make(Kind::Bool);
  r.b = v;
  return r;
}
Value Value::Int(int32_t v) {
  Value r = Make(Kind::Int);
  r.i = v;
  return r;
}
Value Value::Float(float v) {
  Value r = Make(Kind::Float);
  r.f = v;
  return r;
}
Value Value::String(std::string v) {
  Value r = Make(Kind::String);
  r.s = std::move(v);
  return r;
}
Value Value::Name(std::string v) {
  Value r = Make(Kind::Name);
  r.s = std::move(v);
  return r;
}
Value Value::Time(TimeValue v) {
  Value r = Make(Kind::Time);
  r.t = v;
  return r;
}
Value Value::Range(Interval v) {
  Value r = Make(Kind::Interval);
  r.iv = v;
  return r;
}
Value Value::NodeRef(host::Node* n) {
  if (!n) return Undef();
  Value r = Make(Kind::Node);
  r.node = n;
  return r;
}
Value Value::Ctrl(host::Control* c) {
  if (!c) return Undef();
  Value r = Make(Kind::Controller);
  r.ctrl = c;
  return r;
}
Value Value::List(std::vector<Value> v) {
  Value r = Make(Kind::Array);
  r.items = std::move(v);
  return r;
}
Value Value::Bits(BitArray v) {
  Value r = Make(Kind::BitArray);
  r.bits = std::move(v);
  return r;
}

double Value::Number() const {
  if (kind == Kind::Int) return i;
  if (kind == Kind::Float) return f;
  return 0.0;
}

bool Value::operator==(const Value& o) const {
  if (kind != o.kind) return false;
  switch (kind) {
    case Kind::Undefined:
    case Kind::Ok:
      return true;
    case Kind::Bool:
      return b == o.b;
    case Kind::Int:
      return i == o.i;
    case Kind::Float:
      return f == o.f;
    case Kind::String:
    case Kind::Name:
      return s == o.s;
    case Kind::Time:
      return t == o.t;
    case Kind::Interval:
      return iv.Start() == o.iv.Start() && iv.End() == o.iv.End();
    case Kind::Node:
      return node == o.node;
    case Kind::Controller:
      return ctrl == o.ctrl;
    case Kind::Array:
      return items == o.items;
    case Kind::BitArray: {
      // Scripts see which bits are set; the stored size is not part of the value.
      std::vector<int> a, c;
      bits.ForEachSet([&](int k) { a.push_back(k); });
      o.bits.ForEachSet([&](int k) { c.push_back(k); });
      return a == c;
    }
  }
  return false;
}

const char* KindName(Kind k) {
  switch (k) {
    case Kind::Undefined:
      return "undefined";
    case Kind::Ok:
      return "OK";
    case Kind::Bool:
      return "Boolean";
    case Kind::Int:
      return "Integer";
    case Kind::Float:
      return "Float";
    case Kind::String:
      return "String";
    case Kind::Time:
      return "Time";
    case Kind::Interval:
      return "Interval";
    case Kind::Node:
      return "Node";
    case Kind::Name:
      return "Name";
    case Kind::Controller:
      return "Controller";
    case Kind::Array:
      return "Array";
    case Kind::BitArray:
      return "BitArray";
  }
  return "?";
}

namespace {

// Sets script index n (bit n - 1), growing the array; indices below 1 are not elements.
void SetScriptIndex(BitArray& bits, int32_t n) {
  if (n < 1) return;
  if (bits.GetSize() < n) bits.SetSize(n);
  bits.Set(n - 1);
}

}  // namespace

bool ToBitArray(const Value& v, BitArray& out) {
  out = BitArray();
  switch (v.kind) {
    case Kind::BitArray:
      out = v.bits;
      return true;
    case Kind::Int:
      SetScriptIndex(out, v.i);
      return true;
    case Kind::Array:
      for (const Value& item : v.items) {
        if (!item.Is(Kind::Int)) {
          out = BitArray();
          return false;
        }
        SetScriptIndex(out, item.i);
      }
      return true;
    default:
      return false;
  }
}

bool IndicesToElements(const Value& v, int elementCount, std::vector<int32_t>& out) {
  out.clear();
  const int32_t count = std::max(elementCount, 0);
  if (v.Is(Kind::Array)) {
    for (const Value& item : v.items) {
      if (item.Is(Kind::Int) && item.i >= 1 && item.i <= count) out.push_back(item.i - 1);
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return true;
  }
  BitArray bits;
  if (!ToBitArray(v, bits)) return false;
  bits.ForEachSet([&](int i) {
    if (i < count) out.push_back(i);
  });
  return true;
}

BitArray ElementsToBits(const std::vector<int32_t>& elements, int size) {
  BitArray bits(std::max(size, 0));
  for (const int32_t e : elements) {
    if (e >= 0 && e < bits.GetSize()) bits.Set(e);
  }
  return bits;
}

}  // namespace kv::script
