#include "ui/panel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "cache/base.h"
#include "cache/reader.h"
#include "cache/registry.h"
#include "groups/group_ops.h"
#include "object/cache_obj.h"
#include "object/units.h"
#include "object/validators.h"
#include "res/control_ids.h"
#include "res/strings.h"

namespace kv::ui {
namespace fs = std::filesystem;
namespace P = kv::param;
using namespace kv::res;

void ApplyUnitChoice(kvCache_obj& obj) {
  ParamBlock& pb = obj.Params();
  pb.SetFloat(P::kScaleUnits, 0,
              UnitScale(pb.GetInt(P::kScaleUnitsFrom), pb.GetInt(P::kScaleUnitsTo)));
}

namespace {

std::string Printf(const char* fmt, int v, const char* suffix) {
  char buf[64];
  std::snprintf(buf, sizeof buf, fmt, v, suffix);
  return buf;
}

// The automatic parameter map's pick button: one pick stores the node and ends the mode.
class ParamPick : public host::PickModeCallback {
 public:
  ParamPick(host::Interface& ip, kvCache_obj& obj, int param, const NodeValidator& rule)
      : ip_(ip), obj_(obj), param_(param), rule_(rule) {}
  void EnterMode() override {
    const param::ParamDef* d = param::FindParamDef(param_);
    ip_.PushPrompt(d && d->promptId ? GetString(d->promptId) : std::string());
  }
  void ExitMode() override { ip_.PopPrompt(); }
  bool Filter(host::Node* node) override { return rule_.Validate(node, ip_.GetTime()); }
  bool Pick(host::Node* node) override {
    if (node) obj_.Params().SetNode(param_, node);
    return true;
  }

 private:
  host::Interface& ip_;
  kvCache_obj& obj_;
  int param_;
  const NodeValidator& rule_;
};

}  // namespace

// A spinner drag of one end of a range pair starts (or goes on): the object remembers the
// other end's value from before the drag.
void StartDrag(Panel& p, int dragged, int other, int mark) {
  kvCache_obj& obj = p.Object();
  if (obj.RangeDragId() != dragged) {
    p.rangeOther_ = obj.Params().GetInt(other);
    obj.SetRangeDrag(dragged, p.rangeOther_);
  }
  p.rangeMark_ = mark;
}

// ---------------------------------------------------------------- Cache File

class kvCacheDlgProc_main : public DlgProc {
 public:
  using DlgProc::DlgProc;
  void Command(int id, bool shift) override {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    ParamBlock& pb = obj.Params();
    switch (id) {
      case IDC_LOAD: {
        std::string chosen;
        if (!OpenCacheFileDialog(ip, pb.GetString(P::kFileName), chosen)) return;
        host::ScopedHold hold(ip.GetHold());
        pb.SetString(P::kFileName, chosen);
        hold.Accept(GetString(IDS_UNDO_SET_FILENAME));
        ip.NotifyDependents(&obj, host::kPartGeom);
        panel_.Refresh();
        return;
      }
      case IDC_NEW:
        if (panel_.services_.newCache) panel_.services_.newCache(obj);
        panel_.Refresh();
        return;
      case IDC_UNLOAD: {
        host::ScopedHold hold(ip.GetHold());
        pb.SetString(P::kFileName, "");
        ip.NotifyDependents(&obj, host::kPartGeom);
        hold.Accept(GetString(IDS_UNDO_UNLOAD_CACHE));
        panel_.Refresh();
        return;
      }
      case IDC_RELOAD: {
        const std::string& name = pb.GetString(P::kFileName);
        const std::string path = name.empty() ? std::string() : ip.ResolveAssetPath(name);
        KelvaneTools::kvCacheRegistry& reg = obj.Registry();
        if (KelvaneTools::kvCacheReader* r = path.empty() ? nullptr : reg.Reader(path)) {
          r->Open();
          for (void* user : reg.Users(path))
            if (auto* st = static_cast<PlaybackState*>(user); st && st->owner)
              st->owner->InvalidateAndNotify();
        }
        panel_.Refresh();
        return;
      }
      case IDC_RELOAD_MATERIAL:
        if (panel_.services_.reloadMaterial && panel_.services_.reloadMaterial(obj, shift))
          ip.RedrawViews(ip.GetTime());
        return;
      default:
        return;
    }
  }
};

// ---------------------------------------------------------------- Playback

class kvCacheDlgProc_reader : public DlgProc {
 public:
  using DlgProc::DlgProc;
  void Command(int id, bool) override {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    switch (id) {
      case IDC_UNITS_FROM:
      case IDC_UNITS_TO:
        ApplyUnitChoice(obj);
        return;
      case IDC_TRIGGER_UPDATE:
        obj.FlagTriggers();
        obj.Invalidate();
        obj.BuildMesh(ip.GetTime());
        ip.NotifyDependents(&obj, host::kPartAll);
        ip.RedrawViews(ip.GetTime());
        return;
      default:
        return;
    }
  }
};

// ---------------------------------------------------------------- Record

class kvCacheDlgProc_writer : public DlgProc {
 public:
  using DlgProc::DlgProc;
  void Command(int id, bool shift) override {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    ParamBlock& pb = obj.Params();
    switch (id) {
      case IDC_REC_PICK:
        ip.SetPickMode(panel_.pick_);
        break;
      case IDC_REC_ADD:
        Add(shift);
        break;
      case IDC_REC_REMOVE:
        Remove(shift);
        break;
      case IDC_REC_ALL:
      case IDC_REC_NONE:
      case IDC_REC_INVERT: {
        ControlState* list = panel_.Mutable(IDC_REC_NODE_LIST);
        for (size_t i = 0; i < list->selected.size(); ++i)
          list->selected[i] = id == IDC_REC_ALL    ? true
                              : id == IDC_REC_NONE ? false
                                                   : !list->selected[i];
        break;
      }
      case IDC_REC_RECORD:
        if (panel_.services_.record) panel_.services_.record(obj);
        break;
      case IDC_REC_RANGE: {
        const Interval r = ip.GetAnimRange();
        const int tpf = std::max(1, ip.GetTicksPerFrame());
        host::ScopedHold hold(ip.GetHold());
        pb.SetInt(P::kRecStart, 0, r.Start() / tpf);
        pb.SetInt(P::kRecEnd, 0, r.End() / tpf);
        hold.Accept(GetString(IDS_UNDO_SET_RECORD_RANGE));
        break;
      }
      default:
        break;
    }
    // The range mark: which end a drag moves, and the other end's value before it. The
    // object reads it to bring a pushed end back as the drag returns.
    if (id == IDC_REC_START_SPIN) {
      StartDrag(panel_, P::kRecStart, P::kRecEnd, 1);
    } else if (id == IDC_REC_END_SPIN) {
      StartDrag(panel_, P::kRecEnd, P::kRecStart, 2);
    } else {
      panel_.rangeMark_ = 0;
      obj.ClearRangeDrag();
    }
  }

