#include "host/max/rollouts.h"

#include <commctrl.h>

#include <cmath>

#include "host/max/max_host.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "ui/panel.h"
#include "ui/rollout_table.h"

namespace kv::max {

namespace {

// The undo label of a spinner's change: its parameter's name.
std::string ChangeLabel(const ui::ControlDef* def) {
  const param::ParamDef* pd = def ? param::FindParamDef(def->param) : nullptr;
  return pd && pd->displayNameId ? Narrow(GetString(pd->displayNameId)) : std::string();
}

}  // namespace

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
    page->owner->Init(*page);
    return TRUE;
  }
  auto* page = reinterpret_cast<Page*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
  if (!page) return FALSE;
  switch (msg) {
    case WM_COMMAND:
      page->owner->Command(page->map, LOWORD(wp), HIWORD(wp), reinterpret_cast<HWND>(lp));
      return TRUE;
    case CC_SPINNER_BUTTONDOWN:
      page->owner->dragId_ = LOWORD(wp);
      TheHost().GetHold().Begin();
      return TRUE;
    case CC_SPINNER_CHANGE:
      page->owner->Spin(LOWORD(wp), reinterpret_cast<ISpinnerControl*>(lp), HIWORD(wp) != 0);
      return TRUE;
    case CC_SPINNER_BUTTONUP:
      page->owner->EndDrag(HIWORD(wp) != 0);
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

void MaxPanel::Init(const Page& page) {
  for (const ui::ControlState& cs : panel_->Rollout(page.map).controls) {
    if (!cs.def || cs.def->id < 0) continue;
    HWND h = GetDlgItem(page.hwnd, cs.def->id);
    if (!h) continue;
    if (cs.def->kind == ui::Kind::Spinner) {
      ISpinnerControl* spin = GetISpinner(h);
      if (!spin) continue;
      const param::ParamDef* pd = param::FindParamDef(cs.def->param);
      const bool isInt = pd && pd->IsIntLike();
      const EditSpinnerType type = isInt                                  ? EDITTYPE_INT
                                   : pd && pd->type == param::Type::World ? EDITTYPE_UNIVERSE
                                                                          : EDITTYPE_FLOAT;
      if (cs.def->buddy) spin->LinkToEdit(GetDlgItem(page.hwnd, cs.def->buddy), type);
      // Without limits of its own a parameter may take any value the spinner can show.
      const double lo = pd && pd->HasLimits() ? pd->lo : -1.0e9;
      const double hi = pd && pd->HasLimits() ? pd->hi : 1.0e9;
      if (isInt) {
        spin->SetLimits(static_cast<int>(lo), static_cast<int>(hi), FALSE);
        spin->SetScale(1.0f);
      } else {
        spin->SetLimits(static_cast<float>(lo), static_cast<float>(hi), FALSE);
        spin->SetScale(0.1f);
      }
      ReleaseISpinner(spin);
    } else if (cs.def->kind == ui::Kind::CheckButton || cs.def->kind == ui::Kind::PickButton) {
      // Both stay pressed: a check button while on, a pick button while its pick mode runs.
      if (ICustButton* b = GetICustButton(h)) {
        b->SetType(CBT_CHECK);
        ReleaseICustButton(b);
      }
    }
  }
}

void MaxPanel::Spin(int id, ISpinnerControl* spin, bool dragging) {
  if (syncing_ || !spin) return;  // the windows echo what Sync sets
  const ui::ControlState* cs = panel_->Find(id);
  if (!cs || !cs->def) return;
  const param::ParamDef* pd = param::FindParamDef(cs->def->param);
  const double v = pd && pd->IsIntLike() ? spin->GetIVal() : spin->GetFVal();
  // A typed value or one click of an arrow is its own step; a drag's steps join the hold
  // its button-down opened.
  host::Hold& hold = TheHost().GetHold();
  const bool own = !dragging && !hold.Holding();
  if (own) hold.Begin();
  panel_->Type(id, v);
  if (own) hold.Accept(ChangeLabel(cs->def));
  SyncAll();
}

void MaxPanel::EndDrag(bool accept) {
  host::Hold& hold = TheHost().GetHold();
  const ui::ControlState* cs = panel_->Find(dragId_);
  dragId_ = -1;
  if (!hold.Holding()) return;
  if (accept) {
    hold.Accept(ChangeLabel(cs ? cs->def : nullptr));
  } else {
    hold.Cancel();  // right-click during a drag puts the value back
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
        SetWindowTextW(h, Widen(cs.text).c_str());
        break;
      case ui::Kind::Button:
      case ui::Kind::CheckButton:
      case ui::Kind::PickButton:
        // Custom buttons draw their own state: told through their interface, not Win32.
        if (ICustButton* b = GetICustButton(h)) {
          b->Enable(cs.enabled ? TRUE : FALSE);
          if (cs.def->kind != ui::Kind::Button) b->SetCheck(cs.checked ? TRUE : FALSE);
          if (cs.def->kind == ui::Kind::PickButton) b->SetText(Widen(cs.text).c_str());
          ReleaseICustButton(b);
        }
        break;
      case ui::Kind::Spinner:
        if (ISpinnerControl* spin = GetISpinner(h)) {
          const param::ParamDef* pd = param::FindParamDef(cs.def->param);
          if (pd && pd->IsIntLike()) {
            spin->SetValue(static_cast<int>(std::lround(cs.value)), FALSE);
          } else {
            spin->SetValue(static_cast<float>(cs.value), FALSE);
          }
          spin->Enable(cs.enabled ? TRUE : FALSE);
          ReleaseISpinner(spin);
        }
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
