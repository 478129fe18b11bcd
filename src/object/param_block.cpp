#include "object/param_block.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "groups/chunk_io.h"

namespace kv {

using param::ParamDef;
using param::Type;

// Undo record of one parameter: the whole slot before the change, and after it on undo.
class Restore_Param : public host::RestoreObj {
 public:
  Restore_Param(ParamBlock& pb, int id) : pb_(pb), id_(id), undo_(pb.CopySlot(pb.slots_[id])) {}

  void Restore(bool isUndo) override {
    if (isUndo) {
      redo_ = pb_.CopySlot(pb_.slots_[id_]);
      haveRedo_ = true;
    }
    pb_.slots_[id_] = pb_.CopySlot(undo_);
    pb_.ChangedByRestore(id_);
  }
  void Redo() override {
    if (!haveRedo_) return;
    pb_.slots_[id_] = pb_.CopySlot(redo_);
    pb_.ChangedByRestore(id_);
  }
  int Size() const override {
    return static_cast<int>(sizeof(*this) + (undo_.entries.size() + redo_.entries.size()) *
                                                sizeof(ParamBlock::Entry));
  }

 private:
  ParamBlock& pb_;
  int id_;
  ParamBlock::Slot undo_, redo_;
  bool haveRedo_ = false;
};

ParamBlock::ParamBlock(host::Interface& ip) : ip_(ip) {
  for (const ParamDef& d : param::ParamDefs()) SetDefault(d);
}

ParamBlock::~ParamBlock() = default;

ParamBlock::Entry ParamBlock::MakeEntry(const ParamDef& d) const {
  Entry e;
  e.i = static_cast<int>(d.def);
  e.f = static_cast<float>(d.def);
  if (d.Animatable()) {
    e.ctrl = ip_.NewControl(host::ControlKind::Float);
    if (e.ctrl) e.ctrl->SetValue(0, e.f, false);
  }
  return e;
}

void ParamBlock::SetDefault(const ParamDef& d) {
  Slot& s = slots_[d.id];
  s.entries.clear();
  s.str.clear();
  if (!(d.flags & param::kVariableSize)) s.entries.push_back(MakeEntry(d));
}

ParamBlock::Slot ParamBlock::CopySlot(const Slot& s) const {
  Slot c;
  c.str = s.str;
  c.entries.reserve(s.entries.size());
  for (const Entry& e : s.entries) {
    Entry n;
    n.i = e.i;
    n.f = e.f;
    n.node = e.node;
    n.pendingName = e.pendingName;
    n.controlled = e.controlled;
    if (e.ctrl) n.ctrl = e.ctrl->Clone();
    c.entries.push_back(std::move(n));
  }
  return c;
}

std::unique_ptr<ParamBlock> ParamBlock::Clone() const {
  auto c = std::make_unique<ParamBlock>(ip_);
  for (int id = 0; id < param::kNumParams; ++id) c->slots_[id] = CopySlot(slots_[id]);
  return c;
}

ParamBlock::Entry* ParamBlock::At(int id, int index) {
  if (id < 0 || id >= param::kNumParams || index < 0) return nullptr;
  auto& v = slots_[id].entries;
  return index < static_cast<int>(v.size()) ? &v[index] : nullptr;
}

const ParamBlock::Entry* ParamBlock::At(int id, int index) const {
  return const_cast<ParamBlock*>(this)->At(id, index);
}

host::Node* ParamBlock::ResolveNode(const Entry& e) const {
  if (!e.pendingName.empty()) {
    e.node = ip_.GetNodeByName(e.pendingName);
    if (e.node) e.pendingName.clear();
  }
  return e.node;
}

// ---- reading

float ParamBlock::GetFloat(int id, TimeValue t) const {
  const ParamDef* d = Def(id);
  const Entry* e = At(id, 0);
  if (!d || !e || !d->IsNumeric()) return 0.0f;
  if (e->ctrl) return e->ctrl->GetFloat(t);
  return d->IsIntLike() ? static_cast<float>(e->i) : e->f;
}

int ParamBlock::GetInt(int id, TimeValue t) const {
  const ParamDef* d = Def(id);
  const Entry* e = At(id, 0);
  if (!d || !e || !d->IsNumeric()) return 0;
  if (d->IsIntLike() && !e->ctrl) return e->i;
  return static_cast<int>(std::lround(GetFloat(id, t)));
}

const std::string& ParamBlock::GetString(int id) const {
  static const std::string kEmpty;
  const ParamDef* d = Def(id);
  return d && d->type == Type::FileName ? slots_[id].str : kEmpty;
}

int ParamBlock::Count(int id) const {
  if (!Def(id)) return 0;
  if (Def(id)->type == Type::FileName) return 1;
  return static_cast<int>(slots_[id].entries.size());
}

host::Node* ParamBlock::GetNode(int id, int index) const {
  const ParamDef* d = Def(id);
  const Entry* e = At(id, index);
  if (!d || !e || (d->type != Type::Node && d->type != Type::NodeList)) return nullptr;
  return ResolveNode(*e);
}

float ParamBlock::GetListFloat(int id, int index, TimeValue t) const {
  const ParamDef* d = Def(id);
  const Entry* e = At(id, index);
  if (!d || !e || d->type != Type::FloatList) return 0.0f;
  return e->ctrl ? e->ctrl->GetFloat(t) : e->f;
}

host::Control* ParamBlock::GetController(int id, int index) const {
  const Entry* e = At(id, index);
  return e ? e->ctrl.get() : nullptr;
}

bool ParamBlock::IsControlled(int id, int index) const {
  const Entry* e = At(id, index);
  if (!e || !e->ctrl) return false;
  // Keys made on the controller directly count as soon as they are seen.
  if (e->ctrl->NumKeys() > 0) e->controlled = true;
  return e->controlled;
}

std::string ParamBlock::GetEntryName(int id, int index) const {
  return accessor_ ? accessor_->GetEntryName(id, index) : std::string();
}

int ParamBlock::IdOfScriptName(std::string_view name) {
  const ParamDef* d = param::FindParamByScriptName(name);
  return d ? d->id : -1;
}

// ---- writing

void ParamBlock::BeforeChange(int id) {
  host::Hold& h = ip_.GetHold();
  if (h.Holding()) h.Put(std::make_unique<Restore_Param>(*this, id));
}

void ParamBlock::Changed(int id) {
  lastChanged_ = id;
  if (onChange_) onChange_(id);
}

void ParamBlock::ChangedByRestore(int id) {
  const bool was = restoring_;
  restoring_ = true;
  Changed(id);
  restoring_ = was;
}

float ParamBlock::ClampFloat(const ParamDef& d, float v) const {
  if (!d.HasLimits()) return v;
  return std::clamp(v, static_cast<float>(d.lo), static_cast<float>(d.hi));
}

int ParamBlock::ClampInt(const ParamDef& d, int v) const {
  if (d.HasLimits()) return std::clamp(v, static_cast<int>(d.lo), static_cast<int>(d.hi));
  if (d.type == Type::Bool) return v != 0 ? 1 : 0;
  return v;
}

void ParamBlock::WriteNumeric(const ParamDef& d, Entry& e, TimeValue t, double v, bool makeKey) {
  if (d.IsIntLike()) {
    // Round rather than truncate so 2.9999 from a float computation stays 3.
    const double r = std::clamp(std::round(v), -2147483648.0, 2147483647.0);
    e.i = ClampInt(d, static_cast<int>(r));
    if (e.ctrl) e.ctrl->SetValue(t, static_cast<float>(e.i), makeKey);
  } else {
    e.f = ClampFloat(d, static_cast<float>(v));
    if (e.ctrl) e.ctrl->SetValue(t, e.f, makeKey);
  }
  if (e.ctrl && makeKey) e.controlled = true;
}

bool ParamBlock::SetInt(int id, TimeValue t, int v) {
  const ParamDef* d = Def(id);
  if (!d || !d->IsNumeric()) return false;
  BeforeChange(id);
  WriteNumeric(*d, *At(id, 0), t, v, d->Animatable() && ip_.IsAnimateMode());
  Changed(id);
  return true;
}

bool ParamBlock::SetFloat(int id, TimeValue t, float v) {
  const ParamDef* d = Def(id);
  if (!d || !d->IsNumeric() || std::isnan(v)) return false;
  BeforeChange(id);
  WriteNumeric(*d, *At(id, 0), t, v, d->Animatable() && ip_.IsAnimateMode());
  Changed(id);
  return true;
}

bool ParamBlock::SetString(int id, std::string_view s) {
  const ParamDef* d = Def(id);
  if (!d || d->type != Type::FileName) return false;
  BeforeChange(id);
  slots_[id].str.assign(s);
  Changed(id);
  return true;
}

bool ParamBlock::SetListNode(int id, int index, host::Node* n) {
  const ParamDef* d = Def(id);
  Entry* e = At(id, index);
  if (!d || !e || (d->type != Type::Node && d->type != Type::NodeList)) return false;
  BeforeChange(id);
  e->node = n;
  e->pendingName.clear();
  Changed(id);
  return true;
}

bool ParamBlock::SetListFloat(int id, int index, TimeValue t, float v) {
  const ParamDef* d = Def(id);
  Entry* e = At(id, index);
  if (!d || !e || d->type != Type::FloatList || std::isnan(v)) return false;
  BeforeChange(id);
  WriteNumeric(*d, *e, t, v, d->Animatable() && ip_.IsAnimateMode());
  Changed(id);
  return true;
}

bool ParamBlock::SetCount(int id, int n) {
  const ParamDef* d = Def(id);
  if (!d || !(d->flags & param::kVariableSize) || n < 0) return false;
  auto& v = slots_[id].entries;
  if (static_cast<int>(v.size()) == n) return true;
  BeforeChange(id);
  if (n < static_cast<int>(v.size())) {
    v.resize(n);
  } else {
    ParamDef zero = *d;
    zero.def = 0.0;
    v.reserve(n);
    while (static_cast<int>(v.size()) < n) v.push_back(MakeEntry(zero));
  }
  Changed(id);
  return true;
}

bool ParamBlock::Append(int id, host::Node* n) {
  const ParamDef* d = Def(id);
  if (!d || d->type != Type::NodeList) return false;
  BeforeChange(id);
  Entry e;
  e.node = n;
  slots_[id].entries.push_back(std::move(e));
  Changed(id);
  return true;
}

bool ParamBlock::Delete(int id, int start, int num) {
  const ParamDef* d = Def(id);
  if (!d || !(d->flags & param::kVariableSize) || start < 0 || num < 0) return false;
  auto& v = slots_[id].entries;
  if (start + static_cast<int64_t>(num) > static_cast<int64_t>(v.size())) return false;
  if (num == 0) return true;
  BeforeChange(id);
  v.erase(v.begin() + start, v.begin() + start + num);
  Changed(id);
  return true;
}

void ParamBlock::ResetAll() {
  for (const ParamDef& d : param::ParamDefs())
    if (d.flags & param::kResetDefault) Reset(d.id);
}

bool ParamBlock::Reset(int id) {
  const ParamDef* d = Def(id);
  if (!d) return false;
  BeforeChange(id);
  SetDefault(*d);
  Changed(id);
  return true;
}

// ---- creation

void ParamBlock::ApplyCreationDefaults() {
  const Interval range = ip_.GetAnimRange();
  const int tpf = std::max(1, ip_.GetTicksPerFrame());
  const int first = range.Start() / tpf;
  const int last = range.End() / tpf;
  ip_.SuspendAnimate();
  for (int id : {param::kPlayStart, param::kRecStart, param::kExplodeStart})
    WriteNumeric(*Def(id), *At(id, 0), 0, first, false);
  for (int id : {param::kRecEnd, param::kExplodeEnd})
    WriteNumeric(*Def(id), *At(id, 0), 0, last, false);
  ip_.ResumeAnimate();
}

void ParamBlock::ApplySceneFrameRate() {
  ip_.SuspendAnimate();
  WriteNumeric(*Def(param::kPlayFPS), *At(param::kPlayFPS, 0), 0, ip_.GetFrameRate(), false);
  ip_.ResumeAnimate();
}

// ---- persistence

bool ParamBlock::Save(host::ISave& s) const {
  s.BeginChunk(kChunkHeader);
  bool ok = io::WriteU32(s, kFormatVersion) && io::WriteU32(s, param::kNumParams);
  s.EndChunk();
  for (const ParamDef& d : param::ParamDefs()) {
    if (!ok) break;
    const Slot& slot = slots_[d.id];
    s.BeginChunk(kChunkParam);
    const uint32_t count = d.type == Type::FileName ? 1u : uint32_t(slot.entries.size());
    ok = io::WriteI32(s, d.id) && io::WriteU8(s, static_cast<uint8_t>(d.type)) &&
         io::WriteU32(s, count);
    if (d.type == Type::FileName) {
      ok = ok && io::WriteString(s, slot.str);
    } else {
      for (const Entry& e : slot.entries) {
        if (!ok) break;
        if (d.type == Type::Node || d.type == Type::NodeList) {
          const host::Node* n = ResolveNode(e);
          ok = io::WriteString(s, n ? n->GetName() : e.pendingName);
        } else if (d.Animatable()) {
          const host::Control* c = e.ctrl.get();
          const int keys = c ? c->NumKeys() : 0;
          const float constant = c ? c->GetFloat(0) : (d.IsIntLike() ? float(e.i) : e.f);
          ok = io::WriteF32(s, constant) && io::WriteU32(s, static_cast<uint32_t>(keys));
          for (int k = 0; ok && k < keys; ++k) {
            const TimeValue kt = c->GetKeyTime(k);
            ok = io::WriteI32(s, kt) && io::WriteF32(s, c->GetFloat(kt));
          }
        } else if (d.IsIntLike()) {
          ok = io::WriteI32(s, e.i);
        } else {
          ok = io::WriteF32(s, e.f);
        }
      }
    }
    s.EndChunk();
  }
  // Controllers whose keys were all deleted: nothing above says they exist.
  std::vector<std::pair<int32_t, uint32_t>> keyless;
  for (const ParamDef& d : param::ParamDefs()) {
    const auto& entries = slots_[d.id].entries;
    for (size_t i = 0; d.Animatable() && i < entries.size(); ++i) {
      const Entry& e = entries[i];
      if (e.ctrl && e.controlled && e.ctrl->NumKeys() == 0)
        keyless.emplace_back(d.id, static_cast<uint32_t>(i));
    }
  }
  if (ok && !keyless.empty()) {
    s.BeginChunk(kChunkKeylessControllers);
    ok = io::WriteU32(s, static_cast<uint32_t>(keyless.size()));
    for (const auto& [id, index] : keyless)
      ok = ok && io::WriteI32(s, id) && io::WriteU32(s, index);
    s.EndChunk();
  }
  return ok;
}

namespace {

// Reads one parameter chunk's entries into `slot`; false on a short read.
struct ParamReader {
  host::ILoad& l;