 private:
  static bool AcceptNode(host::Node* node, void* context, kvCacheSelByName& cb) {
    auto* self = static_cast<kvCacheDlgProc_writer*>(context);
    const kvCacheNodesValidator rule(self->panel_.Host(), &cb.Object(), &cb.Object().Params());
    return rule.Validate(node, self->panel_.Host().GetTime());
  }

  void Add(bool shift) {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    std::vector<host::Node*> nodes;
    if (shift) {
      const kvCacheNodesValidator rule(ip, &obj, &obj.Params());
      for (host::Node* n : ip.GetSelectedNodes())
        if (rule.Validate(n, ip.GetTime()) &&
            std::find(nodes.begin(), nodes.end(), n) == nodes.end())
          nodes.push_back(n);
    } else {
      kvCacheSelByName cb(GetString(IDS_SELECT_OBJECTS_TO_ADD), GetString(IDS_ADD), &AcceptNode,
                          this, obj);
      if (!ip.DoHitByNameDialog(cb)) return;
      nodes = cb.Chosen();
    }
    if (nodes.empty()) return;
    // New nodes go after the listed ones, in the order chosen; listed ones are not repeated.
    host::ScopedHold hold(ip.GetHold());
    ParamBlock& pb = obj.Params();
    for (host::Node* n : nodes) {
      bool listed = false;
      for (int i = 0; i < pb.Count(P::kNodes) && !listed; ++i)
        listed = pb.GetNode(P::kNodes, i) == n;
      if (!listed) pb.Append(P::kNodes, n);
    }
    hold.Accept(GetString(IDS_UNDO_SELECT_MULTIPLE));
    panel_.RefreshNodeList();
  }

