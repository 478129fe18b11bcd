// The command panel's rollouts in 3ds Max: one rollup page per rollout of the rollout table,
// made from the generated templates, with a dialog procedure that hands every control message
// to the host-neutral panel model and shows what the model says in the real controls.
#pragma once

#include <memory>
#include <vector>

#include "host/max/sdk.h"

namespace kv {
class kvCache_obj;
namespace ui {
class Panel;
}
}  // namespace kv

namespace kv::max {

class MaxPanel {
 public:
  // BeginEditParams: the panel model and its pages.
  MaxPanel(IObjParam* ip, kvCache_obj& obj);
  // EndEditParams.
  ~MaxPanel();
  MaxPanel(const MaxPanel&) = delete;
  MaxPanel& operator=(const MaxPanel&) = delete;

 private:
  struct Page {
    MaxPanel* owner = nullptr;
    int map = 0;
    HWND hwnd = nullptr;
  };
  static INT_PTR CALLBACK Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp);
  void Command(int map, int id, int code, HWND ctrl);
  // Custom controls: spinner kinds, limits and edits, check buttons.
  void Init(const Page& page);
  // A spinner's new value; `dragging` while its arrows are held (one undo step per drag).
  void Spin(int id, ISpinnerControl* spin, bool dragging);
  void EndDrag(bool accept);
  // Copies the model's state of every control of page `map` into its window.
  void Sync(const Page& page);
  void SyncAll();

  IObjParam* ip_;
  kvCache_obj& obj_;
  std::unique_ptr<ui::Panel> panel_;
  std::vector<Page> pages_;  // sized once: the pages point into it
  bool syncing_ = false;
  int dragId_ = -1;  // the spinner whose drag holds the undo step open
};

}  // namespace kv::max
