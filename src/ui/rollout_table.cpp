#include "ui/rollout_table.h"

#include <array>

#include "object/params.h"
#include "res/control_ids.h"
#include "res/strings.h"

namespace kv::ui {
namespace {

using namespace kv::res;
namespace P = kv::param;

// A control under construction; the modifiers keep the table one line per control.
struct Row : ControlDef {
  constexpr Row Bind(int p) const {
    Row r = *this;
    r.param = p;
    return r;
  }
  constexpr Row Value(int v) const {
    Row r = *this;
    r.value = v;
    return r;
  }
  constexpr Row Tip(int i) const {
    Row r = *this;
    r.tooltipId = i;
    return r;
  }
  constexpr Row Text(int i) const {
    Row r = *this;
    r.textId = i;
    return r;
  }
  constexpr Row Items(std::span<const int> s) const {
    Row r = *this;
    r.items = s;
    return r;
  }
  constexpr Row Buddy(int i) const {
    Row r = *this;
    r.buddy = i;
    return r;
  }
  constexpr Row Anchored(uint8_t a) const {
    Row r = *this;
    r.anchor = a;
    return r;
  }
};

constexpr Row C(int id, Kind k, std::string_view caption, int x, int y, int w, int h) {
  return Row{{id,
              k,
              caption,
              0,
              static_cast<int16_t>(x),
              static_cast<int16_t>(y),
              static_cast<int16_t>(w),
              static_cast<int16_t>(h),
              -1,
              0,
              0,
              {},
              0,
              kAnchorTopLeft}};
}
constexpr Row Label(std::string_view caption, int x, int y, int w = 44) {
  return C(IDC_STATIC, Kind::Static, caption, x, y, w, 8);
}
constexpr Row Group(std::string_view caption, int x, int y, int w, int h) {
  return C(IDC_STATIC, Kind::GroupBox, caption, x, y, w, h);
}
constexpr Row Check(int id, std::string_view caption, int x, int y, int w = 96) {
  return C(id, Kind::CheckBox, caption, x, y, w, 10);
}
// A spinner with its edit: the edit at x, the spinner right of it.
constexpr Row Edit(int id, int spin, int x, int y, int w = 40) {
  return C(id, Kind::Edit, "", x, y, w, 10).Buddy(spin);
}
constexpr Row Spin(int id, int edit, int x, int y) {
  return C(id, Kind::Spinner, "", x, y, 8, 10).Buddy(edit);
}

constexpr int kModeItems[] = {IDS_MODE_DELETE, IDS_MODE_HOLD_IN,   IDS_MODE_HOLD_OUT,
                              IDS_MODE_OFFSET, IDS_MODE_SET_FRAME, IDS_MODE_SET_MATID};

// ---- Cache File (template 101)
constexpr ControlDef kCacheFile[] = {
    Label("File :", 4, 5, 22),
    C(IDC_FILE_NAME, Kind::Status, "", 28, 4, 76, 10),
    Label("Status :", 4, 17, 24),
    C(IDC_STATUS, Kind::Status, "", 28, 16, 76, 10),
    C(IDC_NEW, Kind::Button, "New..", 4, 29, 19, 19).Tip(IDS_TT_NEW_CACHE),
    C(IDC_LOAD, Kind::Button, "Load..", 24, 29, 19, 19).Tip(IDS_TT_LOAD_CACHE),
    C(IDC_UNLOAD, Kind::Button, "Unload", 44, 29, 19, 19).Tip(IDS_TT_UNLOAD_CACHE),
    C(IDC_RELOAD, Kind::Button, "Reload", 64, 29, 19, 19).Tip(IDS_TT_RELOAD_CACHE),
    C(IDC_RELOAD_MATERIAL, Kind::Button, "Reload Material", 84, 29, 19, 19)
        .Tip(IDS_TT_RELOAD_MATERIAL),
};

// ---- File Info (template 109)
constexpr ControlDef kFileInfo[] = {
    Label("File Size :", 4, 5),  C(IDC_INFO_FILE_SIZE, Kind::Status, "", 50, 4, 54, 10),
    Label("Mesh :", 4, 16),      C(IDC_INFO_MESH, Kind::Status, "", 50, 15, 54, 10),
    Label("Animation :", 4, 27), C(IDC_INFO_ANIMATION, Kind::Status, "", 50, 26, 54, 10),
    Label("Frames :", 4, 38),    C(IDC_INFO_FRAMES, Kind::Status, "", 50, 37, 54, 10),
    Label("Step Size :", 4, 49), C(IDC_INFO_STEP, Kind::Status, "", 50, 48, 54, 10),
    Label("FrameRate :", 4, 60), C(IDC_INFO_FRAME_RATE, Kind::Status, "", 50, 59, 54, 10),
    Label("Nodes :", 4, 71),     C(IDC_INFO_NODES, Kind::Status, "", 50, 70, 54, 10),
};

// ---- Record (template 103)
constexpr ControlDef kRecord[] = {
    C(IDC_REC_TRANSFORM, Kind::CheckButton, "", 4, 4, 33, 33)
        .Bind(P::kRecWriteTransform)
        .Tip(IDS_REC_TRANSFORMATIONS),
    C(IDC_REC_DEFORM, Kind::CheckButton, "", 38, 4, 33, 33)
        .Bind(P::kRecWriteDeform)
        .Tip(IDS_REC_DEFORMATIONS),
    C(IDC_REC_TOPOLOGY, Kind::CheckButton, "", 72, 4, 33, 33)
        .Bind(P::kRecWriteTopology)
        .Tip(IDS_REC_TOPOLOGY),
    Label("Start :", 4, 42, 28),
    Edit(IDC_REC_START_EDIT, IDC_REC_START_SPIN, 34, 41).Bind(P::kRecStart),
    Spin(IDC_REC_START_SPIN, IDC_REC_START_EDIT, 74, 41).Bind(P::kRecStart),
    Label("End :", 4, 54, 28),
    Edit(IDC_REC_END_EDIT, IDC_REC_END_SPIN, 34, 53).Bind(P::kRecEnd),
    Spin(IDC_REC_END_SPIN, IDC_REC_END_EDIT, 74, 53).Bind(P::kRecEnd),
    Label("Step :", 4, 66, 28),
    Edit(IDC_REC_STEP_EDIT, IDC_REC_STEP_SPIN, 34, 65).Bind(P::kRecStep),
    Spin(IDC_REC_STEP_SPIN, IDC_REC_STEP_EDIT, 74, 65).Bind(P::kRecStep),
    C(IDC_REC_RANGE, Kind::Button, "Rng", 86, 41, 18, 22).Tip(IDS_TT_SET_RANGE),
    C(IDC_REC_PICK, Kind::CheckButton, "Pick", 4, 80, 16, 16).Tip(IDS_TT_PICK_NODE),
    C(IDC_REC_ADD, Kind::Button, "Add..", 21, 80, 16, 16).Tip(IDS_TT_ADD_NODE_FROM_LIST),
    C(IDC_REC_REMOVE, Kind::Button, "Remove", 38, 80, 16, 16).Tip(IDS_TT_REMOVE_SELECTED),
    C(IDC_REC_ALL, Kind::Button, "All", 55, 80, 16, 16).Tip(IDS_TT_SELECT_ALL),
    C(IDC_REC_NONE, Kind::Button, "None", 72, 80, 16, 16),
    C(IDC_REC_INVERT, Kind::Button, "Invert", 89, 80, 16, 16).Tip(IDS_TT_INVERT_SELECTED),
    C(IDC_REC_NODE_LIST, Kind::ListBox, "", 4, 98, 100, 60).Bind(P::kNodes),
    Check(IDC_REC_SAVE_MATERIAL, "Save Material Library", 4, 161)
        .Bind(P::kRecSaveMaterial)
        .Tip(IDS_TT_SAVE_MATERIAL),
    Check(IDC_REC_CLEAR_NODE_LIST, "Empty Node List", 4, 173)
        .Bind(P::kRecClearNodeList)
        .Tip(IDS_TT_CLEAR_NODE_LIST),
    C(IDC_REC_RECORD, Kind::Button, "Record", 4, 186, 100, 14),
};

// ---- Playback (template 104)
constexpr ControlDef kPlayback[] = {
    Group("Start / Speed", 2, 2, 104, 68),
    C(IDC_PLAY_START_LABEL, Kind::Static, "Start Frame :", 6, 12, 44, 8),
    Edit(IDC_PLAY_START_EDIT, IDC_PLAY_START_SPIN, 52, 11).Bind(P::kPlayStart),
    Spin(IDC_PLAY_START_SPIN, IDC_PLAY_START_EDIT, 92, 11).Bind(P::kPlayStart),
    C(IDC_PLAY_SPEED_LABEL, Kind::Static, "Speed :", 6, 24, 44, 8),
    Edit(IDC_PLAY_SPEED_EDIT, IDC_PLAY_SPEED_SPIN, 52, 23).Bind(P::kPlaySpeed),
    Spin(IDC_PLAY_SPEED_SPIN, IDC_PLAY_SPEED_EDIT, 92, 23).Bind(P::kPlaySpeed),
    C(IDC_PLAY_FPS_LABEL, Kind::Static, "FPS :", 6, 36, 44, 8),
    Edit(IDC_PLAY_FPS_EDIT, IDC_PLAY_FPS_SPIN, 52, 35).Bind(P::kPlayFPS),
    Spin(IDC_PLAY_FPS_SPIN, IDC_PLAY_FPS_EDIT, 92, 35).Bind(P::kPlayFPS),
    C(IDC_PLAY_SAMPLE_LABEL, Kind::Static, "Sample :", 6, 48, 44, 8),
    C(IDC_PLAY_SAMPLE, Kind::DropDown, "", 52, 47, 48, 60).Bind(P::kPlaySpeedSteps),
    Check(IDC_PLAY_REVERSE, "Reverse Playback", 6, 58).Bind(P::kPlayReverse),
    Group("Playback Graph", 2, 72, 104, 20),
    Check(IDC_PLAY_USE_GRAPH, "     Frame :", 6, 80, 44).Bind(P::kPlayUseGraph),
    Edit(IDC_PLAY_FRAME_EDIT, IDC_PLAY_FRAME_SPIN, 52, 80).Bind(P::kPlayFrame),
    Spin(IDC_PLAY_FRAME_SPIN, IDC_PLAY_FRAME_EDIT, 92, 80).Bind(P::kPlayFrame),
    Group("Element Activation", 2, 94, 104, 76),
    C(IDC_TRIGGER_DISABLED, Kind::Radio, "Disabled", 6, 104, 90, 10).Bind(P::kTriggerMode).Value(0),
    C(IDC_TRIGGER_GIZMO, Kind::Radio, "By Gizmo", 6, 116, 90, 10).Bind(P::kTriggerMode).Value(1),
    C(IDC_TRIGGER_OMNI, Kind::Radio, "By OmniLight :", 6, 128, 50, 10)
        .Bind(P::kTriggerMode)
        .Value(2),
    C(IDC_TRIGGER_PICK, Kind::PickButton, "Pick Object..", 56, 127, 46, 12).Bind(P::kTriggerOmni),
    Check(IDC_TRIGGER_INTERACTIVE, "Interactive Updates", 6, 142).Bind(P::kTriggerInteractive),
    C(IDC_TRIGGER_UPDATE, Kind::Button, "Update Now", 6, 154, 44, 12),
    C(IDC_TRIGGER_SAMPLE_LABEL, Kind::Static, "Sample :", 52, 156, 24, 8),
    C(IDC_TRIGGER_SAMPLE, Kind::DropDown, "", 76, 155, 26, 60).Bind(P::kTriggerSteps),
    Group("Scale :", 2, 172, 104, 44),
    Label("Scale :", 6, 182),
    Edit(IDC_SCALE_EDIT, IDC_SCALE_SPIN, 52, 181).Bind(P::kScaleUnits),
    Spin(IDC_SCALE_SPIN, IDC_SCALE_EDIT, 92, 181).Bind(P::kScaleUnits),
    Label("From :", 6, 195, 28),
    C(IDC_UNITS_FROM, Kind::DropDown, "", 36, 193, 66, 80).Bind(P::kScaleUnitsFrom),
    Label("To :", 6, 207, 28),
    C(IDC_UNITS_TO, Kind::DropDown, "", 36, 205, 66, 80).Bind(P::kScaleUnitsTo),
    Group("Out Of Range Types", 2, 218, 104, 32),
    Label("Before :", 6, 228, 32),
    C(IDC_ORT_BEFORE, Kind::DropDown, "", 40, 226, 62, 60).Bind(P::kPlayInORT),
    Label("After :", 6, 240, 32),
    C(IDC_ORT_AFTER, Kind::DropDown, "", 40, 238, 62, 60).Bind(P::kPlayOutORT),
    Group("Animation Load Type", 2, 252, 104, 32),
    Label("Local :", 6, 262, 32),
    C(IDC_LOAD_LOCAL, Kind::DropDown, "", 40, 260, 62, 60).Bind(P::kLoadTypeLocal),
    Label("Slave :", 6, 274, 32),
    C(IDC_LOAD_SLAVE, Kind::DropDown, "", 40, 272, 62, 60).Bind(P::kLoadTypeSlave),
};

// ---- Viewport / Render (template 102)
constexpr ControlDef kViewport[] = {
    Group("Icon", 2, 2, 104, 20),
    Check(IDC_VP_ICON, " Icon", 6, 10, 40).Bind(P::kVpDisplayIcon),
    Label("Size :", 48, 11, 20),
    Edit(IDC_VP_ICON_SIZE_EDIT, IDC_VP_ICON_SIZE_SPIN, 68, 10, 26).Bind(P::kIconSize),
    Spin(IDC_VP_ICON_SIZE_SPIN, IDC_VP_ICON_SIZE_EDIT, 94, 10).Bind(P::kIconSize),
    Group("Viewport", 2, 24, 104, 56),
    Check(IDC_VP_DISPLAY_CACHE, "Display Cache", 6, 33).Bind(P::kVpDisplayCache),
    Check(IDC_VP_WIREFRAME, "Force Wireframe", 6, 45).Bind(P::kVpWireframe),
    Check(IDC_VP_BOX_MODE, "Bounding Boxes", 6, 57).Bind(P::kVpBoxMode),
    Check(IDC_VP_INTERPOLATE, "Interpolate", 6, 69).Bind(P::kVpInterpolate),
    C(IDC_VP_INVISIBLE_GROUP, Kind::GroupBox, "Invisible Objects", 2, 82, 104, 44),
    Check(IDC_VP_HIDE_FACES, "Hide Faces", 6, 91).Bind(P::kVpHideObjects),
    Check(IDC_VP_DELETE_FACES, "Delete Faces", 6, 103)
        .Bind(P::kVpDeleteObjects)
        .Tip(IDS_TT_DELETE_OBJECTS),
    Check(IDC_VP_MARKERS, "Draw Markers", 6, 115).Bind(P::kVpShowMarkers),
    Group("Render", 2, 128, 104, 68),
    Check(IDC_REND_BOX_MODE, "Bounding Boxes", 6, 137).Bind(P::kRendBoxMode),
    Check(IDC_REND_INTERPOLATE, "Interpolate", 6, 149).Bind(P::kRendInterpolate),
    Group("Invisible Objects", 4, 160, 100, 34),
    Check(IDC_REND_DONT_DELETE, "Don't Delete", 8, 169, 92).Bind(P::kRendDontDelete),
    Check(IDC_REND_APPLY_MATID, "Set Mat ID:", 8, 181, 50).Bind(P::kRendApplyMatID),
    Edit(IDC_REND_MATID_EDIT, IDC_REND_MATID_SPIN, 60, 181, 30).Bind(P::kRendMatID),
    Spin(IDC_REND_MATID_SPIN, IDC_REND_MATID_EDIT, 90, 181).Bind(P::kRendMatID),
};

// ---- Per-Element Control (template 106). Its controls show the selected group, not
// parameters, except the frame spinner, which shows that group's `elementFrames` entry.
constexpr ControlDef kGroups[] = {
    C(IDC_GROUP_LIST, Kind::ListBox, "", 4, 4, 100, 60),
    C(IDC_GROUP_ADD, Kind::Button, "Add", 4, 66, 19, 14).Tip(IDS_TT_GROUP_ADD),
    C(IDC_GROUP_REMOVE, Kind::Button, "Remove", 24, 66, 19, 14).Tip(IDS_TT_GROUP_REMOVE),
    C(IDC_GROUP_RENAME, Kind::Button, "Rename", 44, 66, 19, 14).Tip(IDS_TT_GROUP_RENAME),
    C(IDC_GROUP_UP, Kind::Button, "Up", 64, 66, 19, 14).Tip(IDS_TT_GROUP_MOVE_UP),
    C(IDC_GROUP_DOWN, Kind::Button, "Down", 84, 66, 19, 14).Tip(IDS_TT_GROUP_MOVE_DOWN),
    C(IDC_GROUP_ENABLED, Kind::CheckButton, "Enabled", 4, 84, 48, 12).Tip(IDS_TT_GROUP_ENABLED),
    C(IDC_GROUP_MODE, Kind::DropDown, "", 54, 84, 50, 80).Items(kModeItems),
    Check(IDC_GROUP_TRIGGER, "", 4, 98).Text(IDS_GROUP_RESPECT_ACTIVATION),
    C(IDC_GROUP_OFFSET_LABEL, Kind::Static, "Offset :", 4, 112, 44, 8),
    Edit(IDC_GROUP_OFFSET_EDIT, IDC_GROUP_OFFSET_SPIN, 52, 111),
    Spin(IDC_GROUP_OFFSET_SPIN, IDC_GROUP_OFFSET_EDIT, 92, 111),
    C(IDC_GROUP_FRAME_LABEL, Kind::Static, "Frame :", 4, 124, 44, 8),
    Edit(IDC_GROUP_FRAME_EDIT, IDC_GROUP_FRAME_SPIN, 52, 123).Bind(P::kElementFrames),
    Spin(IDC_GROUP_FRAME_SPIN, IDC_GROUP_FRAME_EDIT, 92, 123).Bind(P::kElementFrames),
    C(IDC_GROUP_MATID_LABEL, Kind::Static, "Material ID :", 4, 136, 44, 8),
    Edit(IDC_GROUP_MATID_EDIT, IDC_GROUP_MATID_SPIN, 52, 135),
    Spin(IDC_GROUP_MATID_SPIN, IDC_GROUP_MATID_EDIT, 92, 135),
    Check(IDC_GROUP_BY_AGE, "", 4, 149, 46).Text(IDS_GROUP_BY_AGE),
    Edit(IDC_GROUP_AGE_EDIT, IDC_GROUP_AGE_SPIN, 52, 149),
    Spin(IDC_GROUP_AGE_SPIN, IDC_GROUP_AGE_EDIT, 92, 149),
    Check(IDC_GROUP_BY_DISTANCE, "", 4, 161).Text(IDS_GROUP_BY_DISTANCE),
    C(IDC_GROUP_DISTANCE_LABEL, Kind::Static, "", 4, 174, 44, 8).Text(IDS_GROUP_DISTANCE),
    Edit(IDC_GROUP_DISTANCE_EDIT, IDC_GROUP_DISTANCE_SPIN, 52, 173),
    Spin(IDC_GROUP_DISTANCE_SPIN, IDC_GROUP_DISTANCE_EDIT, 92, 173),
    C(IDC_GROUP_SET_ELEMENTS, Kind::Button, "Set", 4, 188, 19, 14).Tip(IDS_TT_GROUP_SET_ELEMENTS),
    C(IDC_GROUP_ADD_ELEMENTS, Kind::Button, "Add", 24, 188, 19, 14).Tip(IDS_TT_GROUP_ADD_ELEMENTS),
    C(IDC_GROUP_REMOVE_ELEMENTS, Kind::Button, "Remove", 44, 188, 19, 14)
        .Tip(IDS_TT_GROUP_REMOVE_ELEMENTS),
    C(IDC_GROUP_SELECT_ELEMENTS, Kind::Button, "Select", 64, 188, 19, 14)
        .Tip(IDS_TT_GROUP_SELECT_ELEMENTS),
    C(IDC_GROUP_MAKE_UNIQUE, Kind::Button, "Unique", 84, 188, 19, 14).Tip(IDS_TT_GROUP_MAKE_UNIQUE),
};

// ---- Explode to Objects (template 110)
constexpr ControlDef kExplode[] = {
    Label("Start :", 4, 5, 28),
    Edit(IDC_EXP_START_EDIT, IDC_EXP_START_SPIN, 34, 4).Bind(P::kExplodeStart),
    Spin(IDC_EXP_START_SPIN, IDC_EXP_START_EDIT, 74, 4).Bind(P::kExplodeStart),
    Label("End :", 4, 17, 28),
    Edit(IDC_EXP_END_EDIT, IDC_EXP_END_SPIN, 34, 16).Bind(P::kExplodeEnd),
    Spin(IDC_EXP_END_SPIN, IDC_EXP_END_EDIT, 74, 16).Bind(P::kExplodeEnd),
    C(IDC_EXP_RANGE, Kind::Button, "Rng", 86, 4, 18, 22).Tip(IDS_TT_SET_RANGE),
    Label("Step :", 4, 29, 28),
    Edit(IDC_EXP_STEP_EDIT, IDC_EXP_STEP_SPIN, 34, 28).Bind(P::kExplodeStep),
    Spin(IDC_EXP_STEP_SPIN, IDC_EXP_STEP_EDIT, 74, 28).Bind(P::kExplodeStep),
    Check(IDC_EXP_SELECTED_ONLY, "Selected Only", 4, 41).Bind(P::kExplodeSelectedOnly),
    Group("Explode To", 2, 53, 104, 56),
    C(IDC_EXP_TO_ORIGINAL, Kind::Radio, "Original Objects", 6, 62, 90, 10)
        .Bind(P::kExplodeTo)
        .Value(0),
    C(IDC_EXP_TO_BOXES, Kind::Radio, "Bounding Boxes", 6, 74, 90, 10).Bind(P::kExplodeTo).Value(1),
    C(IDC_EXP_TO_POINTS, Kind::Radio, "Point Helpers", 6, 86, 90, 10).Bind(P::kExplodeTo).Value(2),
    C(IDC_EXP_TO_CUSTOM, Kind::Radio, "Custom :", 6, 98, 40, 10).Bind(P::kExplodeTo).Value(3),
    C(IDC_EXP_PICK, Kind::PickButton, "Pick Object..", 48, 97, 54, 12).Bind(P::kExplodeToNode),
    Group("Key Reduction", 2, 111, 104, 44),
    Check(IDC_EXP_REDUCE, "Reduce Keys", 6, 120).Bind(P::kExplodeReduce),
    C(IDC_EXP_REDUCE_STEP_LABEL, Kind::Static, "Step :", 6, 133, 44, 8),
    Edit(IDC_EXP_REDUCE_STEP_EDIT, IDC_EXP_REDUCE_STEP_SPIN, 52, 132).Bind(P::kExplodeReduceStep),
    Spin(IDC_EXP_REDUCE_STEP_SPIN, IDC_EXP_REDUCE_STEP_EDIT, 92, 132).Bind(P::kExplodeReduceStep),
    C(IDC_EXP_THRESH_LABEL, Kind::Static, "Threshold :", 6, 145, 44, 8),
    Edit(IDC_EXP_THRESH_EDIT, IDC_EXP_THRESH_SPIN, 52, 144).Bind(P::kExplodeReduceThresh),
    Spin(IDC_EXP_THRESH_SPIN, IDC_EXP_THRESH_EDIT, 92, 144).Bind(P::kExplodeReduceThresh),
    C(IDC_EXP_EXPLODE, Kind::Button, "Explode", 4, 159, 100, 14),
};

// ---- About (template 111)
constexpr ControlDef kAbout[] = {
    C(IDC_ABOUT_TITLE, Kind::Static, "", 4, 4, 100, 8).Text(IDS_ABOUT_TITLE),
    C(IDC_ABOUT_VERSION, Kind::Static, "", 4, 14, 100, 8).Text(IDS_ABOUT_VERSION),
    C(IDC_ABOUT_CREDITS, Kind::Static, "Rigid-body animation caching and playback", 4, 26, 100, 16),
};

constexpr DialogDef kRollouts[] = {
    {P::kMapCacheFile, IDS_ROLLOUT_CACHE_FILE, IDD_CACHE_FILE, true, "kvCacheDlgProc_main", 108, 52,
     false, kCacheFile},
    {P::kMapFileInfo, IDS_ROLLOUT_FILE_INFO, IDD_FILE_INFO, false, "", 108, 84, false, kFileInfo},
    {P::kMapRecord, IDS_ROLLOUT_RECORD, IDD_RECORD, true, "kvCacheDlgProc_writer", 108, 204, false,
     kRecord},
    {P::kMapPlayback, IDS_ROLLOUT_PLAYBACK, IDD_PLAYBACK, true, "kvCacheDlgProc_reader", 108, 288,
     false, kPlayback},
    {P::kMapViewport, IDS_ROLLOUT_VIEWPORT, IDD_VIEWPORT, true, "", 108, 200, false, kViewport},
    {P::kMapGroups, IDS_ROLLOUT_GROUPS, IDD_GROUPS, true, "kvCacheDlgProc_groups", 108, 206, false,
     kGroups},
    {P::kMapExplode, IDS_ROLLOUT_EXPLODE, IDD_EXPLODE, false, "kvCacheDlgProc_explode", 108, 177,
     false, kExplode},
    {P::kMapAbout, IDS_ROLLOUT_ABOUT, IDD_ABOUT, false, "", 108, 46, false, kAbout},
};
static_assert(std::size(kRollouts) == P::kNumMaps);

constexpr bool InMapOrder() {
  for (int i = 0; i < P::kNumMaps; ++i)
    if (kRollouts[i].map != i) return false;
  return true;
}
static_assert(InMapOrder(), "rollouts are listed by map index");

// ---- element list dialog (template 108): the list grows with the window; the buttons and
// the filter keep their distance to the right and bottom edges.
constexpr uint8_t kRightTop = kAnchorRight | kAnchorTop;
constexpr uint8_t kRightBottom = kAnchorRight | kAnchorBottom;
constexpr uint8_t kAll = kAnchorLeft | kAnchorTop | kAnchorRight | kAnchorBottom;
constexpr ControlDef kElementList[] = {
    C(IDC_ELEM_LABEL, Kind::Static, "", 6, 6, 110, 8),
    C(IDC_ELEM_LIST, Kind::ListBox, "", 6, 16, 110, 130).Anchored(kAll),
    C(IDC_ELEM_FILTER, Kind::Edit2, "", 6, 150, 110, 12)
        .Anchored(kAnchorLeft | kAnchorRight | kAnchorBottom),
    C(IDC_ELEM_ALL, Kind::Button, "All", 122, 16, 32, 14).Anchored(kRightTop),
    C(IDC_ELEM_NONE, Kind::Button, "None", 122, 32, 32, 14).Anchored(kRightTop),
    C(IDC_ELEM_INVERT, Kind::Button, "Invert", 122, 48, 32, 14).Anchored(kRightTop),
    C(IDOK, Kind::Button, "OK", 122, 132, 32, 14).Anchored(kRightBottom),
    C(IDCANCEL, Kind::Button, "Cancel", 122, 148, 32, 14).Anchored(kRightBottom),
};
constexpr DialogDef kElementListDialog = {
    -1, IDS_SET_GROUP_ELEMENTS, IDD_ELEMENT_LIST, true, "", 160, 168, true, kElementList};

}  // namespace

std::string ControlDef::Caption() const {
  return textId ? res::GetString(textId) : std::string(caption);
}

const ControlDef* DialogDef::Find(int id) const {
  if (id == IDC_STATIC) return nullptr;
  for (const ControlDef& c : controls)
    if (c.id == id) return &c;
  return nullptr;
}

std::span<const DialogDef> RolloutDefs() {
  return kRollouts;
}

const DialogDef& ElementListDialogDef() {
  return kElementListDialog;
}

const DialogDef* FindDialog(int templateId) {
  for (const DialogDef& d : kRollouts)
    if (d.templateId == templateId) return &d;
  return templateId == IDD_ELEMENT_LIST ? &kElementListDialog : nullptr;
}

const ControlDef* FindRolloutControl(int id, int* map) {
  for (const DialogDef& d : kRollouts) {
    if (const ControlDef* c = d.Find(id)) {
      if (map) *map = d.map;
      return c;
    }
  }
  return nullptr;
}

std::string_view KindName(Kind k) {
  switch (k) {
    case Kind::Static:
      return "static";
    case Kind::GroupBox:
      return "group";
    case Kind::Status:
      return "status";
    case Kind::Button:
      return "button";
    case Kind::CheckButton:
      return "check button";
    case Kind::CheckBox:
      return "check box";
    case Kind::Radio:
      return "radio";
    case Kind::Edit:
      return "edit";
    case Kind::Spinner:
      return "spinner";
    case Kind::DropDown:
      return "drop-down";
    case Kind::ListBox:
      return "list";
    case Kind::PickButton:
      return "pick button";
    case Kind::Edit2:
      return "edit";
  }
  return "?";
}

}  // namespace kv::ui
