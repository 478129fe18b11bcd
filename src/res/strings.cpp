#include "res/strings.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace kv::res {
namespace {

// Kept ascending by id: FindString relies on it (checked by the static_assert below).
constexpr StringEntry kTable[] = {
    {IDS_LIBDESCRIPTION, "Kelvane"},
    {IDS_CATEGORY, "Kelvane"},
    {IDS_CLASS_NAME, "KV Cache"},
    {IDS_INTERNAL_NAME, "KV_Cache"},
    {IDS_ROLLOUT_CACHE_FILE, "Cache File"},
    {IDS_ERR_UNKNOWN_FILE, "Unknown file error."},
    {IDS_ERR_READ_PAST_EOF, "Read past EOF."},
    {IDS_ERR_UNHANDLED_EXCEPTION, "Unhandled exception."},
    {IDS_SELECT_OBJECTS_TO_ADD, "Select objects to add"},
    {IDS_ERR_INVALID_CACHE, "Invalid cache file."},
    {IDS_ERR_CANCELLED, "Operation cancelled."},
    {IDS_ADD, "Add"},
    {IDS_READING_CACHE, "Reading Cache (%i %%) ..."},
    {IDS_LOADING, "Loading ..."},
    {IDS_ANALYZING_SCENE, "Analyzing scene (%i %%) ..."},
    {IDS_ROLLOUT_RECORD, "Record"},
    {IDS_ROLLOUT_PLAYBACK, "Playback"},
    {IDS_WRITING_CACHE, "Writing Cache (%i %%) ..."},
    {IDS_SAVING, "Saving ..."},
    {IDS_UNDO_DELETE_TMP_OBJECTS, "Delete tmp objects"},
    {IDS_WRITE_ERROR, "Write Error!"},
    {IDS_NOTHING_TO_CACHE, "Nothing to cache!"},
    {IDS_ERROR, "Error!"},
    {IDS_CREATING_OBJECTS_PCT, "Creating Objects (%i %%) ..."},
    {IDS_CREATING_OBJECTS, "Creating Objects ..."},
    {IDS_CREATING_ANIMATION_PCT, "Creating Animation (%i %%) ..."},
    {IDS_CREATING_ANIMATION, "Creating Animation ..."},
    {IDS_UNDO_EXPLODE, "Explode To Objects"},
    {IDS_ORT_HIDE, "Hide"},
    {IDS_ORT_HOLD, "Hold"},
    {IDS_ORT_LOOP, "Loop"},
    {IDS_ORT_PINGPONG, "Ping-Pong"},
    {IDS_UNDO_REDUCE_KEYS, "Reduce Keys"},
    {IDS_REDUCING_KEYS_PCT, "Reducing Keys (%i %%) ..."},
    {IDS_ROLLOUT_VIEWPORT, "Viewport / Render"},
    {IDS_REDUCING_KEYS, "Reducing Keys ..."},
    {IDS_PARAM_PLAY_START, "Playback Start"},
    {IDS_PARAM_PLAY_SPEED, "Playback Speed"},
    {IDS_PARAM_PLAY_FRAME, "Playback Frame"},
    {IDS_PARAM_GROUP_FRAMES, "Group Frames"},
    {IDS_TT_SAVE_MATERIAL, "Saves a material library along with the cache file"},
    {IDS_LOAD_STREAM, "Stream"},
    {IDS_LOAD_PER_SAMPLE, "Per-Sample"},
    {IDS_LOAD_PRELOAD, "Pre-Load"},
    {IDS_TT_NEW_CACHE, "Create a new cache file"},
    {IDS_TT_LOAD_CACHE, "Load an existing cache file"},
    {IDS_TT_UNLOAD_CACHE, "Unload the current cache file"},
    {IDS_TT_RELOAD_CACHE, "Reload the current cache file"},
    {IDS_TT_CLEAR_NODE_LIST, "Removes all the nodes from the list after recording"},
    {IDS_UNDO_ADD_NODE, "Add node"},
    {IDS_UNDO_SELECT_MULTIPLE, "Select Multiple"},
    {IDS_UNDO_EMPTY_NODE_LIST, "Empty node list"},
    {IDS_UNDO_REMOVE_NODES, "Remove node(s)"},
    {IDS_TT_DELETE_OBJECTS,
     "Forces invisible elements to be deleted instead of just hidden. This can be useful when "
     "using KV Cache in conjunction with FumeFX. Note that enabling this option has a negative "
     "impact on viewport performance"},
    {IDS_GROUPS_LOAD_CAPTION, "Kelvane Cache - Loading Groups"},
    {IDS_GROUPS_LOAD_INCOMPATIBLE,
     "The element groups stored in this max file could not be loaded because they are "
     "incompatible with this version of the Kelvane Cache plugin."},
    {IDS_UNDO_ADD_GROUP, "Add Group"},
    {IDS_NO_FILE, "<None>"},
    {IDS_FILE_EXISTS, "%s already exists.\nDo you wish to replace it?"},
    {IDS_UNDO_REMOVE_GROUP, "Remove Group"},
    {IDS_UNDO_REMOVE_ALL_GROUPS, "Remove All Groups"},
    {IDS_UNDO_RENAME_GROUP, "Rename Group"},
    {IDS_SAVE_CACHE, "Save Cache"},
    {IDS_UNDO_MOVE_GROUP, "Move Group"},
    {IDS_UNDO_GROUP_MODE, "Group Mode"},
    {IDS_STEP_FRAME, "Frame"},
    {IDS_STEP_HALF, "Half Frame"},
    {IDS_STEP_QUARTER, "1/4 Frame"},
    {IDS_STEP_EIGHTH, "1/8 Frame"},
    {IDS_UNDO_TOGGLE_GROUP, "Toggle Group"},
    {IDS_UNDO_TOGGLE_GROUP_TRIGGER, "Toggle Group Trigger"},
    {IDS_UNDO_GROUP_OFFSET, "Group Offset"},
    {IDS_UNDO_GROUP_BY_AGE, "Group By Age"},
    {IDS_UNDO_GROUP_AGE, "Group Age"},
    {IDS_UNDO_GROUP_BY_DISTANCE, "Group By Distance"},
    {IDS_UNDO_GROUP_DISTANCE, "Group Distance"},
    {IDS_UNDO_GROUP_MATID, "Group MatID"},
    {IDS_UNDO_GROUP_NODES, "Group Nodes"},
    {IDS_UNDO_REMOVE_GROUP_NODES, "Remove Group Nodes"},
    {IDS_UNDO_SELECT_GROUP_NODES, "Select Group Nodes"},
    {IDS_UNDO_SELECT_GROUP, "Select Group"},
    {IDS_MODE_DELETE, "Delete"},
    {IDS_MODE_HOLD_IN, "Hold In"},
    {IDS_MODE_HOLD_OUT, "Hold Out"},
    {IDS_ROLLOUT_GROUPS, "Per-Element Control"},
    {IDS_MODE_OFFSET, "Offset"},
    {IDS_MODE_SET_FRAME, "Set Frame"},
    {IDS_MODE_SET_MATID, "Set Material ID"},
    {IDS_GROUP_RESPECT_ACTIVATION, "Respect Activation"},
    {IDS_GROUP_BY_DISTANCE, "By Distance to Gizmo"},
    {IDS_GROUP_DISTANCE, "Distance :"},
    {IDS_GROUP_BY_AGE, "By Age"},
    {IDS_GROUP_NAME_TITLE, "Group Name"},
    {IDS_ROLLOUT_FILE_INFO, "File Info"},
    {IDS_ERR_NO_SUCH_GROUP, "No group with that name exists"},
    {IDS_ERR_GROUP_MODE_INVALID, "Group mode invalid"},
    {IDS_ERR_INVALID_MODE,
     "Invalid mode, expected one of : #delete, #holdin, #holdout, #delay, #setframe, #setmatid"},
    {IDS_TT_SET_RANGE, "Set to current time range"},
    {IDS_TT_GROUP_ADD, "Add a new group"},
    {IDS_TT_GROUP_REMOVE, "Remove the selected group"},
    {IDS_TT_GROUP_RENAME, "Rename the selected group"},
    {IDS_TT_GROUP_MOVE_UP, "Move the selected group up"},
    {IDS_TT_GROUP_MOVE_DOWN, "Move the selected group down"},
    {IDS_TT_GROUP_SET_ELEMENTS, "Set the elements of the group"},
    {IDS_TT_GROUP_ADD_ELEMENTS, "Add elements to the group"},
    {IDS_TT_GROUP_REMOVE_ELEMENTS, "Remove elements from the group"},
    {IDS_PICK_OMNI, "Pick an Omni light"},
    {IDS_FILE_NOT_FOUND, "File not found."},
    {IDS_ROLLOUT_EXPLODE, "Explode to Objects"},
    {IDS_TT_GROUP_SELECT_ELEMENTS, "Select the elements of the group"},
    {IDS_TT_GROUP_MAKE_UNIQUE, "Remove the elements of the group from every other group"},
    {IDS_ERR_MATID_RANGE, "Material ID out of range (1-99)"},
    {IDS_ERR_CONTROLLER_PARAM,
     "controller parameter must be (an array of) nodes/controllers, got: "},
    {IDS_SUBOBJ_ELEMENTS, "Elements"},
    {IDS_SUBOBJ_GIZMO, "Gizmo"},
    {IDS_CACHE_FILE_FILTER, "Kelvane Cache Files (*.kvc)"},
    {IDS_SELECT_CACHE_FILE, "Select Cache File"},
    {IDS_SPECIFY_CACHE_FILE, "Specify Cache File"},
    {IDS_SET_GROUP_ELEMENTS, "Set Group Elements"},
    {IDS_SELECT_ELEMENTS_BY_NAME, "Select elements by name"},
    {IDS_ABOUT_TITLE, "Kelvane Cache"},
    {IDS_ABOUT_VERSION, "Version 1.3"},
    {IDS_PICK_EXPLODE_SOURCE, "Pick an object to use as source"},
    {IDS_UNDO_SET_RECORD_RANGE, "Set Record Range"},
    {IDS_UNDO_UNLOAD_CACHE, "Unload Cache"},
    {IDS_UNDO_SET_FILENAME, "Set Filename"},
    {IDS_TT_GROUP_ENABLED, "Enable or disable the group"},
    {IDS_TT_RELOAD_MATERIAL,
     "Reloads the material from the cache file. Hold SHIFT to update all objects that use this "
     "cache file"},
    {IDS_ROLLOUT_ABOUT, "About"},
    {IDS_REC_TRANSFORMATIONS, "Record Transformations"},
    {IDS_REC_DEFORMATIONS, "Record Deformations"},
    {IDS_REC_TOPOLOGY, "Record Topology"},
    {IDS_TT_PICK_NODE, "Pick Node"},
    {IDS_TT_ADD_NODE_FROM_LIST, "Add Node From List"},
    {IDS_TT_SELECT_ALL, "Select All"},
    {IDS_TT_INVERT_SELECTED, "Invert Selected"},
    {IDS_TT_REMOVE_SELECTED, "Remove Selected"},
    {IDS_UNIT_INCHES, "Inches"},
    {IDS_UNIT_FEET, "Feet"},
    {IDS_UNIT_MILES, "Miles"},
    {IDS_UNIT_MILLIMETERS, "Milimeters"},
    {IDS_UNIT_CENTIMETERS, "Centimeters"},
    {IDS_UNIT_METERS, "Meters"},
    {IDS_UNIT_KILOMETERS, "Kilometers"},
};

constexpr bool StrictlyAscending() {
  for (std::size_t i = 1; i < std::size(kTable); ++i)
    if (kTable[i - 1].id >= kTable[i].id) return false;
  return true;
}
static_assert(StrictlyAscending(), "string ids must be unique and ascending");

// The one buffer every LoadString shares, as the host's resource loader does.
std::array<char, kLoadBufferSize> g_buffer{};

// Length of the longest prefix of `s` no longer than `max` bytes that ends on a UTF-8 character
// boundary, so a cut text never ends in half a character.
std::size_t CutAtCharBoundary(std::string_view s, std::size_t max) {
  if (s.size() <= max) return s.size();
  std::size_t n = max;
  while (n > 0 && (static_cast<unsigned char>(s[n]) & 0xC0) == 0x80) --n;
  return n;
}

}  // namespace

std::span<const StringEntry> StringTable() {
  return kTable;
}

std::string_view FindString(int id) {
  const auto it = std::lower_bound(std::begin(kTable), std::end(kTable), id,
                                   [](const StringEntry& e, int v) { return e.id < v; });
  if (it == std::end(kTable) || it->id != id) return {};
  return it->text;
}

std::string_view LoadString(int id) {
  const std::string_view text = FindString(id);
  const std::size_t n = CutAtCharBoundary(text, g_buffer.size() - 1);
  if (n) std::memcpy(g_buffer.data(), text.data(), n);
  g_buffer[n] = '\0';
  return {g_buffer.data(), n};
}

}  // namespace kv::res