  void Remove(bool shift) {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    ParamBlock& pb = obj.Params();
    const ControlState& list = panel_.Control(IDC_REC_NODE_LIST);
    const int c = pb.Count(P::kNodes);
    const int n = static_cast<int>(std::count(list.selected.begin(), list.selected.end(), true));
    if (n == 0 && !(shift && c > 0)) return;
    panel_.editingList_ = true;
    host::ScopedHold hold(ip.GetHold());
    if (n == c || shift) {
      pb.SetCount(P::kNodes, 0);
      hold.Accept(GetString(IDS_UNDO_EMPTY_NODE_LIST));
    } else {
      for (int i = static_cast<int>(list.selected.size()) - 1; i >= 0; --i)
        if (list.selected[i] && i < pb.Count(P::kNodes)) pb.Delete(P::kNodes, i, 1);
      hold.Accept(GetString(IDS_UNDO_REMOVE_NODES));
    }
    panel_.editingList_ = false;
    panel_.RefreshNodeList();
  }
};

// ---------------------------------------------------------------- Per-Element Control

class kvCacheDlgProc_groups : public DlgProc {
 public:
  using DlgProc::DlgProc;
  void Command(int id, bool) override {
    kvCache_obj& obj = panel_.Object();
    if (const ControlState* c = panel_.Find(id); c && c->def->kind == Kind::Edit)
      id = c->def->buddy;
    const int gi = panel_.GroupIndex();
    const ElementGroupList& groups = obj.Groups();
    if (id == IDC_GROUP_ADD) {
      AddGroup(obj, "", false, true);
      return;
    }
    if (id == IDC_GROUP_LIST) {
      const ControlState& list = panel_.Control(IDC_GROUP_LIST);
      for (size_t i = 0; i < list.selected.size(); ++i)
        if (list.selected[i]) SetSelectedGroup(obj, groups.at(static_cast<int32_t>(i)).name());
      return;
    }
    if (gi < 0) return;
    const std::string name = groups.at(gi).name();
    const ElementGroup& g = groups.at(gi);
    const double v = panel_.Control(id).value;
    switch (id) {
      case IDC_GROUP_REMOVE:
        DeleteGroup(obj, name);
        break;
      case IDC_GROUP_RENAME:
        RenameGroup(obj, name, "");
        break;
      case IDC_GROUP_UP:
        MoveGroup(obj, name, -1);
        break;
      case IDC_GROUP_DOWN:
        MoveGroup(obj, name, 1);
        break;
      case IDC_GROUP_ENABLED:
        SetGroupEnabled(obj, name, !g.enabled);
        break;
      case IDC_GROUP_MODE:
        SetGroupMode(obj, name, static_cast<uint32_t>(panel_.Control(id).current));
        break;
      case IDC_GROUP_TRIGGER:
        SetGroupTrigger(obj, name, !g.trigger);
        break;
      case IDC_GROUP_OFFSET_SPIN:
        SetGroupDelay(obj, name, static_cast<float>(v));
        break;
      case IDC_GROUP_MATID_SPIN:
        SetGroupMatIndex(obj, name, static_cast<int32_t>(std::lround(v)) - 1);
        break;
      case IDC_GROUP_BY_AGE:
        SetGroupDeleteByAge(obj, name, !g.deleteByAge);
        break;
      case IDC_GROUP_AGE_SPIN:
        SetGroupDeleteAge(obj, name, static_cast<float>(v));
        break;
      case IDC_GROUP_BY_DISTANCE:
        SetGroupDeleteByDistance(obj, name, !g.deleteByDistance);
        break;
      case IDC_GROUP_DISTANCE_SPIN:
        SetGroupDeleteDistance(obj, name, static_cast<float>(v));
        break;
      case IDC_GROUP_SELECT_ELEMENTS:
        SelectGroupElements(obj, name);
        break;
      case IDC_GROUP_MAKE_UNIQUE:
        MakeGroupElementsUnique(obj, name);
        break;
      case IDC_GROUP_SET_ELEMENTS:
      case IDC_GROUP_ADD_ELEMENTS:
      case IDC_GROUP_REMOVE_ELEMENTS:
        Elements(id, name);
        break;
      default:
        break;
    }
  }