  bool ReadAnimated(float& constant, std::vector<std::pair<TimeValue, float>>& keys) {
    uint32_t n;
    if (!io::ReadF32(l, constant) || !io::ReadU32(l, n)) return false;
    keys.clear();
    for (uint32_t k = 0; k < n; ++k) {  // no reserve: n is not trusted
      int32_t t;
      float v;
      if (!io::ReadI32(l, t) || !io::ReadF32(l, v)) return false;
      keys.emplace_back(t, v);
    }
    return true;
  }
};

}  // namespace

host::IOResult ParamBlock::Load(host::ILoad& l) {
  using host::IOResult;
  // Values are applied only once the whole stream has been read, so a bad file changes nothing.
  std::vector<std::pair<int, Slot>> loaded;
  std::vector<std::pair<int32_t, uint32_t>> keyless;
  for (;;) {
    const IOResult open = l.OpenChunk();
    if (open == IOResult::End) break;
    if (open != IOResult::Ok) return IOResult::Error;
    if (l.CurChunkID() == kChunkKeylessControllers) {
      uint32_t n;
      if (!io::ReadU32(l, n)) return IOResult::Error;
      for (uint32_t k = 0; k < n; ++k) {  // no reserve: n is not trusted
        int32_t id;
        uint32_t index;
        if (!io::ReadI32(l, id) || !io::ReadU32(l, index)) return IOResult::Error;
        keyless.emplace_back(id, index);
      }
    } else if (l.CurChunkID() == kChunkParam) {
      int32_t id;
      uint8_t type;
      uint32_t count;
      if (!io::ReadI32(l, id) || !io::ReadU8(l, type) || !io::ReadU32(l, count))
        return IOResult::Error;
      const ParamDef* d = Def(id);
      if (d && static_cast<uint8_t>(d->type) == type) {
        Slot slot;
        bool ok = true;
        if (d->type == Type::FileName) {
          ok = count == 1 && io::ReadString(l, slot.str);
        } else {
          const bool list = d->flags & param::kVariableSize;
          if (!list && count != 1) return IOResult::Error;
          ParamReader r{l};
          std::vector<std::pair<TimeValue, float>> keys;
          for (uint32_t i = 0; ok && i < count; ++i) {
            Entry e = MakeEntry(*d);
            if (d->type == Type::Node || d->type == Type::NodeList) {
              ok = io::ReadString(l, e.pendingName);
            } else if (d->Animatable()) {
              float constant;
              ok = r.ReadAnimated(constant, keys);
              if (ok) {
                e.f = ClampFloat(*d, constant);
                e.i = static_cast<int>(std::lround(e.f));
                if (e.ctrl) {
                  e.ctrl->SetValue(0, e.f, false);
                  for (const auto& [t, v] : keys) e.ctrl->SetValue(t, v, true);
                  e.controlled = !keys.empty();
                }
              }
            } else if (d->IsIntLike()) {
              int32_t v = 0;
              ok = io::ReadI32(l, v);
              e.i = ClampInt(*d, v);
            } else {
              float v = 0.0f;
              ok = io::ReadF32(l, v) && !std::isnan(v);
              e.f = ClampFloat(*d, v);
            }
            if (ok) slot.entries.push_back(std::move(e));
          }
        }
        if (!ok) return IOResult::Error;
        loaded.emplace_back(id, std::move(slot));
      }
    }
    if (l.CloseChunk() != IOResult::Ok) return IOResult::Error;
  }
  for (auto& [id, slot] : loaded) slots_[id] = std::move(slot);
  for (const auto& [id, index] : keyless) {
    const ParamDef* d = Def(id);
    Entry* e = index <= INT32_MAX ? At(id, static_cast<int>(index)) : nullptr;
    if (d && d->Animatable() && e && e->ctrl) e->controlled = true;
  }
  return IOResult::Ok;
}

}  // namespace kv
