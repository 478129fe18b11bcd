// The KV_Cache_Fns function table as data: one table that the 3ds Max binding turns into its
// function-publishing descriptor and that the standalone host reads directly, so both publish
// the same ids, names, argument types, keyword defaults and result types.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kv::script {

// Interface identity.
inline constexpr std::string_view kInterfaceName = "KV_Cache_Fns";
inline constexpr uint32_t kInterfaceIdA = 0x4306492F;
inline constexpr uint32_t kInterfaceIdB = 0x5C20F67C;
inline constexpr float kInterfaceVersion = 1.02f;

// Dispatch numbers. Stable: scripts and saved tools depend on them.
enum FnId : int {
  kRecord = 0,
  kGetElementNames = 1,
  kGetElementSelection = 2,
  kSetElementSelection = 3,
  kAddGroup = 4,
  kDeleteGroup = 5,
  kRenameGroup = 6,
  kGetSelectedGroup = 7,
  kSetSelectedGroup = 8,
  kGetGroupMode = 9,
  kSetGroupMode = 10,
  kGetGroupElements = 11,
  kSetGroupElements = 12,
  kAddGroupElements = 13,
  kRemoveGroupElements = 14,
  kMakeGroupElementsUnique = 15,
  kGetGroupEnabled = 16,
  kSetGroupEnabled = 17,
  kGetGroupDelay = 18,
  kSetGroupDelay = 19,
  kGetGroupDeleteByAge = 20,
  kSetGroupDeleteByAge = 21,
  kGetGroupDeleteAge = 22,
  kSetGroupDeleteAge = 23,
  kGetGroupDeleteByDistance = 24,
  kSetGroupDeleteByDistance = 25,
  kGetGroupDeleteDistance = 26,
  kSetGroupDeleteDistance = 27,
  kGetGroupMatID = 28,
  kSetGroupMatID = 29,
  kGetGroupTrigger = 30,  // dispatched, not published
  kSetGroupTrigger = 31,  // dispatched, not published
  kDeleteAllGroups = 32,
  kExplode = 33,
  kReduceKeys = 34,
  kDebugPrint = 35,
  kPropVersion = 36,
  kPropFileVersion = 37,
  kPropCacheStart = 38,
  kPropCacheEnd = 39,
  kPropCacheStepSize = 40,
  kPropCacheFrameRate = 41,
  kPropCacheNumNodes = 42,
  kPropCacheNumSamples = 43,
  kPropCacheHasVisibility = 44,
  kPropCacheHasSpecifiedNormals = 45,
};
inline constexpr int kNumFnIds = 46;
// The host's answer for an id it does not know.
inline constexpr int kNoSuchFunction = -1;

// Argument and result types (the host's parameter types).
enum class Type : uint8_t {
  Void,
  Bool,
  Int,
  Float,
  String,
  FileName,
  Time,
  Interval,
  Node,
  Name,
  Value,  // any script value: array, bitArray, node, controller
};

// A keyword argument's default.
struct Default {
  enum Kind : uint8_t { kNone, kBool, kInt, kFloat, kString, kTime } kind = kNone;
  double number = 0.0;
  std::string_view text = {};
};

struct ArgDef {
  std::string_view name;
  Type type;
  bool keyword = false;  // keyword arguments follow the positional ones and carry a default
  Default def{};
};

struct FunctionDef {
  int id;
  std::string_view name;
  Type result;
  std::span<const ArgDef> args;
  bool published;  // ids 30 and 31 are dispatched but not listed
  bool property;   // a read-only property (getter only)
};

// Every id, 0 to 45, in id order.
std::span<const FunctionDef> Functions();
// The definition of `id`, or null.
const FunctionDef* FindFunction(int id);
// The published function or property called `name` (case-insensitive, as scripts look names
// up), or null.
const FunctionDef* FindFunction(std::string_view name);
// Number of positional arguments of `f`.
int PositionalCount(const FunctionDef& f);

std::string_view TypeName(Type t);

}  // namespace kv::script
