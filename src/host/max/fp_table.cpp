#include "host/max/fp_table.h"

namespace kv::max::fp {

int CodeOf(script::Type t) {
  switch (t) {
    case script::Type::Void:
      return kVoid;
    case script::Type::Bool:
      return kBool;
    case script::Type::Int:
      return kInt;
    case script::Type::Float:
      return kFloat;
    case script::Type::String:
      return kString;
    case script::Type::FileName:
      return kFileName;
    case script::Type::Time:
      return kTimeValue;
    case script::Type::Interval:
      return kInterval;
    case script::Type::Node:
      return kINode;
    case script::Type::Name:
      return kName;
    case script::Type::Value:
      return kValue;
  }
  return kVoid;
}

InterfaceDesc DescribeInterface() {
  InterfaceDesc d;
  d.idA = script::kInterfaceIdA;
  d.idB = script::kInterfaceIdB;
  d.name = script::kInterfaceName;
  d.flags = kMixinFlag;
  d.version = script::kInterfaceVersion;
  for (const script::FunctionDef& f : script::Functions()) {
    if (!f.published) continue;
    if (f.property) {
      d.properties.push_back({f.id, kNoFunction, f.name, CodeOf(f.result)});
      continue;
    }
    FunctionDesc fd{f.id, f.name, CodeOf(f.result), {}, 0};
    for (const script::ArgDef& a : f.args) {
      fd.params.push_back({a.name, CodeOf(a.type), a.keyword, a.def});
      fd.keyParams += a.keyword ? 1 : 0;
    }
    d.functions.push_back(std::move(fd));
  }
  return d;
}

int BaseCode(int code) {
  return code & ~(kByRef | kByVal | kByPtr);
}

script::Kind KindOf(int code) {
  const int base = BaseCode(code);
  if (base & kTab) return script::Kind::Array;
  switch (base) {
    case kInt:
    case kIndex:
      return script::Kind::Int;
    case kFloat:
    case kAngle:
    case kPercentFraction:
    case kWorld:
      return script::Kind::Float;
    case kBool:
    case kLowerBool:
      return script::Kind::Bool;
    case kString:
    case kFileName:
    case kTStr:
      return script::Kind::String;
    case kName:
      return script::Kind::Name;
    case kTimeValue:
      return script::Kind::Time;
    case kInterval:
      return script::Kind::Interval;
    case kINode:
      return script::Kind::Node;
    case kControl:
      return script::Kind::Controller;
    case kBitArray:
      return script::Kind::BitArray;
    default:
      return script::Kind::Undefined;
  }
}

int ResultCodeOf(script::Kind k) {
  switch (k) {
    case script::Kind::Undefined:
    case script::Kind::Ok:
      return kVoid;
    case script::Kind::Bool:
      return kBool;
    case script::Kind::Int:
      return kInt;
    case script::Kind::Float:
      return kFloat;
    case script::Kind::String:
      return kTStr | kByVal;
    case script::Kind::Time:
      return kTimeValue;
    case script::Kind::Interval:
      return kInterval | kByVal;
    case script::Kind::Node:
      return kINode;
    case script::Kind::Name:
      return kName;
    case script::Kind::Controller:
      return kControl;
    case script::Kind::Array:
      return kFPValue | kTab | kByVal;
    case script::Kind::BitArray:
      return kBitArray | kByVal;
  }
  return kVoid;
}

}  // namespace kv::max::fp
