// Callbacks through which the host lets the user choose scene nodes, and the base of the
// system's own modal dialogs. The host runs the interaction; the core decides what may be
// chosen and what a choice does.
#pragma once

#include <string>
#include <vector>

#include "host/scene.h"

namespace kv::host {

// A viewport pick mode: the host offers the nodes under the cursor that pass Filter and calls
// Pick with the closest one (null for a click on empty space).
class PickModeCallback {
 public:
  virtual ~PickModeCallback() = default;
  virtual void EnterMode() {}
  virtual void ExitMode() {}
  virtual bool Filter(Node* node) = 0;
  // True ends the mode; false keeps it on for further picks.
  virtual bool Pick(Node* node) = 0;
};

// The host's select-by-name dialog: it lists the scene's nodes that pass `filter` and hands
// the chosen ones to `proc`.
class HitByNameDlgCallback {
 public:
  virtual ~HitByNameDlgCallback() = default;
  virtual std::string dialogTitle() = 0;
  virtual std::string buttonText() = 0;
  virtual bool singleSelect() { return false; }
  virtual bool useFilter() { return true; }
  virtual bool filter(Node* node) = 0;
  virtual bool useProc() { return true; }
  virtual void proc(const std::vector<Node*>& nodes) = 0;
  virtual bool doCustomHilite() { return false; }
  virtual bool doHiliteNode() { return false; }
  virtual bool showHiddenAndFrozen() { return false; }
};

// A dialog of the system's own, shown modally by the host from its template.
class ModalDialog {
 public:
  virtual ~ModalDialog() = default;
  virtual int TemplateId() const = 0;
};

}  // namespace kv::host
