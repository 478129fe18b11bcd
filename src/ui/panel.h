// The command panel of a cache object, host-neutral: the eight rollouts of the dialog table
// with their controls' values, enabled states, lists and selections; the automatic binding of
// controls to parameters in both directions; the rollouts' own dialog procedures as command
// handlers; and the refresh routine with every enabling rule.
//
// A Panel lives from the host's BeginEditParams to its EndEditParams. The 3ds Max binding
// forwards control messages to it and copies what it shows into the real controls; the tests
// and the `kvcache panel` command drive it as a user would.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/interface.h"
#include "ui/pickers.h"
#include "ui/rollout_table.h"

namespace kv {

class kvCache_obj;

namespace ui {

struct ControlState {
  const ControlDef* def = nullptr;
  bool enabled = true;
  bool checked = false;            // check boxes and buttons, the radio of the current value
  bool highlight = false;          // a check button shown in the active-command colour when pressed
  double value = 0.0;              // spinners
  std::string text;                // edits, status fields, labels, a pick button's node name
  std::vector<std::string> items;  // drop-downs and lists
  int current = -1;                // drop-down selection
  std::vector<bool> selected;      // list selection
  std::string tooltip;
  int image = -1;  // index into its rollout's image list; -1: a text button
};

struct RolloutState {
  const DialogDef* def = nullptr;
  bool open = false;
  std::vector<ControlState> controls;
};

// Operations the panel starts but other subsystems carry out. Unset ones do nothing.
struct PanelServices {
  // "New..": the new-cache flow (choose a file, then record).
  std::function<void(kvCache_obj&)> newCache;
  // "Record": an interactive recording.
  std::function<void(kvCache_obj&)> record;
  // "Reload Material": for this object, or for every object playing its file; true when
  // anything was updated.
  std::function<bool(kvCache_obj&, bool everyObject)> reloadMaterial;
  // "Explode": turns the elements into nodes.
  std::function<void(kvCache_obj&)> explode;
};

class Panel;

// A rollout's own dialog procedure: the commands the automatic binding cannot do.
class DlgProc {
 public:
  explicit DlgProc(Panel& p) : panel_(p) {}
  virtual ~DlgProc() = default;
  // A command from control `id`; `shift` is the Shift key when it was sent.
  virtual void Command(int id, bool shift) = 0;

 protected:
  Panel& panel_;
};

class Panel {
 public:
  // BeginEditParams: builds the rollouts, hooks the object's refresh and runs the initial
  // refresh.
  Panel(host::Interface& ip, kvCache_obj& obj, PanelServices services = {});
  // EndEditParams.
  ~Panel();
  Panel(const Panel&) = delete;
  Panel& operator=(const Panel&) = delete;

  // ---- what the user does. Each returns false for an unknown or disabled control (nothing
  // happens then). Shift is read from the host at that moment.
  bool Press(int id);               // buttons, check boxes and buttons, radios, pick buttons
  bool Type(int id, double value);  // a spinner or its edit
  bool Choose(int id, int index);   // a drop-down item
  bool SelectItems(int id, const std::vector<int>& rows);  // a list's selection
  void SetRolloutOpen(int map, bool open);

  // ---- what the user sees
  const ControlState* Find(int id) const;
  const ControlState& Control(int id) const;  // an empty state for unknown ids
  const RolloutState& Rollout(int map) const { return rollouts_[map]; }
  // Every rollout as text, one control a line (for the command-line tool).
  std::string Render(bool closedToo = false) const;

  // ---- refresh
  void Refresh(bool init = false);
  void RefreshFileInfo();
  void RefreshGroups();
  void RefreshNodeList();

  // ---- the status field's progress fill from the object's progress: the filled width of a
  // field `width` pixels wide, or -1 when no progress shows (a negative value or total).
  int ProgressFill(int width) const;

  // ---- the Record rollout's range-spinner mark: 0 none, 1 start dragged, 2 end dragged,
  // with the other end's value from before the drag.
  int RangeMark() const { return rangeMark_; }
  int RangeOther() const { return rangeOther_; }
  bool EditingList() const { return editingList_; }

  host::Interface& Host() { return ip_; }
  kvCache_obj& Object() { return obj_; }
  PanelServices& Services() { return services_; }

 private:
  friend class kvCacheDlgProc_main;
  friend class kvCacheDlgProc_reader;
  friend class kvCacheDlgProc_writer;
  friend class kvCacheDlgProc_groups;
  friend class kvCacheDlgProc_explode;
  friend void StartDrag(Panel& p, int dragged, int other, int mark);

  ControlState* Mutable(int id, int* map = nullptr);
  void SendCommand(int map, int id);
  void ParamsToControls();
  void ApplyEnablingRules();
  void Enable(int id, bool on);
  int GroupIndex() const;

  host::Interface& ip_;
  kvCache_obj& obj_;
  PanelServices services_;
  std::vector<RolloutState> rollouts_;
  std::vector<std::unique_ptr<DlgProc>> procs_;  // by map; null where none
  kvCachePick pick_;
  int rangeMark_ = 0, rangeOther_ = 0;
  bool editingList_ = false;
  bool refreshing_ = false;
};

// Updates `scaleUnits` at time 0 from the two unit drop-downs' parameters.
void ApplyUnitChoice(kvCache_obj& obj);

}  // namespace ui
}  // namespace kv
