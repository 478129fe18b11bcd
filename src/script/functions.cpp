#include "script/functions.h"

#include <array>
#include <cctype>

namespace kv::script {

namespace {

using D = Default;
constexpr ArgDef kGroup{"groupName", Type::String};

constexpr ArgDef kRecordArgs[] = {{"fileName", Type::FileName, true, {D::kNone}}};
constexpr ArgDef kNamesArgs[] = {{"pattern", Type::String, true, {D::kString, 0, "*"}}};
constexpr ArgDef kIndicesArgs[] = {{"indices", Type::Value}};
constexpr ArgDef kAddGroupArgs[] = {{"groupName", Type::String, true, {D::kString, 0, ""}},
                                    {"addSelected", Type::Bool, true, {D::kBool, 0}}};
constexpr ArgDef kGroupArgs[] = {kGroup};
constexpr ArgDef kRenameArgs[] = {kGroup, {"newName", Type::String}};
constexpr ArgDef kModeArgs[] = {kGroup, {"mode", Type::Name}};
constexpr ArgDef kGroupIndicesArgs[] = {kGroup, {"indices", Type::Value}};
constexpr ArgDef kEnabledArgs[] = {kGroup, {"enabled", Type::Bool}};
constexpr ArgDef kDelayArgs[] = {kGroup, {"delay", Type::Float}};
constexpr ArgDef kByAgeArgs[] = {kGroup, {"byAge", Type::Bool}};
constexpr ArgDef kAgeArgs[] = {kGroup, {"age", Type::Float}};
constexpr ArgDef kByDistanceArgs[] = {kGroup, {"byDistance", Type::Bool}};
constexpr ArgDef kDistArgs[] = {kGroup, {"dist", Type::Float}};
constexpr ArgDef kMatIdArgs[] = {kGroup, {"matID", Type::Int}};
constexpr ArgDef kTriggerArgs[] = {kGroup, {"trigger", Type::Bool}};
constexpr ArgDef kExplodeArgs[] = {{"interval", Type::Interval},
                                   {"stepSize", Type::Time},
                                   {"selectedOnly", Type::Bool, true, {D::kBool, 0}},
                                   {"reduceKeys", Type::Bool, true, {D::kBool, 1}},
                                   {"reduceStepSize", Type::Time, true, {D::kTime, 0}},
                                   {"reduceThresh", Type::Float, true, {D::kFloat, 0.02}},
                                   {"kvCacheNode", Type::Node, true, {D::kNone}}};
constexpr ArgDef kReduceArgs[] = {{"controller", Type::Value},
                                  {"interval", Type::Interval},
                                  {"stepSize", Type::Time},
                                  {"thresh", Type::Float, true, {D::kFloat, 0.02}}};

constexpr std::span<const ArgDef> kNone{};

constexpr FunctionDef Fn(int id, std::string_view name, Type result,
                         std::span<const ArgDef> args = kNone, bool published = true) {
  return {id, name, result, args, published, false};
}
constexpr FunctionDef Prop(int id, std::string_view name, Type result) {
  return {id, name, result, kNone, true, true};
}

constexpr std::array<FunctionDef, kNumFnIds> kTable = {{
    Fn(kRecord, "record", Type::Bool, kRecordArgs),
    Fn(kGetElementNames, "getElementNames", Type::Value, kNamesArgs),
    Fn(kGetElementSelection, "getElementSelection", Type::Value),
    Fn(kSetElementSelection, "setElementSelection", Type::Value, kIndicesArgs),
    Fn(kAddGroup, "addGroup", Type::Bool, kAddGroupArgs),
    Fn(kDeleteGroup, "deleteGroup", Type::Bool, kGroupArgs),
    Fn(kRenameGroup, "renameGroup", Type::Bool, kRenameArgs),
    Fn(kGetSelectedGroup, "getSelectedGroup", Type::Value),
    Fn(kSetSelectedGroup, "setSelectedGroup", Type::Bool, kGroupArgs),
    Fn(kGetGroupMode, "getGroupMode", Type::Value, kGroupArgs),
    Fn(kSetGroupMode, "setGroupMode", Type::Bool, kModeArgs),
    Fn(kGetGroupElements, "getGroupElements", Type::Value, kGroupArgs),
    Fn(kSetGroupElements, "setGroupElements", Type::Value, kGroupIndicesArgs),
    Fn(kAddGroupElements, "addGroupElements", Type::Value, kGroupIndicesArgs),
    Fn(kRemoveGroupElements, "removeGroupElements", Type::Bool, kGroupIndicesArgs),
    Fn(kMakeGroupElementsUnique, "makeGroupElementsUnique", Type::Bool, kGroupArgs),
    Fn(kGetGroupEnabled, "getGroupEnabled", Type::Bool, kGroupArgs),
    Fn(kSetGroupEnabled, "setGroupEnabled", Type::Bool, kEnabledArgs),
    Fn(kGetGroupDelay, "getGroupDelay", Type::Float, kGroupArgs),
    Fn(kSetGroupDelay, "setGroupDelay", Type::Bool, kDelayArgs),
    Fn(kGetGroupDeleteByAge, "getGroupDeleteByAge", Type::Bool, kGroupArgs),
    Fn(kSetGroupDeleteByAge, "setGroupDeleteByAge", Type::Bool, kByAgeArgs),
    Fn(kGetGroupDeleteAge, "getGroupDeleteAge", Type::Float, kGroupArgs),
    Fn(kSetGroupDeleteAge, "setGroupDeleteAge", Type::Bool, kAgeArgs),
    Fn(kGetGroupDeleteByDistance, "getGroupDeleteByDistance", Type::Bool, kGroupArgs),
    Fn(kSetGroupDeleteByDistance, "setGroupDeleteByDistance", Type::Bool, kByDistanceArgs),
    Fn(kGetGroupDeleteDistance, "getGroupDeleteDistance", Type::Float, kGroupArgs),
    Fn(kSetGroupDeleteDistance, "setGroupDeleteDistance", Type::Bool, kDistArgs),
    Fn(kGetGroupMatID, "getGroupMatID", Type::Int, kGroupArgs),
    Fn(kSetGroupMatID, "setGroupMatID", Type::Bool, kMatIdArgs),
    Fn(kGetGroupTrigger, "getGroupTrigger", Type::Bool, kGroupArgs, false),
    Fn(kSetGroupTrigger, "setGroupTrigger", Type::Bool, kTriggerArgs, false),
    Fn(kDeleteAllGroups, "deleteAllGroups", Type::Void),
    Fn(kExplode, "explode", Type::Value, kExplodeArgs),
    Fn(kReduceKeys, "reduceKeys", Type::Bool, kReduceArgs),
    Fn(kDebugPrint, "debugPrint", Type::Void),
    Prop(kPropVersion, "version", Type::Float),
    Prop(kPropFileVersion, "fileVersion", Type::Int),
    Prop(kPropCacheStart, "cacheStart", Type::Time),
    Prop(kPropCacheEnd, "cacheEnd", Type::Time),
    Prop(kPropCacheStepSize, "cacheStepSize", Type::Int),
    Prop(kPropCacheFrameRate, "cacheFrameRate", Type::Int),
    Prop(kPropCacheNumNodes, "cacheNumNodes", Type::Int),
    Prop(kPropCacheNumSamples, "cacheNumSamples", Type::Int),
    Prop(kPropCacheHasVisibility, "cacheHasVisibility", Type::Bool),
    Prop(kPropCacheHasSpecifiedNormals, "cacheHasSpecifiedNormals", Type::Bool),
}};

// The dispatcher and the descriptor index the table by id.
constexpr bool IdsInOrder() {
  for (size_t i = 0; i < kTable.size(); ++i) {
    if (kTable[i].id != static_cast<int>(i)) return false;
  }
  return true;
}
static_assert(IdsInOrder(), "the function table must list ids 0 to 45 in order");

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  }
  return true;
}

}  // namespace

std::span<const FunctionDef> Functions() {
  return kTable;
}

const FunctionDef* FindFunction(int id) {
  return id >= 0 && id < kNumFnIds ? &kTable[id] : nullptr;
}

const FunctionDef* FindFunction(std::string_view name) {
  for (const FunctionDef& f : kTable) {
    if (f.published && EqualNoCase(f.name, name)) return &f;
  }
  return nullptr;
}

int PositionalCount(const FunctionDef& f) {
  int n = 0;
  for (const ArgDef& a : f.args) n += a.keyword ? 0 : 1;
  return n;
}

std::string_view TypeName(Type t) {
  switch (t) {
    case Type::Void:
      return "void";
    case Type::Bool:
      return "Boolean";
    case Type::Int:
      return "Integer";
    case Type::Float:
      return "Float";
    case Type::String:
      return "String";
    case Type::FileName:
      return "Filename";
    case Type::Time:
      return "Time";
    case Type::Interval:
      return "Interval";
    case Type::Node:
      return "Node";
    case Type::Name:
      return "Name";
    case Type::Value:
      return "Value";
  }
  return "?";
}

}  // namespace kv::script
