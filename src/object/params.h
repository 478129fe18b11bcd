// The cache object's parameters as data: one table, read by the parameter block, the rollouts,
// the scripting layer and the 3ds Max binding alike, so that every host sees the same ids,
// names, defaults and limits.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace kv::param {

// Parameter ids. They are stored in saved scenes and used by scripts: never renumber.
enum ParamId : int {
  kIconSize = 0,
  kScaleUnits = 1,
  kNodes = 2,
  kFileName = 3,
  kPlayStart = 4,
  kPlaySpeed = 5,
  kPlayFPS = 6,
  kPlaySpeedSteps = 7,
  kScaleUnitsFrom = 8,
  kScaleUnitsTo = 9,  // its script name is also `scaleUnitsFrom`
  kPlayReverse = 10,
  kPlayUseGraph = 11,
  kPlayFrame = 12,
  kPlayInORT = 13,
  kPlayOutORT = 14,
  kVpWireframe = 15,
  kVpBoxMode = 16,
  kVpInterpolate = 17,
  kVpHideObjects = 18,
  kVpShowMarkers = 19,
  kVpDisplayIcon = 20,
  kVpDisplayCache = 21,
  kRendBoxMode = 22,
  kRendInterpolate = 23,
  kRendApplyMatID = 24,
  kRendMatID = 25,
  kRendDontDelete = 26,
  kRecStart = 27,
  kRecEnd = 28,
  kRecStep = 29,
  kRecSaveMaterial = 30,
  kLoadTypeLocal = 31,
  kLoadTypeSlave = 32,
  kElementFrames = 33,
  kTriggerMode = 34,
  kTriggerOmni = 35,
  kTriggerInteractive = 36,
  kExplodeStart = 37,
  kExplodeEnd = 38,
  kExplodeStep = 39,
  kExplodeReduce = 40,
  kExplodeReduceStep = 41,
  kExplodeReduceThresh = 42,
  kExplodeSelectedOnly = 43,
  kTriggerSteps = 44,
  kExplodeTo = 45,
  kExplodeToNode = 46,
  kRecClearNodeList = 47,
  kRecWriteDeform = 48,
  kRecWriteTransform = 49,
  kRecWriteTopology = 50,
  kVpDeleteObjects = 51,
};
inline constexpr int kNumParams = 52;

// Block identity.
inline constexpr int kBlockId = 0;
inline constexpr std::string_view kBlockName = "params";
inline constexpr int kBlockVersion = 0;

enum class Type : uint8_t {
  Int,
  Float,
  World,  // a float length in scene units
  Bool,   // stored as an int
  FileName,
  Node,
  NodeList,
  FloatList,
};

enum Flag : uint32_t {
  kAnimatable = 1u << 0,
  kResetDefault = 1u << 1,     // returns to its default when a new object is created
  kVariableSize = 1u << 2,     // lists
  kAssetAnimation = 1u << 3,   // registered with asset tracking as an animation asset
  kNotScriptable = 1u << 4,    // scripts cannot set it
  kTrackViewWhole = 1u << 5,   // shown whole in the track view
  kControlDisabled = 1u << 6,  // its control starts disabled
  kHasLimits = 1u << 7,
};

enum class Control : uint8_t {
  None,
  SpinnerFloat,
  SpinnerInt,
  SpinnerWorld,
  DropDown,
  CheckBox,
  CheckButton,
  Radio,
  PickButton,
};

// Rollout map ids; kMapNone means the parameter has no control.
enum Map : int8_t {
  kMapNone = -1,
  kMapCacheFile = 0,
  kMapFileInfo = 1,
  kMapRecord = 2,
  kMapPlayback = 3,
  kMapViewport = 4,
  kMapGroups = 5,
  kMapExplode = 6,
  kMapAbout = 7,
};
inline constexpr int kNumMaps = 8;

struct ParamDef {
  int id;
  std::string_view scriptName;
  Type type;
  double def;     // numeric default (bool: 0 or 1); unused by strings, nodes and lists
  double lo, hi;  // limits, meaningful with kHasLimits
  uint32_t flags;
  Map map;
  Control control;
  std::span<const int> items;    // drop-down item texts (string ids), in value order
  std::span<const int> enables;  // ids of parameters whose controls this check box enables
  int radioCount;                // radio buttons: values 0 .. radioCount-1
  float spinnerStep;             // 0: the host's automatic step
  int displayNameId;             // string id of the display name; 0: empty name
  int tooltipId;                 // string id; 0: none
  int labelId;                   // check button caption (string id); 0: none
  int promptId;                  // pick button prompt (string id); 0: none

  constexpr bool Animatable() const { return flags & kAnimatable; }
  constexpr bool HasLimits() const { return flags & kHasLimits; }
  constexpr bool IsNumeric() const {
    return type == Type::Int || type == Type::Float || type == Type::World || type == Type::Bool;
  }
  constexpr bool IsIntLike() const { return type == Type::Int || type == Type::Bool; }
};

// Every parameter in declaration order (which is id order except that `scaleUnits` follows
// `playFrame` and id 49 precedes id 48).
std::span<const ParamDef> ParamDefs();

// The definition of `id`, or null for an unknown id.
const ParamDef* FindParamDef(int id);

// The first parameter in declaration order whose script name is `name` (case-sensitive), or
// null. `scaleUnitsFrom` therefore always reaches id 8, never id 9.
const ParamDef* FindParamByScriptName(std::string_view name);

struct RolloutDef {
  Map map;
  int titleId;  // string id
  bool open;    // initially open
};
std::span<const RolloutDef> Rollouts();

// Drop-down lists shared by several parameters, as string ids in value order.
std::span<const int> UnitNames();        // values of `scaleUnitsFrom` (ids 8 and 9)
std::span<const int> OutOfRangeNames();  // values of `playInORT` / `playOutORT`
std::span<const int> StepNames();        // values of `playSpeedSteps` / `triggerSteps`

// Out-of-range types.
enum ORT : int { kOrtHide = 0, kOrtHold = 1, kOrtLoop = 2, kOrtPingPong = 3 };

// Suffix of the computed names of `elementFrames` entries.
inline constexpr std::string_view kElementFrameSuffix = "_Frame";

}  // namespace kv::param
