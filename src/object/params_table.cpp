#include <algorithm>
#include <array>

#include "object/params.h"
#include "res/strings.h"

namespace kv::param {
namespace {

using namespace kv::res;

constexpr uint32_t R = kResetDefault;
constexpr uint32_t L = kHasLimits;
constexpr double kBigInt = 9999999.0;
constexpr double kBig = 999999.0;

constexpr int kStepItems[] = {IDS_STEP_FRAME, IDS_STEP_HALF, IDS_STEP_QUARTER, IDS_STEP_EIGHTH};
constexpr int kOrtItems[] = {IDS_ORT_HIDE, IDS_ORT_HOLD, IDS_ORT_LOOP, IDS_ORT_PINGPONG};
constexpr int kUnitItems[] = {IDS_UNIT_INCHES,      IDS_UNIT_FEET,        IDS_UNIT_MILES,
                              IDS_UNIT_MILLIMETERS, IDS_UNIT_CENTIMETERS, IDS_UNIT_METERS,
                              IDS_UNIT_KILOMETERS};
constexpr int kLocalLoadItems[] = {IDS_LOAD_STREAM, IDS_LOAD_PER_SAMPLE, IDS_LOAD_PRELOAD};
constexpr int kSlaveLoadItems[] = {IDS_LOAD_PER_SAMPLE, IDS_LOAD_PRELOAD};

constexpr int kEnablesPlayFrame[] = {kPlayFrame};
constexpr int kEnablesDisplayCache[] = {kVpBoxMode, kVpInterpolate, kVpDeleteObjects};
constexpr int kEnablesMatID[] = {kRendMatID};
constexpr int kEnablesApplyMatID[] = {kRendApplyMatID};

// A row under construction; the modifiers keep the table one line per parameter.
struct Row : ParamDef {
  // Defined before its users: some compilers evaluate the table before a later definition.
  template <class F>
  constexpr Row With(F f) const {
    Row r = *this;
    f(r);
    return r;
  }

