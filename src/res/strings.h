// The library's string table: every user-visible text, loaded by id into one shared buffer.
//
// Ids are part of the product (the 3ds Max build keeps the same ids in its resource file), so
// an id is never renumbered or reused. Texts are UTF-8.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace kv::res {

enum StringId : int {
  // Plug-in registration.
  IDS_LIBDESCRIPTION = 1,
  IDS_CATEGORY = 2,
  IDS_CLASS_NAME = 3,
  IDS_INTERNAL_NAME = 4,

  // Rollout titles.
  IDS_ROLLOUT_CACHE_FILE = 5,
  IDS_ROLLOUT_RECORD = 16,
  IDS_ROLLOUT_PLAYBACK = 17,
  IDS_ROLLOUT_VIEWPORT = 35,
  IDS_ROLLOUT_GROUPS = 85,
  IDS_ROLLOUT_FILE_INFO = 94,
  IDS_ROLLOUT_EXPLODE = 109,
  IDS_ROLLOUT_ABOUT = 160,

  // Node list of the Record rollout.
  IDS_SELECT_OBJECTS_TO_ADD = 9,
  IDS_ADD = 12,
  IDS_UNDO_ADD_NODE = 50,
  IDS_UNDO_SELECT_MULTIPLE = 51,
  IDS_UNDO_EMPTY_NODE_LIST = 52,
  IDS_UNDO_REMOVE_NODES = 53,
  IDS_UNDO_SET_RECORD_RANGE = 144,

  // Drop-down items.
  IDS_ORT_HIDE = 29,
  IDS_ORT_HOLD = 30,
  IDS_ORT_LOOP = 31,
  IDS_ORT_PINGPONG = 32,
  IDS_LOAD_STREAM = 42,
  IDS_LOAD_PER_SAMPLE = 43,
  IDS_LOAD_PRELOAD = 44,
  IDS_STEP_FRAME = 66,
  IDS_STEP_HALF = 67,
  IDS_STEP_QUARTER = 68,
  IDS_STEP_EIGHTH = 69,
  IDS_UNIT_INCHES = 2019,
  IDS_UNIT_FEET = 2020,
  IDS_UNIT_MILES = 2021,
  IDS_UNIT_MILLIMETERS = 2022,
  IDS_UNIT_CENTIMETERS = 2023,
  IDS_UNIT_METERS = 2024,
  IDS_UNIT_KILOMETERS = 2025,

  // Cache File rollout.
  IDS_TT_NEW_CACHE = 45,
  IDS_TT_LOAD_CACHE = 46,
  IDS_TT_UNLOAD_CACHE = 47,
  IDS_TT_RELOAD_CACHE = 48,
  IDS_TT_RELOAD_MATERIAL = 156,
  IDS_TT_SET_RANGE = 98,
  IDS_NO_FILE = 58,
  IDS_FILE_EXISTS = 59,
  IDS_SAVE_CACHE = 63,
  IDS_UNDO_UNLOAD_CACHE = 145,
  IDS_UNDO_SET_FILENAME = 146,

  // Per-Element Control rollout tooltips.
  IDS_TT_GROUP_ADD = 99,
  IDS_TT_GROUP_REMOVE = 100,
  IDS_TT_GROUP_RENAME = 101,
  IDS_TT_GROUP_MOVE_UP = 102,
  IDS_TT_GROUP_MOVE_DOWN = 103,
  IDS_TT_GROUP_SET_ELEMENTS = 104,
  IDS_TT_GROUP_ADD_ELEMENTS = 105,
  IDS_TT_GROUP_REMOVE_ELEMENTS = 106,
  IDS_TT_GROUP_SELECT_ELEMENTS = 110,
  IDS_TT_GROUP_MAKE_UNIQUE = 111,
  IDS_TT_GROUP_ENABLED = 150,

  // Pick prompts.
  IDS_PICK_OMNI = 107,
  IDS_PICK_EXPLODE_SOURCE = 127,

  // Cache status.
  IDS_FILE_NOT_FOUND = 108,

  // Record rollout switches and node list buttons.
  IDS_REC_TRANSFORMATIONS = 2004,
  IDS_REC_DEFORMATIONS = 2006,
  IDS_REC_TOPOLOGY = 2008,
  IDS_TT_PICK_NODE = 2009,
  IDS_TT_ADD_NODE_FROM_LIST = 2010,
  IDS_TT_SELECT_ALL = 2011,
  IDS_TT_INVERT_SELECTED = 2012,
  IDS_TT_REMOVE_SELECTED = 2013,

