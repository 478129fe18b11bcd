// The KV_Cache_Fns function table as the SDK's function publishing describes it: parameter type
// codes, keyword flags and defaults, the functions and the read-only properties, in the order
// the descriptor lists them. Plain C++ without the SDK, so that the conversion from the script
// table is checked on any machine; function_publishing.cpp turns this into the descriptor.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "script/functions.h"
#include "script/value.h"

namespace kv::max::fp {

// ParamType2 codes, numbered as the SDK's paramtype.h numbers them. Only those the table and
// the value conversion use.
enum Code : int {
  kFloat = 0,
  kInt = 1,
  kBool = 4,
  kAngle = 5,
  kPercentFraction = 6,
  kWorld = 7,
  kString = 8,
  kFileName = 9,
  kTimeValue = 12,
  kINode = 17,
  kIndex = 19,
  kVoid = 25,
  kInterval = 26,
  kBitArray = 31,
  kControl = 35,
  kTStr = 37,
  kName = 41,
  kFPValue = 43,
  kValue = 44,
  kLowerBool = 46,  // TYPE_bool: a C++ bool rather than a BOOL
};
// Type modifiers that the SDK adds to a code.
inline constexpr int kTab = 0x0800;
inline constexpr int kByRef = 0x1000;
inline constexpr int kByVal = 0x2000;
inline constexpr int kByPtr = 0x4000;

// Interface flags (FPInterfaceDesc::flags) and function and parameter flags.
inline constexpr uint16_t kMixinFlag = 0x0002;  // FP_MIXIN
inline constexpr int kNoFunction = -1;          // FP_NO_FUNCTION: a property without setter

struct ParamDesc {
  std::string_view name;
  int type;             // a Code
  bool keyword;         // has a keyword default, may be given by name
  script::Default def;  // meaningful when keyword
};

struct FunctionDesc {
  int id;
  std::string_view name;
  int resultType;  // a Code
  std::vector<ParamDesc> params;
  int keyParams;  // how many of params are keyword parameters
};

struct PropertyDesc {
  int getterId;
  int setterId;  // kNoFunction: read-only
  std::string_view name;
  int type;  // a Code
};

struct InterfaceDesc {
  uint32_t idA = 0, idB = 0;
  std::string_view name;
  uint16_t flags = 0;
  float version = 0.0f;
  std::vector<FunctionDesc> functions;   // published functions, in id order
  std::vector<PropertyDesc> properties;  // then the properties, in getter id order
};

// The code a table type is published with.
int CodeOf(script::Type t);

// The interface as the descriptor lists it: every published function, then every property,
// each once; unpublished ids are left out (the dispatcher still answers them).
InterfaceDesc DescribeInterface();

// ---- value conversion rules

// A code without its by-reference, by-value and by-pointer modifiers (the tab bit kept).
int BaseCode(int code);

// The script value kind a function-publishing value of `code` becomes when it is read as an
// argument: numbers, strings, names, times, intervals, nodes, controllers and bitArrays as
// themselves, any table as an array; Undefined for a code the table never receives.
script::Kind KindOf(int code);

// The code a script value of kind `k` is handed back as when a function's result is a value:
// owned copies (by value) for what the result must carry (strings, intervals, bitArrays,
// arrays of values). Void for Undefined and Ok.
int ResultCodeOf(script::Kind k);

}  // namespace kv::max::fp