 private:
  void Elements(int id, const std::string& name) {
    kvCache_obj& obj = panel_.Object();
    const ElementGroup* g = obj.Groups().find(name);
    std::vector<int32_t> pre;
    if (id == IDC_GROUP_SET_ELEMENTS && g) pre = g->elements();
    if (id == IDC_GROUP_ADD_ELEMENTS) pre = obj.ElementSelection();
    ElementListDialog dlg(ElementListDialog::ElementNames(obj.Reader()),
                          GetString(IDS_SELECT_ELEMENTS_BY_NAME), name, pre);
    dlg.Open();
    if (panel_.Host().DoModalDialog(dlg) != 1) return;
    const std::vector<int32_t> chosen = dlg.Result();
    if (id == IDC_GROUP_SET_ELEMENTS) SetGroupElements(obj, name, chosen);
    if (id == IDC_GROUP_ADD_ELEMENTS) AddGroupElements(obj, name, chosen);
    if (id == IDC_GROUP_REMOVE_ELEMENTS) RemoveGroupElements(obj, name, chosen);
  }
};

// ---------------------------------------------------------------- Explode to Objects

class kvCacheDlgProc_explode : public DlgProc {
 public:
  using DlgProc::DlgProc;
  void Command(int id, bool) override {
    kvCache_obj& obj = panel_.Object();
    host::Interface& ip = panel_.Host();
    if (id == IDC_EXP_START_SPIN) {
      StartDrag(panel_, P::kExplodeStart, P::kExplodeEnd, 0);
      return;
    }
    if (id == IDC_EXP_END_SPIN) {
      StartDrag(panel_, P::kExplodeEnd, P::kExplodeStart, 0);
      return;
    }
    obj.ClearRangeDrag();
    if (id == IDC_EXP_RANGE) {
      const Interval r = ip.GetAnimRange();
      const int tpf = std::max(1, ip.GetTicksPerFrame());
      host::ScopedHold hold(ip.GetHold());
      obj.Params().SetInt(P::kExplodeStart, 0, r.Start() / tpf);
      obj.Params().SetInt(P::kExplodeEnd, 0, r.End() / tpf);
      hold.Accept(GetString(IDS_UNDO_SET_RECORD_RANGE));
    } else if (id == IDC_EXP_EXPLODE && panel_.services_.explode) {
      panel_.services_.explode(obj);
    }
  }
};

// ---------------------------------------------------------------- the panel

Panel::Panel(host::Interface& ip, kvCache_obj& obj, PanelServices services)
    : ip_(ip), obj_(obj), services_(std::move(services)), pick_(ip, obj) {
  for (const DialogDef& d : RolloutDefs()) {
    RolloutState r;
    r.def = &d;
    r.open = d.open;
    for (const ControlDef& c : d.controls) {
      ControlState s;
      s.def = &c;
      s.text = c.Caption();
      if (c.tooltipId) s.tooltip = GetString(c.tooltipId);
      std::span<const int> items = c.items;
      const param::ParamDef* pd = c.param >= 0 ? param::FindParamDef(c.param) : nullptr;
      if (items.empty() && pd) items = pd->items;
      if (c.kind == Kind::DropDown)
        for (int sid : items) s.items.push_back(GetString(sid));
      if (pd && (pd->flags & param::kControlDisabled)) s.enabled = false;
      r.controls.push_back(std::move(s));
    }
    rollouts_.push_back(std::move(r));
  }
  procs_.resize(rollouts_.size());
  procs_[P::kMapCacheFile] = std::make_unique<kvCacheDlgProc_main>(*this);
  procs_[P::kMapRecord] = std::make_unique<kvCacheDlgProc_writer>(*this);
  procs_[P::kMapPlayback] = std::make_unique<kvCacheDlgProc_reader>(*this);
  procs_[P::kMapGroups] = std::make_unique<kvCacheDlgProc_groups>(*this);
  procs_[P::kMapExplode] = std::make_unique<kvCacheDlgProc_explode>(*this);
  pick_.onButton = [this](bool on) { Mutable(IDC_REC_PICK)->checked = on; };
  obj_.onRefresh = [this](uint32_t what) {
    if (refreshing_) return;
    if (what & kvCache_obj::kRefreshFileInfo) RefreshFileInfo();
    if (what & kvCache_obj::kRefreshGroups) RefreshGroups();
    if (what & kvCache_obj::kRefreshParams) Refresh();
  };
  Refresh(true);
}

Panel::~Panel() {
  obj_.onRefresh = nullptr;
}

ControlState* Panel::Mutable(int id, int* map) {
  if (id == IDC_STATIC) return nullptr;
  for (RolloutState& r : rollouts_)
    for (ControlState& c : r.controls)
      if (c.def->id == id) {
        if (map) *map = r.def->map;
        return &c;
      }
  return nullptr;
}

const ControlState* Panel::Find(int id) const {
  return const_cast<Panel*>(this)->Mutable(id);
}

const ControlState& Panel::Control(int id) const {
  static const ControlState none;
  const ControlState* c = Find(id);
  return c ? *c : none;
}

void Panel::SendCommand(int map, int id) {
  if (map >= 0 && map < static_cast<int>(procs_.size()) && procs_[map])
    procs_[map]->Command(id, ip_.IsShiftDown());
}

int Panel::GroupIndex() const {
  const int32_t s = obj_.Groups().getSelected();
  return s >= 0 && s < obj_.Groups().count() ? s : -1;
}

bool Panel::Press(int id) {
  int map = -1;
  ControlState* c = Mutable(id, &map);
  if (!c || !c->enabled) return false;
  ParamBlock& pb = obj_.Params();
  const ControlDef& d = *c->def;
  const TimeValue t = ip_.GetTime();
  switch (d.kind) {
    case Kind::CheckBox:
    case Kind::CheckButton:
      if (d.param >= 0) pb.SetInt(d.param, t, pb.GetBool(d.param, t) ? 0 : 1);
      break;
    case Kind::Radio:
      if (d.param >= 0) pb.SetInt(d.param, t, d.value);
      break;
    case Kind::PickButton: {
      if (d.param == P::kTriggerOmni) {
        const kvCacheHelperValidator rule;
        ParamPick pick(ip_, obj_, d.param, rule);
        ip_.SetPickMode(pick);
      } else if (d.param == P::kExplodeToNode) {
        const kvCacheExplodeNodeValidator rule(ip_, &obj_);
        ParamPick pick(ip_, obj_, d.param, rule);
        ip_.SetPickMode(pick);
      }
      break;
    }
    case Kind::Button:
      break;
    default:
      return false;
  }
  SendCommand(map, id);
  Refresh();
  return true;
}

bool Panel::Type(int id, double value) {
  int map = -1;
  ControlState* c = Mutable(id, &map);
  if (!c || !c->enabled) return false;
  // A typed value comes from the edit (its command is the edit's); a dragged one from the
  // spinner.
  const int commandId = id;
  if (c->def->kind == Kind::Edit) {
    c = Mutable(c->def->buddy, &map);
    if (!c || !c->enabled) return false;
  }
  if (c->def->kind != Kind::Spinner || !std::isfinite(value)) return false;
  // A drag starts with its command, so the range mark sees the values from before it.
  const bool before = map == P::kMapRecord || map == P::kMapExplode;
  if (before) SendCommand(map, commandId);
  c->value = value;
  const int param = c->def->param;
  ParamBlock& pb = obj_.Params();
  const TimeValue t = ip_.GetTime();
  if (param == P::kElementFrames) {
    const int gi = GroupIndex();
    if (gi >= 0 && gi < pb.Count(param)) pb.SetListFloat(param, gi, t, static_cast<float>(value));
  } else if (param >= 0) {
    const param::ParamDef* pd = param::FindParamDef(param);
    if (pd && pd->IsIntLike())
      pb.SetInt(param, t, static_cast<int>(std::lround(value)));
    else
      pb.SetFloat(param, t, static_cast<float>(value));
  }
  if (!before) SendCommand(map, commandId);
  Refresh();
  return true;
}

bool Panel::Choose(int id, int index) {
  int map = -1;
  ControlState* c = Mutable(id, &map);
  if (!c || !c->enabled || c->def->kind != Kind::DropDown) return false;
  if (index < 0 || index >= static_cast<int>(c->items.size())) return false;
  c->current = index;
  if (c->def->param >= 0) obj_.Params().SetInt(c->def->param, ip_.GetTime(), index);
  SendCommand(map, id);
  Refresh();
  return true;
}

bool Panel::SelectItems(int id, const std::vector<int>& rows) {
  int map = -1;
  ControlState* c = Mutable(id, &map);
  if (!c || !c->enabled || c->def->kind != Kind::ListBox) return false;
  for (int r : rows)
    if (r < 0 || r >= static_cast<int>(c->items.size())) return false;
  std::fill(c->selected.begin(), c->selected.end(), false);
  for (int r : rows) c->selected[r] = true;
  SendCommand(map, id);
  Refresh();
  return true;
}

void Panel::SetRolloutOpen(int map, bool open) {
  if (map >= 0 && map < static_cast<int>(rollouts_.size())) rollouts_[map].open = open;
}

int Panel::ProgressFill(int width) const {
  const int value = obj_.ProgressValue(), total = obj_.ProgressTotal();
  if (value < 0 || total < 0) return -1;
  if (total == 0) return 0;
  return static_cast<int>(int64_t{width} * std::min(value, total) / total);
}

// ---------------------------------------------------------------- refresh

void Panel::Enable(int id, bool on) {
  if (ControlState* c = Mutable(id)) c->enabled = on;
}

void Panel::ParamsToControls() {
  const ParamBlock& pb = obj_.Params();
  const TimeValue t = ip_.GetTime();
  for (RolloutState& r : rollouts_) {
    for (ControlState& c : r.controls) {
      const ControlDef& d = *c.def;
      if (d.param < 0 || d.param == P::kNodes || d.param == P::kElementFrames) continue;
      switch (d.kind) {
        case Kind::CheckBox:
        case Kind::CheckButton:
          c.checked = pb.GetBool(d.param, t);
          break;
        case Kind::Radio:
          c.checked = pb.GetInt(d.param, t) == d.value;
          break;
        case Kind::Spinner:
        case Kind::Edit: {
          const param::ParamDef* pd = param::FindParamDef(d.param);
          const double v = pd && pd->IsIntLike() ? pb.GetInt(d.param, t) : pb.GetFloat(d.param, t);
          c.value = v;
          char buf[32];
          std::snprintf(buf, sizeof buf, pd && pd->IsIntLike() ? "%.0f" : "%g", v);
          if (d.kind == Kind::Edit) c.text = buf;
          break;
        }
        case Kind::DropDown:
          c.current = pb.GetInt(d.param, t);
          break;
        case Kind::PickButton: {
          host::Node* n = pb.GetNode(d.param);
          c.text = n ? n->GetName() : d.Caption();
          break;
        }
        default:
          break;
      }
    }
  }
}

void Panel::ApplyEnablingRules() {
  const ParamBlock& pb = obj_.Params();
  const TimeValue t = ip_.GetTime();
  // What the automatic binding enables: a check box's dependent controls.
  for (const param::ParamDef& pd : param::ParamDefs()) {
    for (int dep : pd.enables) {
      const bool on = pb.GetBool(pd.id, t);
      for (RolloutState& r : rollouts_)
        for (ControlState& c : r.controls)
          if (c.def->param == dep) c.enabled = on;
    }
  }
  // Set Mat ID works only while Don't Delete is on: its value follows both.
  const bool matId = pb.GetBool(P::kRendDontDelete) && pb.GetBool(P::kRendApplyMatID);
  Enable(IDC_REND_MATID_EDIT, matId);
  Enable(IDC_REND_MATID_SPIN, matId);

  const bool display = pb.GetBool(P::kVpDisplayCache);
  Enable(IDC_VP_WIREFRAME, display && !ip_.IsRetainedModeViewport());
  const bool faces = !pb.GetBool(P::kVpDeleteObjects) && display;
  Enable(IDC_VP_HIDE_FACES, faces);
  Enable(IDC_VP_MARKERS, faces);

  const bool timed = !pb.GetBool(P::kPlayUseGraph);
  for (int id :
       {IDC_PLAY_START_LABEL, IDC_PLAY_START_EDIT, IDC_PLAY_START_SPIN, IDC_PLAY_SPEED_LABEL,
        IDC_PLAY_SPEED_EDIT, IDC_PLAY_SPEED_SPIN, IDC_PLAY_FPS_LABEL, IDC_PLAY_FPS_EDIT,
        IDC_PLAY_FPS_SPIN, IDC_PLAY_SAMPLE_LABEL, IDC_PLAY_SAMPLE, IDC_PLAY_REVERSE})
    Enable(id, timed);

  const int mode = pb.GetInt(P::kTriggerMode);
  Enable(IDC_TRIGGER_PICK, mode == 2);
  for (int id :
       {IDC_TRIGGER_INTERACTIVE, IDC_TRIGGER_UPDATE, IDC_TRIGGER_SAMPLE_LABEL, IDC_TRIGGER_SAMPLE})
    Enable(id, mode > 0);

  const bool reduce = pb.GetBool(P::kExplodeReduce);
  for (int id : {IDC_EXP_REDUCE_STEP_LABEL, IDC_EXP_REDUCE_STEP_EDIT, IDC_EXP_REDUCE_STEP_SPIN,
                 IDC_EXP_THRESH_LABEL, IDC_EXP_THRESH_EDIT, IDC_EXP_THRESH_SPIN})
    Enable(id, reduce);
  Enable(IDC_EXP_PICK, pb.GetInt(P::kExplodeTo) == 3);
  Enable(IDC_EXP_EXPLODE, static_cast<bool>(services_.explode));

  // Per-Element Control: a group's controls need a selected group; a mode's settings are
  // enabled only in that mode.
  const int gi = GroupIndex();
  const ElementGroupList& groups = obj_.Groups();
  const bool any = gi >= 0;
  const ElementGroup* g = any ? &groups.at(gi) : nullptr;
  for (int id : {IDC_GROUP_REMOVE, IDC_GROUP_RENAME, IDC_GROUP_ENABLED, IDC_GROUP_MODE,
                 IDC_GROUP_SET_ELEMENTS, IDC_GROUP_ADD_ELEMENTS, IDC_GROUP_REMOVE_ELEMENTS,
                 IDC_GROUP_SELECT_ELEMENTS, IDC_GROUP_MAKE_UNIQUE})
    Enable(id, any);
  Enable(IDC_GROUP_UP, any && gi > 0);
  Enable(IDC_GROUP_DOWN, any && gi + 1 < groups.count());
  Enable(IDC_GROUP_TRIGGER, any && mode > 0);
  const uint32_t gm = g ? g->mode : ~0u;
  for (int id : {IDC_GROUP_OFFSET_LABEL, IDC_GROUP_OFFSET_EDIT, IDC_GROUP_OFFSET_SPIN})
    Enable(id, gm == static_cast<uint32_t>(GroupMode::Delay));
  for (int id : {IDC_GROUP_FRAME_LABEL, IDC_GROUP_FRAME_EDIT, IDC_GROUP_FRAME_SPIN})
    Enable(id, gm == static_cast<uint32_t>(GroupMode::SetFrame));
  for (int id : {IDC_GROUP_MATID_LABEL, IDC_GROUP_MATID_EDIT, IDC_GROUP_MATID_SPIN})
    Enable(id, gm == static_cast<uint32_t>(GroupMode::SetMatID));
  const bool del = gm == static_cast<uint32_t>(GroupMode::Delete);
  Enable(IDC_GROUP_BY_AGE, del);
  Enable(IDC_GROUP_AGE_EDIT, del && g->deleteByAge);
  Enable(IDC_GROUP_AGE_SPIN, del && g->deleteByAge);
  Enable(IDC_GROUP_BY_DISTANCE, del);
  for (int id : {IDC_GROUP_DISTANCE_LABEL, IDC_GROUP_DISTANCE_EDIT, IDC_GROUP_DISTANCE_SPIN})
    Enable(id, del && g->deleteByDistance);
}

void Panel::RefreshNodeList() {
  ControlState* list = Mutable(IDC_REC_NODE_LIST);
  const ParamBlock& pb = obj_.Params();
  std::vector<std::string> items;
  for (int i = 0; i < pb.Count(P::kNodes); ++i) {
    host::Node* n = pb.GetNode(P::kNodes, i);
    items.push_back(n ? n->GetName() : std::string());
  }
  if (items != list->items) {
    list->items = std::move(items);
    list->selected.assign(list->items.size(), false);
  }
}

void Panel::RefreshFileInfo() {
  static constexpr int kFields[] = {IDC_INFO_FILE_SIZE, IDC_INFO_MESH, IDC_INFO_ANIMATION,
                                    IDC_INFO_FRAMES,    IDC_INFO_STEP, IDC_INFO_FRAME_RATE,
                                    IDC_INFO_NODES};
  for (int id : kFields) Mutable(id)->text.clear();
  const std::string& name = obj_.Params().GetString(P::kFileName);
  if (name.empty()) return;
  KelvaneTools::kvCacheReader* r = obj_.Reader();
  if (!r) {
    // The file was chosen but not evaluated yet: evaluating acquires its reader.
    obj_.BuildMesh(ip_.GetTime());
    r = obj_.Reader();
  }
  if (!r || !r->HasIndex() || r->NumElements() == 0) return;
  const KelvaneTools::CacheHeader& h = r->Header();
  std::error_code ec;
  const uintmax_t fileSize = fs::file_size(r->FileName(), ec);
  Mutable(IDC_INFO_FILE_SIZE)->text = KelvaneTools::SizeText(ec ? 0 : fileSize);
  Mutable(IDC_INFO_MESH)->text =
      KelvaneTools::SizeText(static_cast<uint64_t>(h.sampleTableOffset) - h.dataOffset);
  Mutable(IDC_INFO_ANIMATION)->text = KelvaneTools::SizeText(static_cast<uint64_t>(h.sampleStride) *
                                                             static_cast<uint64_t>(h.numSamples));
  Mutable(IDC_INFO_FRAMES)->text = Printf("%i%s", h.numSamples, "");
  Mutable(IDC_INFO_STEP)->text = Printf("%i%s", h.step, " ticks");
  Mutable(IDC_INFO_FRAME_RATE)->text = Printf("%i%s", h.frameRate, " FPS");
  Mutable(IDC_INFO_NODES)->text = Printf("%i%s", r->NumElements(), "");
}

void Panel::RefreshGroups() {
  const ElementGroupList& groups = obj_.Groups();
  ControlState* list = Mutable(IDC_GROUP_LIST);
  list->items.clear();
  for (int32_t i = 0; i < groups.count(); ++i) list->items.push_back(groups.at(i).name());
  list->selected.assign(list->items.size(), false);
  const int gi = GroupIndex();
  if (gi >= 0) list->selected[gi] = true;
  const ElementGroup* g = gi >= 0 ? &groups.at(gi) : nullptr;
  Mutable(IDC_GROUP_ENABLED)->checked = g && g->enabled;
  Mutable(IDC_GROUP_MODE)->current = g ? static_cast<int>(g->mode) : -1;
  Mutable(IDC_GROUP_TRIGGER)->checked = g && g->trigger;
  Mutable(IDC_GROUP_BY_AGE)->checked = g && g->deleteByAge;
  Mutable(IDC_GROUP_BY_DISTANCE)->checked = g && g->deleteByDistance;
  auto spin = [&](int spinId, double v) {
    ControlState* s = Mutable(spinId);
    s->value = v;
    char buf[32];
    std::snprintf(buf, sizeof buf, "%g", v);
    Mutable(s->def->buddy)->text = g ? buf : "";
  };
  spin(IDC_GROUP_OFFSET_SPIN, g ? g->delay : 0.0);
  spin(IDC_GROUP_MATID_SPIN, g ? g->matIndex + 1 : 0.0);
  spin(IDC_GROUP_AGE_SPIN, g ? g->deleteAge : 0.0);
  spin(IDC_GROUP_DISTANCE_SPIN, g ? g->deleteDistance : 0.0);
  const ParamBlock& pb = obj_.Params();
  spin(IDC_GROUP_FRAME_SPIN, g && gi < pb.Count(P::kElementFrames)
                                 ? pb.GetListFloat(P::kElementFrames, gi, ip_.GetTime())
                                 : 0.0);
}

void Panel::Refresh(bool init) {
  if (refreshing_) return;
  refreshing_ = true;
  if (init) {
    // Button images: the Cache File strip, the record switches and the node-list buttons.
    int i = 0;
    for (int id : {IDC_NEW, IDC_LOAD, IDC_UNLOAD, IDC_RELOAD, IDC_RELOAD_MATERIAL})
      Mutable(id)->image = i++;
    i = 0;
    for (int id : {IDC_REC_TRANSFORM, IDC_REC_DEFORM, IDC_REC_TOPOLOGY}) Mutable(id)->image = i++;
    i = 0;
    for (int id :
         {IDC_REC_PICK, IDC_REC_ADD, IDC_REC_REMOVE, IDC_REC_ALL, IDC_REC_NONE, IDC_REC_INVERT})
      Mutable(id)->image = i++;
    Mutable(IDC_REC_PICK)->highlight = true;
    Mutable(IDC_GROUP_ENABLED)->highlight = true;
  }
  ParamsToControls();
  RefreshNodeList();

  const std::string& name = obj_.Params().GetString(P::kFileName);
  ControlState* file = Mutable(IDC_FILE_NAME);
  if (name.empty()) {
    file->text = GetString(IDS_NO_FILE);
    file->tooltip.clear();
  } else {
    file->text = fs::path(name).filename().string();
    file->tooltip = ip_.ResolveAssetPath(name);
  }
  RefreshFileInfo();
  Mutable(IDC_STATUS)->text = obj_.StatusText();
  RefreshGroups();
  ApplyEnablingRules();
  refreshing_ = false;
}

// ---------------------------------------------------------------- text

std::string Panel::Render(bool closedToo) const {
  std::ostringstream o;
  for (const RolloutState& r : rollouts_) {
    o << "[" << GetString(r.def->titleId) << "]" << (r.open ? "" : " (closed)") << '\n';
    if (!r.open && !closedToo) continue;
    for (const ControlState& c : r.controls) {
      const ControlDef& d = *c.def;
      if (d.kind == Kind::GroupBox || d.kind == Kind::Edit) continue;
      if (d.kind == Kind::Static && d.id == IDC_STATIC) continue;
      o << "  " << d.id << ' ' << KindName(d.kind);
      const ControlDef* label = nullptr;
      if (d.kind == Kind::Spinner) label = r.def->Find(d.buddy);
      std::string cap = d.Caption();
      if (!cap.empty() && d.kind != Kind::PickButton) o << " \"" << cap << '"';
      switch (d.kind) {
        case Kind::CheckBox:
        case Kind::CheckButton:
        case Kind::Radio:
          o << (c.checked ? " [x]" : " [ ]");
          break;
        case Kind::Spinner:
          o << " = " << (label ? Control(label->id).text : std::string());
          break;
        case Kind::DropDown:
          o << " = "
            << (c.current >= 0 && c.current < static_cast<int>(c.items.size()) ? c.items[c.current]
                                                                               : std::string("-"));
          break;
        case Kind::ListBox:
          o << " {";
          for (size_t i = 0; i < c.items.size(); ++i)
            o << (i ? ", " : "") << (c.selected[i] ? "*" : "") << c.items[i];
          o << "}";
          break;
        case Kind::Status:
        case Kind::PickButton:
          o << " \"" << c.text << '"';
          break;
        default:
          break;
      }
      if (!c.enabled) o << " (disabled)";
      o << '\n';
    }
  }
  return o.str();
}

}  // namespace kv::ui
