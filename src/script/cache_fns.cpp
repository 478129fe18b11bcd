#include "script/cache_fns.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "cache/format.h"
#include "cache/reader.h"
#include "groups/group_ops.h"
#include "object/cache_obj.h"
#include "record/object_target.h"
#include "res/strings.h"
#include "script/literal.h"
#include "script/report.h"

namespace kv::script {

namespace {

ExplodeOps* gExplodeOps = nullptr;

// Mode names as scripts spell them, in mode order.
constexpr std::string_view kModeNames[kNumGroupModes] = {"delete", "holdin",   "holdout",
                                                         "delay",  "setframe", "setmatid"};

[[noreturn]] void Raise(int stringId) {
  throw ScriptError(res::GetString(stringId));
}

// Case-insensitive wildcard match: * any run, ? any one character.
bool WildMatch(std::string_view pattern, std::string_view text) {
  size_t p = 0, t = 0, star = std::string_view::npos, mark = 0;
  auto same = [](char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
  };
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || same(pattern[p], text[t]))) {
      ++p, ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

const Value& Arg(const std::vector<Value>& args, size_t i) {
  if (i >= args.size()) throw ScriptError(kArgumentOutOfBounds);
  return args[i];
}
const std::string& StrArg(const std::vector<Value>& args, size_t i) {
  return Arg(args, i).s;
}
bool BoolArg(const std::vector<Value>& args, size_t i) {
  return Arg(args, i).b;
}
float FloatArg(const std::vector<Value>& args, size_t i) {
  return static_cast<float>(Arg(args, i).Number());
}

}  // namespace

std::string_view GroupModeName(uint32_t mode) {
  return mode < kNumGroupModes ? kModeNames[mode] : std::string_view();
}

void SetExplodeOps(ExplodeOps* ops) {
  gExplodeOps = ops;
}
ExplodeOps* GetExplodeOps() {
  return gExplodeOps;
}

// ---------------------------------------------------------------------------------------------
// dispatch

int kvCache_mxs::Dispatch(int id, TimeValue t, Value& result, const std::vector<Value>& args,
                          std::string& error) {
  (void)t;
  if (id < 0 || id >= kNumFnIds) return kNoSuchFunction;
  try {
    switch (id) {
      case kRecord:
        result = Value::Bool(record(Arg(args, 0)));
        break;
      case kGetElementNames:
        result = getElementNames(StrArg(args, 0));
        break;
      case kGetElementSelection:
        result = getElementSelection();
        break;
      case kSetElementSelection:
        result = setElementSelection(Arg(args, 0));
        break;
      case kAddGroup:
        result = Value::Bool(addGroup(StrArg(args, 0), BoolArg(args, 1)));
        break;
      case kDeleteGroup:
        result = Value::Bool(deleteGroup(StrArg(args, 0)));
        break;
      case kRenameGroup:
        result = Value::Bool(renameGroup(StrArg(args, 0), StrArg(args, 1)));
        break;
      case kGetSelectedGroup:
        result = getSelectedGroup();
        break;
      case kSetSelectedGroup:
        result = Value::Bool(setSelectedGroup(StrArg(args, 0)));
        break;
      case kGetGroupMode:
        result = getGroupMode(StrArg(args, 0));
        break;
      case kSetGroupMode:
        result = Value::Bool(setGroupMode(StrArg(args, 0), StrArg(args, 1)));
        break;
      case kGetGroupElements:
        result = getGroupElements(StrArg(args, 0));
        break;
      case kSetGroupElements:
        result = setGroupElements(StrArg(args, 0), Arg(args, 1));
        break;
      case kAddGroupElements:
        result = addGroupElements(StrArg(args, 0), Arg(args, 1));
        break;
      case kRemoveGroupElements:
        result = Value::Bool(removeGroupElements(StrArg(args, 0), Arg(args, 1)));
        break;
      case kMakeGroupElementsUnique:
        result = Value::Bool(makeGroupElementsUnique(StrArg(args, 0)));
        break;
      case kGetGroupEnabled:
        result = Value::Bool(getGroupEnabled(StrArg(args, 0)));
        break;
      case kSetGroupEnabled:
        result = Value::Bool(setGroupEnabled(StrArg(args, 0), BoolArg(args, 1)));
        break;
      case kGetGroupDelay:
        result = Value::Float(getGroupDelay(StrArg(args, 0)));
        break;
      case kSetGroupDelay:
        result = Value::Bool(setGroupDelay(StrArg(args, 0), FloatArg(args, 1)));
        break;
      case kGetGroupDeleteByAge:
        result = Value::Bool(getGroupDeleteByAge(StrArg(args, 0)));
        break;
      case kSetGroupDeleteByAge:
        result = Value::Bool(setGroupDeleteByAge(StrArg(args, 0), BoolArg(args, 1)));
        break;
      case kGetGroupDeleteAge:
        result = Value::Float(getGroupDeleteAge(StrArg(args, 0)));
        break;
      case kSetGroupDeleteAge:
        result = Value::Bool(setGroupDeleteAge(StrArg(args, 0), FloatArg(args, 1)));
        break;
      case kGetGroupDeleteByDistance:
        result = Value::Bool(getGroupDeleteByDistance(StrArg(args, 0)));
        break;
      case kSetGroupDeleteByDistance:
        result = Value::Bool(setGroupDeleteByDistance(StrArg(args, 0), BoolArg(args, 1)));
        break;
      case kGetGroupDeleteDistance:
        result = Value::Float(getGroupDeleteDistance(StrArg(args, 0)));
        break;
      case kSetGroupDeleteDistance:
        result = Value::Bool(setGroupDeleteDistance(StrArg(args, 0), FloatArg(args, 1)));
        break;
      case kGetGroupMatID:
        result = Value::Int(getGroupMatID(StrArg(args, 0)));
        break;
      case kSetGroupMatID:
        result = Value::Bool(setGroupMatID(StrArg(args, 0), Arg(args, 1).i));
        break;
      case kGetGroupTrigger:
        result = Value::Bool(getGroupTrigger(StrArg(args, 0)));
        break;
      case kSetGroupTrigger:
        result = Value::Bool(setGroupTrigger(StrArg(args, 0), BoolArg(args, 1)));
        break;
      case kDeleteAllGroups:
        deleteAllGroups();
        result = Value::MakeOk();
        break;
      case kExplode: {
        ExplodeRequest r;
        r.interval = Arg(args, 0).iv;
        r.step = Arg(args, 1).t;
        r.selectedOnly = BoolArg(args, 2);
        r.reduceKeys = BoolArg(args, 3);
        r.reduceStep = Arg(args, 4).t;
        r.reduceThresh = FloatArg(args, 5);
        r.cacheNode = Arg(args, 6).node;
        result = explode(r);
        break;
      }
      case kReduceKeys:
        result = Value::Bool(
            reduceKeys(Arg(args, 0), Arg(args, 1).iv, Arg(args, 2).t, FloatArg(args, 3)));
        break;
      case kDebugPrint:
        debugPrint();
        result = Value::MakeOk();
        break;
      case kPropVersion:
        result = Value::Float(getVersion());
        break;
      case kPropFileVersion:
        result = Value::Int(getFileVersion());
        break;
      case kPropCacheStart:
        result = Value::Time(getCacheStart());
        break;
      case kPropCacheEnd:
        result = Value::Time(getCacheEnd());
        break;
      case kPropCacheStepSize:
        result = Value::Int(getCacheStepSize());
        break;
      case kPropCacheFrameRate:
        result = Value::Int(getCacheFrameRate());
        break;
      case kPropCacheNumNodes:
        result = Value::Int(getCacheNumNodes());
        break;
      case kPropCacheNumSamples:
        result = Value::Int(getCacheNumSamples());
        break;
      case kPropCacheHasVisibility:
        result = Value::Bool(getCacheHasVisibility());
        break;
      case kPropCacheHasSpecifiedNormals:
        result = Value::Bool(getCacheHasSpecifiedNormals());
        break;
      default:
        return kNoSuchFunction;
    }
  } catch (const ScriptError& e) {
    error = e.what();
    return kDispatchFailed;
  } catch (const std::exception& e) {
    // Nothing else may cross to the host either (an allocation failure, say).
    error = e.what();
    return kDispatchFailed;
  }
  return kDispatchOk;
}

// ---------------------------------------------------------------------------------------------
// the cache object's functions

int CacheFns::LoadedElements() const {
  const KelvaneTools::kvCacheReader* r = obj_.Reader();
  if (!r || r->InError() || !r->HasIndex()) return 0;
  return r->NumElements();
}

void CacheFns::RequireGroup(const std::string& name) const {
  if (!obj_.Groups().contains(name)) Raise(res::IDS_ERR_NO_SUCH_GROUP);
}

bool CacheFns::record(const Value& fileName) {
  RecordOptions opt;
  opt.quiet = true;  // a script call: no message boxes
  if (fileName.Is(Kind::String) && !fileName.s.empty()) {
    std::string name = fileName.s;
    std::string tail = name.size() > 4 ? name.substr(name.size() - 4) : std::string();
    std::transform(tail.begin(), tail.end(), tail.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (tail != ".kvc") name += ".kvc";
    opt.fileName = std::move(name);
  }
  RegistryRefresher refresher(obj_.Registry());
  Recorder recorder(obj_.Host(), &refresher);
  return RecordCacheObject(recorder, obj_, opt).ok();
}

Value CacheFns::getElementNames(const std::string& pattern) {
  std::vector<Value> out;
  if (LoadedElements() > 0) {
    const KelvaneTools::kvCacheReader& r = *obj_.Reader();
    for (int i = 0; i < r.NumElements(); ++i) {
      const std::string& name = r.Element(i).name;
      if (WildMatch(pattern, name)) {
        out.push_back(Value::List({Value::Int(i), Value::String(name)}));
      }
    }
  }
  return Value::List(std::move(out));
}

Value CacheFns::getElementSelection() {
  const int n = LoadedElements();
  if (n == 0) return Value::Bits(BitArray());
  return Value::Bits(ElementsToBits(obj_.ElementSelection(), n));
}

Value CacheFns::setElementSelection(const Value& indices) {
  const int n = LoadedElements();
  if (n == 0) return Value::Bits(BitArray());
  std::vector<int32_t> set;
  if (!IndicesToElements(indices, n, set)) {
    throw ScriptError("Unable to convert: " + PrintLiteral(indices, obj_.Host()) +
                      " to type: BitArray");
  }
  if (set != obj_.ElementSelection()) {
    host::ScopedHold hold(obj_.Host().GetHold());
    obj_.SetElementSelection(set);
    hold.Accept(res::GetString(res::IDS_UNDO_SELECT_GROUP_NODES));
  }
  return Value::Bits(ElementsToBits(set, n));
}

bool CacheFns::addGroup(const std::string& groupName, bool addSelected) {
  // Unnamed, the group model forces add-selected on but fills the group from the set of the
  // (empty) name it was given: the new group stays empty.
  if (groupName.empty()) return AddGroup(obj_, "", true, false);
  return AddGroup(obj_, groupName, addSelected, false);
}

bool CacheFns::deleteGroup(const std::string& groupName) {
  return DeleteGroup(obj_, groupName);
}

bool CacheFns::renameGroup(const std::string& groupName, const std::string& newName) {
  return RenameGroup(obj_, groupName, newName);
}

Value CacheFns::getSelectedGroup() {
  const ElementGroupList& g = obj_.Groups();
  const int32_t i = g.getSelected();
  return Value::String(i >= 0 && i < g.count() ? g.at(i).name() : std::string());
}

bool CacheFns::setSelectedGroup(const std::string& groupName) {
  RequireGroup(groupName);
  return SetSelectedGroup(obj_, groupName);
}

Value CacheFns::getGroupMode(const std::string& groupName) {
  RequireGroup(groupName);
  const uint32_t mode = obj_.Groups().at(obj_.Groups().indexOf(groupName)).mode;
  if (mode >= kNumGroupModes) Raise(res::IDS_ERR_GROUP_MODE_INVALID);
  return Value::Name(std::string(kModeNames[mode]));
}

bool CacheFns::setGroupMode(const std::string& groupName, const std::string& mode) {
  std::string lower = mode;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto it = std::find(std::begin(kModeNames), std::end(kModeNames), lower);
  if (it == std::end(kModeNames)) Raise(res::IDS_ERR_INVALID_MODE);
  RequireGroup(groupName);
  return SetGroupMode(obj_, groupName, static_cast<uint32_t>(it - std::begin(kModeNames)));
}

Value CacheFns::getGroupElements(const std::string& groupName) {
  RequireGroup(groupName);
  const std::vector<int32_t>& e = obj_.Groups().at(obj_.Groups().indexOf(groupName)).elements();
  return Value::Bits(ElementsToBits(e, e.empty() ? 0 : e.back() + 1));
}

Value CacheFns::setGroupElements(const std::string& groupName, const Value& indices) {
  const int n = LoadedElements();
  if (n == 0) return Value::Bool(false);
  std::vector<int32_t> set;
  if (!IndicesToElements(indices, n, set)) {
    throw ScriptError("Unable to convert: " + PrintLiteral(indices, obj_.Host()) +
                      " to type: BitArray");
  }
  RequireGroup(groupName);
  return Value::Bool(SetGroupElements(obj_, groupName, set));
}

Value CacheFns::addGroupElements(const std::string& groupName, const Value& indices) {
  const int n = LoadedElements();
  if (n == 0) return Value::Bool(false);
  std::vector<int32_t> set;
  if (!IndicesToElements(indices, n, set)) {
    throw ScriptError("Unable to convert: " + PrintLiteral(indices, obj_.Host()) +
                      " to type: BitArray");
  }
  RequireGroup(groupName);
  return Value::Bool(AddGroupElements(obj_, groupName, set));
}

bool CacheFns::removeGroupElements(const std::string& groupName, const Value& indices) {
  const int n = LoadedElements();
  if (n == 0) return false;
  std::vector<int32_t> set;
  if (!IndicesToElements(indices, n, set)) {
    throw ScriptError("Unable to convert: " + PrintLiteral(indices, obj_.Host()) +
                      " to type: BitArray");
  }
  RequireGroup(groupName);
  return RemoveGroupElements(obj_, groupName, set);
}

bool CacheFns::makeGroupElementsUnique(const std::string& groupName) {
  return MakeGroupElementsUnique(obj_, groupName);
}

#define KV_GROUP_FIELD(field) obj_.Groups().at(obj_.Groups().indexOf(groupName)).field

bool CacheFns::getGroupEnabled(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(enabled) != 0;
}
bool CacheFns::setGroupEnabled(const std::string& groupName, bool enabled) {
  RequireGroup(groupName);
  return SetGroupEnabled(obj_, groupName, enabled);
}
float CacheFns::getGroupDelay(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(delay);
}
bool CacheFns::setGroupDelay(const std::string& groupName, float delay) {
  RequireGroup(groupName);
  return SetGroupDelay(obj_, groupName, delay);
}
bool CacheFns::getGroupDeleteByAge(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(deleteByAge) != 0;
}
bool CacheFns::setGroupDeleteByAge(const std::string& groupName, bool byAge) {
  RequireGroup(groupName);
  return SetGroupDeleteByAge(obj_, groupName, byAge);
}
float CacheFns::getGroupDeleteAge(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(deleteAge);
}
bool CacheFns::setGroupDeleteAge(const std::string& groupName, float age) {
  RequireGroup(groupName);
  return SetGroupDeleteAge(obj_, groupName, age);
}
bool CacheFns::getGroupDeleteByDistance(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(deleteByDistance) != 0;
}
bool CacheFns::setGroupDeleteByDistance(const std::string& groupName, bool byDistance) {
  RequireGroup(groupName);
  return SetGroupDeleteByDistance(obj_, groupName, byDistance);
}
float CacheFns::getGroupDeleteDistance(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(deleteDistance);
}
bool CacheFns::setGroupDeleteDistance(const std::string& groupName, float dist) {
  RequireGroup(groupName);
  return SetGroupDeleteDistance(obj_, groupName, dist);
}
int CacheFns::getGroupMatID(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(matIndex) + 1;
}
bool CacheFns::setGroupMatID(const std::string& groupName, int matID) {
  RequireGroup(groupName);
  if (matID < 1 || matID > 99) {
    char text[160];
    std::snprintf(text, sizeof text, "%s < %g or > %g: %g",
                  res::GetString(res::IDS_ERR_MATID_RANGE).c_str(), 1.0, 99.0,
                  static_cast<double>(matID));
    throw ScriptError(text);
  }
  return SetGroupMatIndex(obj_, groupName, matID - 1);
}
bool CacheFns::getGroupTrigger(const std::string& groupName) {
  RequireGroup(groupName);
  return KV_GROUP_FIELD(trigger) != 0;
}
bool CacheFns::setGroupTrigger(const std::string& groupName, bool on) {
  RequireGroup(groupName);
  return SetGroupTrigger(obj_, groupName, on);
}

#undef KV_GROUP_FIELD

void CacheFns::deleteAllGroups() {
  DeleteAllGroups(obj_);
}

Value CacheFns::explode(const ExplodeRequest& r) {
  ExplodeOps* ops = GetExplodeOps();
  if (!ops) throw ScriptError("explode is not available in this build");
  std::vector<host::Node*> created;
  ops->Explode(obj_, r, created);
  std::vector<Value> out;
  out.reserve(created.size());
  for (host::Node* n : created) out.push_back(Value::NodeRef(n));
  return Value::List(std::move(out));
}

std::vector<host::Control*> CollectControllers(const Value& v, const host::Interface& ip) {
  std::vector<host::Control*> out;
  auto add = [&](const Value& item) {
    if (item.Is(Kind::Controller)) {
      out.push_back(item.ctrl);
      return true;
    }
    if (item.Is(Kind::Node)) {
      if (host::Control* tm = item.node->GetTMController()) {
        for (host::Control* c :
             {tm->GetPositionController(), tm->GetRotationController(), tm->GetScaleController()}) {
          if (c) out.push_back(c);
        }
      }
      return true;
    }
    return false;
  };
  auto refuse = [&](const Value& bad) {
    throw ScriptError(res::GetString(res::IDS_ERR_CONTROLLER_PARAM) + PrintLiteral(bad, ip));
  };
  if (v.Is(Kind::Array)) {
    for (const Value& item : v.items) {
      if (!add(item)) refuse(item);
    }
  } else if (!add(v)) {
    refuse(v);
  }
  return out;
}

bool CacheFns::reduceKeys(const Value& controller, Interval interval, TimeValue step,
                          float thresh) {
  const std::vector<host::Control*> controllers = CollectControllers(controller, obj_.Host());
  ExplodeOps* ops = GetExplodeOps();
  if (!ops) throw ScriptError("reduceKeys is not available in this build");
  return ops->ReduceKeys(obj_, controllers, interval, step, thresh);
}

void CacheFns::debugPrint() {
  host::Interface& ip = obj_.Host();
  PrintCacheReport(obj_.Registry(), ip, [&ip](const std::string& line) { ip.ListenerPrint(line); });
}

int CacheFns::getFileVersion() {
  return KelvaneTools::kLastVersion;
}

#define KV_CACHE_PROP(expr)                                                     \
  const KelvaneTools::kvCacheReader* r = obj_.Reader();                         \
  if (!r || r->InError() || !r->HasIndex() || r->NumElements() == 0) return {}; \
  return expr

TimeValue CacheFns::getCacheStart() {
  KV_CACHE_PROP(r->Header().start);
}
TimeValue CacheFns::getCacheEnd() {
  KV_CACHE_PROP(r->Header().end);
}
int CacheFns::getCacheStepSize() {
  KV_CACHE_PROP(r->Header().step);
}
int CacheFns::getCacheFrameRate() {
  KV_CACHE_PROP(r->FrameRate());
}
int CacheFns::getCacheNumNodes() {
  KV_CACHE_PROP(r->NumElements());
}
int CacheFns::getCacheNumSamples() {
  KV_CACHE_PROP(r->NumSamples());
}
bool CacheFns::getCacheHasVisibility() {
  KV_CACHE_PROP(r->HasVisibility());
}
bool CacheFns::getCacheHasSpecifiedNormals() {
  KV_CACHE_PROP(r->AnyNormals());
}

#undef KV_CACHE_PROP

}  // namespace kv::script