  constexpr Row Items(std::span<const int> s) const {
    return With([&](Row& r) { r.items = s; });
  }
  constexpr Row Enables(std::span<const int> s) const {
    return With([&](Row& r) { r.enables = s; });
  }
  constexpr Row Radio(int n) const {
    return With([&](Row& r) { r.radioCount = n; });
  }
  constexpr Row Step(float s) const {
    return With([&](Row& r) { r.spinnerStep = s; });
  }
  constexpr Row Name(int s) const {
    return With([&](Row& r) { r.displayNameId = s; });
  }
  constexpr Row Tip(int s) const {
    return With([&](Row& r) { r.tooltipId = s; });
  }
  constexpr Row Label(int s) const {
    return With([&](Row& r) { r.labelId = s; });
  }
  constexpr Row Prompt(int s) const {
    return With([&](Row& r) { r.promptId = s; });
  }
};

constexpr Row P(int id, std::string_view name, Type type, double def, double lo, double hi,
                uint32_t flags, Map map, Control control) {
  return Row{{id, name, type, def, lo, hi, flags, map, control, {}, {}, 0, 0.0f, 0, 0, 0, 0}};
}
// Parameters without limits.
constexpr Row P(int id, std::string_view name, Type type, double def, uint32_t flags, Map map,
                Control control) {
  return P(id, name, type, def, 0.0, 0.0, flags, map, control);
}

using T = Type;
using C = Control;

constexpr ParamDef kDefs[] = {
    P(kIconSize, "iconSize", T::World, 0.0, 0.0, kBig, R | L, kMapViewport, C::SpinnerWorld),
    P(kNodes, "nodes", T::NodeList, 0, kVariableSize, kMapNone, C::None),
    P(kFileName, "fileName", T::FileName, 0, R | kAssetAnimation, kMapNone, C::None),
    P(kPlayStart, "playStart", T::Int, 0, -kBigInt, kBigInt, R | L, kMapPlayback, C::SpinnerInt)
        .Name(IDS_PARAM_PLAY_START),
    P(kPlaySpeed, "playSpeed", T::Float, 1.0, -kBig, kBig, R | L | kAnimatable, kMapPlayback,
      C::SpinnerFloat)
        .Name(IDS_PARAM_PLAY_SPEED),
    P(kPlayFPS, "playFPS", T::Int, 30, 1, kBig, R | L | kAnimatable, kMapPlayback, C::SpinnerInt),
    P(kPlaySpeedSteps, "playSpeedSteps", T::Int, 0, 0, 3, R | L, kMapPlayback, C::DropDown)
        .Items(kStepItems),
    P(kScaleUnitsFrom, "scaleUnitsFrom", T::Int, 0, 0, 6, R | L, kMapPlayback, C::DropDown)
        .Items(kUnitItems),
    // The second unit deliberately shares the first one's script name (see FindParam...).
    P(kScaleUnitsTo, "scaleUnitsFrom", T::Int, 0, 0, 6, R | L, kMapPlayback, C::DropDown)
        .Items(kUnitItems),
    P(kPlayReverse, "playReverse", T::Bool, 0, R, kMapPlayback, C::CheckBox),
    P(kPlayUseGraph, "playUseGraph", T::Bool, 0, R, kMapPlayback, C::CheckBox)
        .Enables(kEnablesPlayFrame),
    P(kPlayFrame, "playFrame", T::Float, 0.0, -kBigInt, kBigInt, R | L | kAnimatable, kMapPlayback,
      C::SpinnerFloat)
        .Name(IDS_PARAM_PLAY_FRAME),
    P(kScaleUnits, "scaleUnits", T::Float, 1.0, 1e-7, kBig, R | L | kAnimatable, kMapPlayback,
      C::SpinnerFloat),
    P(kPlayInORT, "playInORT", T::Int, kOrtHold, 0, 3, R | L, kMapPlayback, C::DropDown)
        .Items(kOrtItems),
    P(kPlayOutORT, "playOutORT", T::Int, kOrtHold, 0, 3, R | L, kMapPlayback, C::DropDown)
        .Items(kOrtItems),
    P(kVpWireframe, "vpWireframe", T::Bool, 0, R, kMapViewport, C::CheckBox),
    P(kVpBoxMode, "vpBoxMode", T::Bool, 0, R, kMapViewport, C::CheckBox),
    P(kVpInterpolate, "vpInterpolate", T::Bool, 1, R, kMapViewport, C::CheckBox),
    P(kVpHideObjects, "vpHideObjects", T::Bool, 1, R, kMapViewport, C::CheckBox),
    P(kVpShowMarkers, "vpShowMarkers", T::Bool, 1, R, kMapViewport, C::CheckBox),
    P(kVpDisplayIcon, "vpDisplayIcon", T::Bool, 1, R, kMapViewport, C::CheckBox),
    P(kVpDisplayCache, "vpDisplayCache", T::Bool, 1, R, kMapViewport, C::CheckBox)
        .Enables(kEnablesDisplayCache),
    P(kRendBoxMode, "rendBoxMode", T::Bool, 0, R, kMapViewport, C::CheckBox),
    P(kRendInterpolate, "rendInterpolate", T::Bool, 1, R, kMapViewport, C::CheckBox),
    P(kRendApplyMatID, "rendApplyMatID", T::Bool, 0, R, kMapViewport, C::CheckBox)
        .Enables(kEnablesMatID),
    P(kRendMatID, "rendMatID", T::Int, 99, 1, 99, R | L, kMapViewport, C::SpinnerInt).Step(1.0f),
    P(kRendDontDelete, "rendDontDelete", T::Bool, 0, R, kMapViewport, C::CheckBox)
        .Enables(kEnablesApplyMatID),
    P(kRecStart, "recStart", T::Int, 0, -kBigInt, kBigInt, R | L, kMapRecord, C::SpinnerInt),
    P(kRecEnd, "recEnd", T::Int, 0, -kBigInt, kBigInt, R | L, kMapRecord, C::SpinnerInt),
    P(kRecStep, "recStep", T::Float, 1.0, 0.001, kBig, R | L, kMapRecord, C::SpinnerFloat),
    P(kRecSaveMaterial, "recSaveMaterial", T::Bool, 1, R, kMapRecord, C::CheckBox)
        .Tip(IDS_TT_SAVE_MATERIAL),
    P(kLoadTypeLocal, "loadTypeLocal", T::Int, 0, 0, 2, R | L, kMapPlayback, C::DropDown)
        .Items(kLocalLoadItems),
    P(kLoadTypeSlave, "loadTypeSlave", T::Int, 0, 0, 1, R | L, kMapPlayback, C::DropDown)
        .Items(kSlaveLoadItems),
    P(kElementFrames, "elementFrames", T::FloatList, 0,
      kAnimatable | kVariableSize | kTrackViewWhole | kNotScriptable, kMapNone, C::None)
        .Name(IDS_PARAM_GROUP_FRAMES),
    P(kTriggerMode, "triggerMode", T::Bool, 0, 0, 2, R | L, kMapPlayback, C::Radio).Radio(3),
    P(kTriggerOmni, "triggerOmni", T::Node, 0, R, kMapPlayback, C::PickButton)
        .Prompt(IDS_PICK_OMNI),
    P(kTriggerInteractive, "triggerInteractive", T::Bool, 1, R, kMapPlayback, C::CheckBox),
    P(kExplodeStart, "explodeStart", T::Int, 0, -kBigInt, kBigInt, R | L, kMapExplode,
      C::SpinnerInt),
    P(kExplodeEnd, "explodeEnd", T::Int, 0, -kBigInt, kBigInt, R | L, kMapExplode, C::SpinnerInt),
    P(kExplodeStep, "explodeStep", T::Float, 1.0, 0.001, kBig, R | L, kMapExplode, C::SpinnerFloat),
    P(kExplodeReduce, "explodeReduce", T::Bool, 1, R, kMapExplode, C::CheckBox),
    P(kExplodeReduceStep, "explodeReduceStep", T::Float, 1.0, 0.001, kBig, R | L, kMapExplode,
      C::SpinnerFloat),
    P(kExplodeReduceThresh, "explodeReduceThresh", T::Float, 0.02, 0.001, kBig, R | L, kMapExplode,
      C::SpinnerFloat),
    P(kExplodeSelectedOnly, "explodeSelectedOnly", T::Bool, 0, R, kMapExplode, C::CheckBox),
    P(kTriggerSteps, "triggerSteps", T::Int, 0, 0, 3, R | L, kMapPlayback, C::DropDown)
        .Items(kStepItems),
    P(kExplodeTo, "explodeTo", T::Bool, 0, 0, 3, R | L, kMapExplode, C::Radio).Radio(4),
    P(kExplodeToNode, "explodeToNode", T::Node, 0, R, kMapExplode, C::PickButton)
        .Prompt(IDS_PICK_EXPLODE_SOURCE),
    P(kRecClearNodeList, "recClearNodeList", T::Bool, 1, R, kMapRecord, C::CheckBox)
        .Tip(IDS_TT_CLEAR_NODE_LIST),
    P(kRecWriteTransform, "pb_recWriteTransform", T::Bool, 1, R | kControlDisabled, kMapRecord,
      C::CheckButton)
        .Label(IDS_REC_TRANSFORMATIONS),
    P(kRecWriteDeform, "pb_recWriteDeform", T::Bool, 0, R, kMapRecord, C::CheckButton)
        .Label(IDS_REC_DEFORMATIONS),
    P(kRecWriteTopology, "pb_recWriteTopology", T::Bool, 0, R, kMapRecord, C::CheckButton)
        .Label(IDS_REC_TOPOLOGY),
    P(kVpDeleteObjects, "vpDeleteObjects", T::Bool, 1, R, kMapViewport, C::CheckBox)
        .Tip(IDS_TT_DELETE_OBJECTS),
};
static_assert(std::size(kDefs) == kNumParams);

// Position of each id in declaration order.
constexpr std::array<int, kNumParams> MakeIndex() {
  std::array<int, kNumParams> index{};
  for (int i = 0; i < kNumParams; ++i) index[kDefs[i].id] = i;
  return index;
}
constexpr std::array<int, kNumParams> kIndex = MakeIndex();

constexpr bool EveryIdOnce() {
  std::array<bool, kNumParams> seen{};
  for (const ParamDef& d : kDefs) {
    if (d.id < 0 || d.id >= kNumParams || seen[d.id]) return false;
    seen[d.id] = true;
  }
  return true;
}
static_assert(EveryIdOnce(), "every id from 0 to kNumParams-1 is declared exactly once");

constexpr RolloutDef kRollouts[] = {
    {kMapCacheFile, IDS_ROLLOUT_CACHE_FILE, true}, {kMapFileInfo, IDS_ROLLOUT_FILE_INFO, false},
    {kMapRecord, IDS_ROLLOUT_RECORD, true},        {kMapPlayback, IDS_ROLLOUT_PLAYBACK, true},
    {kMapViewport, IDS_ROLLOUT_VIEWPORT, true},    {kMapGroups, IDS_ROLLOUT_GROUPS, true},
    {kMapExplode, IDS_ROLLOUT_EXPLODE, false},     {kMapAbout, IDS_ROLLOUT_ABOUT, false},
};
static_assert(std::size(kRollouts) == kNumMaps);

}  // namespace

std::span<const ParamDef> ParamDefs() {
  return kDefs;
}

const ParamDef* FindParamDef(int id) {
  if (id < 0 || id >= kNumParams) return nullptr;
  return &kDefs[kIndex[id]];
}

const ParamDef* FindParamByScriptName(std::string_view name) {
  for (const ParamDef& d : kDefs)
    if (d.scriptName == name) return &d;
  return nullptr;
}

std::span<const RolloutDef> Rollouts() {
  return kRollouts;
}
std::span<const int> UnitNames() {
  return kUnitItems;
}
std::span<const int> OutOfRangeNames() {
  return kOrtItems;
}
std::span<const int> StepNames() {
  return kStepItems;
}

}  // namespace kv::param
