// The rollouts and dialogs as data: every rollout's map index, title, template and initial
// state, and every control's id, kind, caption, place, bound parameter, tooltip and drop-down
// items. The panel model reads this table, and the 3ds Max binding generates its dialog
// templates and parameter maps from it, so a layout exists once.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kv::ui {

enum class Kind : uint8_t {
  Static,       // a label
  GroupBox,     // a frame with a caption around related controls
  Status,       // a read-only custom status field
  Button,       // a custom push button
  CheckButton,  // a custom button that stays pressed
  CheckBox,
  Radio,    // one button of a radio group; `value` is the parameter value it stands for
  Edit,     // the text of a spinner (its `buddy`)
  Spinner,  // a number; `buddy` is its edit
  DropDown,
  ListBox,     // multiple selection
  PickButton,  // a custom button that picks a scene node into its parameter
  Edit2,       // a plain edit field with no spinner (the element filter)
};

// Which edges of the dialog a control keeps its distance to when a resizable dialog is sized.
enum Anchor : uint8_t {
  kAnchorLeft = 1,
  kAnchorTop = 2,
  kAnchorRight = 4,
  kAnchorBottom = 8,
  kAnchorTopLeft = kAnchorLeft | kAnchorTop,
};

struct ControlDef {
  int id;  // res::IDC_STATIC for labels nothing addresses
  Kind kind;
  std::string_view caption;    // the template's own text; empty when textId gives it
  int textId;                  // caption from the string table (0: `caption`)
  int16_t x, y, w, h;          // place in dialog units inside the rollout
  int param;                   // bound parameter id (-1: none)
  int value;                   // radio: the parameter value this button stands for
  int tooltipId;               // 0: none
  std::span<const int> items;  // drop-down texts (string ids); empty: the parameter's items
  int buddy;                   // spinner <-> edit partner id (0: none)
  uint8_t anchor;              // resizable dialogs only

  // The caption as shown: the string table text when textId is set.
  std::string Caption() const;
};

struct DialogDef {
  int map;                // parameter map index of a rollout; -1 for a modal dialog
  int titleId;            // string id
  int templateId;         // res::IDD_...
  bool open;              // rollouts: open when first shown
  std::string_view proc;  // its own dialog procedure, empty when the binding does everything
  int16_t width, height;  // dialog units
  bool resizable;
  std::span<const ControlDef> controls;

  const ControlDef* Find(int id) const;
};

// The eight rollouts in map order (index = map).
std::span<const DialogDef> RolloutDefs();
// The element list dialog (template 108).
const DialogDef& ElementListDialogDef();
// The rollout or dialog by template id, or null.
const DialogDef* FindDialog(int templateId);
// A control of any rollout by id, or null; `map` receives its rollout's map when not null.
const ControlDef* FindRolloutControl(int id, int* map = nullptr);

std::string_view KindName(Kind k);

}  // namespace kv::ui
