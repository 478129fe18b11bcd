#include "host/max/rollouts.h"

#include <commctrl.h>

#include "host/max/max_host.h"
#include "object/cache_obj.h"
#include "ui/panel.h"
#include "ui/rollout_table.h"

namespace kv::max {

MaxPanel::MaxPanel(IObjParam* ip, kvCache_obj& obj)
    : ip_(ip), obj_(obj), panel_(std::make_unique<ui::Panel>(TheHost(), obj)) {
  // The model refreshes itself when the object changes; the windows follow it.
  auto modelRefresh = obj_.onRefresh;
  obj_.onRefresh = [this, modelRefresh](uint32_t what) {
    if (modelRefresh) modelRefresh(what);
    SyncAll();
  };
  const auto defs = ui::RolloutDefs();
  pages_.resize(defs.size());
  for (size_t i = 0; i < defs.size(); ++i) {
    const ui::DialogDef& d = defs[i];
    pages_[i].owner = this;
    pages_[i].map = d.map;
    // The page's window arrives with WM_INITDIALOG, before AddRollupPage returns.
    ip_->AddRollupPage(ModuleHandle(), MAKEINTRESOURCEW(d.templateId), Proc, GetString(d.titleId),
                       reinterpret_cast<LPARAM>(&pages_[i]), d.open ? 0 : APPENDROLL_CLOSED);
  }
  SyncAll();
}

MaxPanel::~MaxPanel() {
  obj_.onRefresh = nullptr;
  for (Page& p : pages_) {
    if (p.hwnd) ip_->DeleteRollupPage(p.hwnd);
  }
  panel_.reset();  // the model lets go of the object last
}

INT_PTR CALLBACK MaxPanel::Proc(HWND hwnd, UINT msg, WPARAM wp, LPARAM lp) {
  if (msg == WM_INITDIALOG) {
    auto* page = reinterpret_cast<Page*>(lp);
    page->hwnd = hwnd;
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, lp);
    return TRUE;
  }
  auto* page = reinterpret_cast<Page*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (!page) return FALSE;
  switch (msg) {
    case WM_COMMAND:
      page->owner->Command(page->map, LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp));
      return TRUE;
    case WM_DESTROY:
      page->hwnd = nullptr;
      return FALSE;
    default:
      return FALSE;
  }
}

void MaxPanel::Command(int map, int id, int code, HWND ctrl) {
  (void)map;
  if (syncing_) return;  // the windows echo what Sync sets
  const ui::ControlState* cs = panel_->Find(id);
  if (!cs || !cs->def) return;
  switch (cs->def->kind) {
    case ui::Kind::DropDown:
      if (code == CBN_SELCHANGE) {
        panel_->Choose(id, static_cast<int>(SendMessageW(ctrl, CB_GETCURSEL, 0, 0)));
      }
      break;
    case ui::Kind::ListBox:
      if (code == LBN_SELCHANGE) {
        const int n = static_cast<int>(SendMessageW(ctrl, LB_GETSELCOUNT, 0, 0));
        std::vector<int> rows(static_cast<size_t>(std::max(n, 0)));
        if (n > 0) SendMessageW(ctrl, LB_GETSELITEMS, n, reinterpret_cast<LPARAM>(rows.data()));
        panel_->SelectItems(id, rows);
      }
      break;
    case ui::Kind::Button:
    case ui::Kind::CheckButton:
    case ui::Kind::PickButton:
    case ui::Kind::CheckBox:
    case ui::Kind::Radio:
      if (code == BN_CLICKED) panel_->Press(id);
      break;
    default:
      return;
  }
  SyncAll();
}

void MaxPanel::Sync(const Page& page) {
  if (!page.hwnd) return;
  for (const ui::ControlState& cs : panel_->Rollout(page.map).controls) {
    if (!cs.def || cs.def->id < 0) continue;
    HWND h = GetDlgItem(page.hwnd, cs.def->id);
    if (!h) continue;
    EnableWindow(h, cs.enabled ? TRUE : FALSE);
    switch (cs.def->kind) {
      case ui::Kind::CheckBox:
      case ui::Kind::Radio:
        CheckDlgButton(page.hwnd, cs.def->id, cs.checked ? BST_CHECKED : BST_UNCHECKED);
        break;
      case ui::Kind::Status:
      case ui::Kind::Static:
      case ui::Kind::PickButton:
        SetWindowTextW(h, Widen(cs.text).c_str());
        break;
      case ui::Kind::Edit:
      case ui::Kind::Edit2:
        if (GetFocus() != h) SetWindowTextW(h, Widen(cs.text).c_str());
        break;
      case ui::Kind::DropDown:
        SendMessageW(h, CB_RESETCONTENT, 0, 0);
        for (const std::string& item : cs.items) {
          SendMessageW(h, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Widen(item).c_str()));
        }
        SendMessageW(h, CB_SETCURSEL, static_cast<WPARAM>(cs.current), 0);
        break;
      case ui::Kind::ListBox:
        SendMessageW(h, LB_RESETCONTENT, 0, 0);
        for (size_t i = 0; i < cs.items.size(); ++i) {
          SendMessageW(h, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(Widen(cs.items[i]).c_str()));
          if (i < cs.selected.size() && cs.selected[i]) {
            SendMessageW(h, LB_SETSEL, TRUE, static_cast<LPARAM>(i));
          }
        }
        break;
      default:
        break;
    }
  }
}

void MaxPanel::SyncAll() {
  syncing_ = true;
  for (const Page& p : pages_) Sync(p);
  syncing_ = false;
}

}  // namespace kv::max
