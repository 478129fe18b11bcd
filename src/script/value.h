// The values that cross the script interface, without the host's own value classes: what a
// script passes to a KV_Cache_Fns function and gets back. The 3ds Max binding converts between
// these and its script values; the kvcache tool reads and writes them as literals (literal.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "geom/bitarray.h"
#include "geom/time.h"
#include "host/controller.h"
#include "host/scene.h"

namespace kv::script {

enum class Kind : uint8_t {
  Undefined,  // no value (a keyword left at "none", a node that is not there)
  Ok,         // the result of a function without one
  Bool,
  Int,
  Float,
  String,
  Time,  // ticks
  Interval,
  Node,
  Name,  // a symbol such as #delete, kept as written
  Controller,
  Array,
  BitArray,  // bits counted from 1 by scripts; bit i here is script index i + 1
};

// One script value. Only the fields of its kind are meaningful.
struct Value {
  Kind kind = Kind::Undefined;
  bool b = false;
  int32_t i = 0;
  float f = 0.0f;
  std::string s;  // String and Name
  TimeValue t = 0;
  Interval iv;
  host::Node* node = nullptr;
  host::Control* ctrl = nullptr;
  std::vector<Value> items;  // Array
  BitArray bits;             // BitArray

  static Value Undef() { return {}; }
  static Value MakeOk() { return Make(Kind::Ok); }
  static Value Bool(bool v);
  static Value Int(int32_t v);
  static Value Float(float v);
  static Value String(std::string v);
  static Value Name(std::string v);
  static Value Time(TimeValue v);
  static Value Range(Interval v);
  static Value NodeRef(host::Node* n);
  static Value Ctrl(host::Control* c);
  static Value List(std::vector<Value> v);
  static Value Bits(BitArray v);

  bool Is(Kind k) const { return kind == k; }
  bool IsNumber() const { return kind == Kind::Int || kind == Kind::Float; }
  // Int or Float as a double (0 for anything else).
  double Number() const;

  bool operator==(const Value& o) const;

 private:
  static Value Make(Kind k) {
    Value v;
    v.kind = k;
    return v;
  }
};

// The kind's name as an error message shows it ("Integer", "BitArray", ...).
const char* KindName(Kind k);

// The to-bitArray conversion of the host: a BitArray as it is; an array of integers, each n
// setting bit n (script index n, so bit n - 1 here), values below 1 ignored; a single integer
// the same as an array of one. False for anything else (including arrays holding non-integers).
bool ToBitArray(const Value& v, BitArray& out);

// The `indices` argument of the element functions: an array is read element by element as
// 1-based integers (values below 1 ignored, other items ignored); any other value goes through
// ToBitArray. The set is then cut to `elementCount` and returned as zero-based element indices,
// ascending. False when the value cannot be converted.
bool IndicesToElements(const Value& v, int elementCount, std::vector<int32_t>& out);

// A bitArray of `size` bits with the given zero-based elements set (those below size).
BitArray ElementsToBits(const std::vector<int32_t>& elements, int size);

}  // namespace kv::script