  // Texts without a fixed number of their own, in the free ids.
  IDS_ERR_UNKNOWN_FILE = 6,
  IDS_ERR_READ_PAST_EOF = 7,
  IDS_ERR_UNHANDLED_EXCEPTION = 8,
  IDS_ERR_INVALID_CACHE = 10,
  IDS_ERR_CANCELLED = 11,
  IDS_READING_CACHE = 13,
  IDS_LOADING = 14,
  IDS_ANALYZING_SCENE = 15,
  IDS_WRITING_CACHE = 18,
  IDS_SAVING = 19,
  IDS_UNDO_DELETE_TMP_OBJECTS = 20,
  IDS_WRITE_ERROR = 21,
  IDS_NOTHING_TO_CACHE = 22,
  IDS_ERROR = 23,
  IDS_CREATING_OBJECTS_PCT = 24,
  IDS_CREATING_OBJECTS = 25,
  IDS_CREATING_ANIMATION_PCT = 26,
  IDS_CREATING_ANIMATION = 27,
  IDS_UNDO_EXPLODE = 28,
  IDS_UNDO_REDUCE_KEYS = 33,
  IDS_REDUCING_KEYS_PCT = 34,
  IDS_REDUCING_KEYS = 36,

  IDS_PARAM_PLAY_START = 37,
  IDS_PARAM_PLAY_SPEED = 38,
  IDS_PARAM_PLAY_FRAME = 39,
  IDS_PARAM_GROUP_FRAMES = 40,
  IDS_TT_SAVE_MATERIAL = 41,
  IDS_TT_CLEAR_NODE_LIST = 49,
  IDS_TT_DELETE_OBJECTS = 54,

  IDS_GROUPS_LOAD_CAPTION = 55,
  IDS_GROUPS_LOAD_INCOMPATIBLE = 56,
  IDS_UNDO_ADD_GROUP = 57,
  IDS_UNDO_REMOVE_GROUP = 60,
  IDS_UNDO_REMOVE_ALL_GROUPS = 61,
  IDS_UNDO_RENAME_GROUP = 62,
  IDS_UNDO_MOVE_GROUP = 64,
  IDS_UNDO_GROUP_MODE = 65,
  IDS_UNDO_TOGGLE_GROUP = 70,
  IDS_UNDO_TOGGLE_GROUP_TRIGGER = 71,
  IDS_UNDO_GROUP_OFFSET = 72,
  IDS_UNDO_GROUP_BY_AGE = 73,
  IDS_UNDO_GROUP_AGE = 74,
  IDS_UNDO_GROUP_BY_DISTANCE = 75,
  IDS_UNDO_GROUP_DISTANCE = 76,
  IDS_UNDO_GROUP_MATID = 77,
  IDS_UNDO_GROUP_NODES = 78,
  IDS_UNDO_REMOVE_GROUP_NODES = 79,
  IDS_UNDO_SELECT_GROUP_NODES = 80,
  IDS_UNDO_SELECT_GROUP = 81,

  IDS_MODE_DELETE = 82,
  IDS_MODE_HOLD_IN = 83,
  IDS_MODE_HOLD_OUT = 84,
  IDS_MODE_OFFSET = 86,
  IDS_MODE_SET_FRAME = 87,
  IDS_MODE_SET_MATID = 88,
  IDS_GROUP_RESPECT_ACTIVATION = 89,
  IDS_GROUP_BY_DISTANCE = 90,
  IDS_GROUP_DISTANCE = 91,
  IDS_GROUP_BY_AGE = 92,
  IDS_GROUP_NAME_TITLE = 93,

  IDS_ERR_NO_SUCH_GROUP = 95,
  IDS_ERR_GROUP_MODE_INVALID = 96,
  IDS_ERR_INVALID_MODE = 97,
  IDS_ERR_MATID_RANGE = 112,
  IDS_ERR_CONTROLLER_PARAM = 113,

  IDS_SUBOBJ_ELEMENTS = 114,
  IDS_SUBOBJ_GIZMO = 115,
  IDS_CACHE_FILE_FILTER = 116,
  IDS_SELECT_CACHE_FILE = 117,
  IDS_SPECIFY_CACHE_FILE = 118,
  IDS_SET_GROUP_ELEMENTS = 119,
  IDS_SELECT_ELEMENTS_BY_NAME = 120,
  IDS_ABOUT_TITLE = 121,
  IDS_ABOUT_VERSION = 122,
};

struct StringEntry {
  int id;
  std::string_view text;
};

// The whole table, ascending by id.
std::span<const StringEntry> StringTable();

// The text of `id`, or an empty view when the table has none. Does not touch the shared buffer.
std::string_view FindString(int id);

// Size of the shared load buffer in bytes, terminator included.
inline constexpr std::size_t kLoadBufferSize = 512;

// Copies the text of `id` into the one shared load buffer and returns a view of it, valid until
// the next LoadString. An unknown id yields an empty view and an empty buffer. Texts longer than
// the buffer are cut at a character boundary. Main thread only, like every caller.
std::string_view LoadString(int id);

// LoadString as a string that outlives the next load (undo labels, message boxes).
inline std::string GetString(int id) {
  return std::string(LoadString(id));
}

}  // namespace kv::res
