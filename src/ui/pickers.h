// The pickers and dialogs the rollouts open: the viewport pick mode that adds nodes to the
// record list, the select-by-name callback, the cache file open and save dialogs, and the
// resizable element list dialog.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/interface.h"
#include "host/pick.h"

namespace KelvaneTools {
class kvCacheReader;
}

namespace kv {

class kvCache_obj;

namespace ui {

// Wildcard match: '*' any run, '?' any one character; letter case ignored.
bool MatchPattern(std::string_view text, std::string_view pattern);

// The name the save dialog proposes for `name`: every character but ASCII letters and digits
// becomes '_', then ".kvc" ("Box 01/a" gives "Box_01_a.kvc").
std::string ProposeCacheFileName(std::string_view name);

// The "Pick" button's mode: each pick appends one node to `nodes` as the undo step "Add node"
// and keeps the mode on; a click on empty space ends it.
class kvCachePick : public host::PickModeCallback {
 public:
  kvCachePick(host::Interface& ip, kvCache_obj& obj) : ip_(ip), obj_(obj) {}
  // Presses or releases the rollout's button.
  std::function<void(bool pressed)> onButton;

  void EnterMode() override;
  void ExitMode() override;
  // The record list's node rule, duplicates refused.
  bool Filter(host::Node* node) override;
  bool Pick(host::Node* node) override;

 private:
  host::Interface& ip_;
  kvCache_obj& obj_;
};

// The select-by-name callback: gathers the chosen nodes once into `chosen`; `busy` keeps a
// second call out while the first runs.
class kvCacheSelByName : public host::HitByNameDlgCallback {
 public:
  using FilterFn = bool (*)(host::Node* node, void* context, kvCacheSelByName& cb);
  kvCacheSelByName(std::string title, std::string button, FilterFn fn, void* context,
                   kvCache_obj& obj)
      : title_(std::move(title)),
        button_(std::move(button)),
        fn_(fn),
        context_(context),
        obj_(obj) {}

  std::string dialogTitle() override { return title_; }
  std::string buttonText() override { return button_; }
  bool filter(host::Node* node) override { return fn_ && fn_(node, context_, *this); }
  void proc(const std::vector<host::Node*>& nodes) override;

  kvCache_obj& Object() { return obj_; }
  const std::vector<host::Node*>& Chosen() const { return chosen_; }
  bool Busy() const { return busy_; }

 private:
  std::string title_, button_;
  FilterFn fn_;
  void* context_;
  kvCache_obj& obj_;
  std::vector<host::Node*> chosen_;
  bool busy_ = false;
};

// ---- cache file dialogs

// What the host's common file dialog is given.
struct FileDialogSetup {
  std::string title;
  std::string filterText;    // "Kelvane Cache Files (*.kvc)"
  std::string_view pattern;  // "*.kvc"
  int filterIndex = 1;
  std::string initialDir;   // the shared last directory
  std::string_view defExt;  // "kvc"
  int maxPath = 260;
  uint32_t flags = 0;
  int templateId = 0;  // the history drop-down beside the dialog
};
FileDialogSetup OpenDialogSetup();
FileDialogSetup SaveDialogSetup();

// The folder both dialogs start in; the last confirmed file's folder.
std::string& LastCacheDirectory();

// "Load..": seeded with the resolved path of `current`; true with the chosen file in `chosen`.
bool OpenCacheFileDialog(host::Interface& ip, const std::string& current, std::string& chosen);

// "New.." and recording: with `propose`, the proposed name is made from `name`. A chosen file
// that exists is replaced only after a Yes, and deleted at that moment; No asks again. True
// with the chosen file in `asset`.
bool SaveCacheFileDialog(host::Interface& ip, std::string& asset, std::string_view name,
                         bool propose);

// ---- element list dialog

struct Rect {
  int x = 0, y = 0, w = 0, h = 0;
  bool operator==(const Rect&) const = default;
};

// "Set Group Elements": the cache's element names matching a filter, with a selection. The
// host's dialog window forwards what the user does; the model decides what the list holds and
// where the controls go when the window is sized.
class ElementListDialog : public host::ModalDialog {
 public:
  static constexpr int kMinHeight = 200;  // pixels

  // `names` are the cache's element names in element order; `selected` the elements selected on
  // entry.
  ElementListDialog(std::vector<std::string> names, std::string title, std::string label,
                    const std::vector<int32_t>& selected);
  // From a reader (no reader: an empty list).
  static std::vector<std::string> ElementNames(const KelvaneTools::kvCacheReader* reader);

  int TemplateId() const override;

  // Opening: the window's size and its controls' places, in pixels, as created. Without
  // arguments they come from the dialog table at `pixelsPerUnit`.
  void Open(int width, int height, std::vector<std::pair<int, Rect>> controls);
  void Open(int pixelsPerUnit = 2);

  // ---- what the user does
  void SetFilter(std::string text);  // every change refills the list
  void FocusFilter(host::Interface& ip, bool focused);
  void SelectRows(const std::vector<int>& rows);  // replaces the selection
  void All();
  void None();
  void Invert();
  int Ok() { return 1; }
  int Cancel() { return 0; }
  int DoubleClick(int row);
  // A size request; the granted size respects the minimum. Lays the controls out.
  void Size(int width, int height);

  // ---- what the dialog shows
  const std::string& Title() const { return title_; }
  const std::string& Label() const { return label_; }
  const std::string& Filter() const { return filter_; }
  // Listed names and the element index behind each row.
  const std::vector<std::string>& Items() const { return items_; }
  const std::vector<int32_t>& RowElements() const { return rows_; }
  std::vector<int> SelectedRows() const;
  int Refills() const { return refills_; }  // list rebuilds (not mere reselection)
  int Width() const { return width_; }
  int Height() const { return height_; }
  Rect ControlRect(int id) const;

  // The chosen element indices (listed and selected), ascending.
  std::vector<int32_t> Result() const;

 private:
  void Fill();

  std::vector<std::string> names_;
  std::string title_, label_, filter_;
  std::set<int32_t> selected_;
  std::vector<std::string> items_;
  std::vector<int32_t> rows_;
  int refills_ = 0;
  int width_ = 0, height_ = 0, initWidth_ = 0, initHeight_ = 0;
  std::vector<std::pair<int, Rect>> initRects_, rects_;
};

}  // namespace ui
}  // namespace kv
