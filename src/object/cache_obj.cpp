#include "object/cache_obj.h"

#include <algorithm>
#include <cstdio>

#include "cache/reader.h"
#include "cache/registry.h"
#include "groups/group_ops.h"
#include "object/object_io.h"
#include "object/restore_selection.h"
#include "res/strings.h"

namespace kv {

using KelvaneTools::ElementFrameState;
using KelvaneTools::FrameSettings;
using KelvaneTools::kvCacheReader;
using KelvaneTools::LoadType;
namespace P = param;

namespace {

// Parameters whose change recomputes triggers (while `triggerInteractive` is on).
bool IsTriggerParam(int id) {
  switch (id) {
    case P::kPlayInORT:
    case P::kPlayOutORT:
    case P::kTriggerMode:
    case P::kTriggerInteractive:
    case P::kTriggerSteps:
    case P::kVpDeleteObjects:
      return true;
    default:
      return false;
  }
}

// Playback parameters that stop mattering once the graph drives the cache frame.
bool IsPlaybackParam(int id) {
  switch (id) {
    case P::kScaleUnits:
    case P::kPlayStart:
    case P::kPlaySpeed:
    case P::kPlayFPS:
    case P::kPlaySpeedSteps:
    case P::kPlayReverse:
      return true;
    default:
      return false;
  }
}

bool IsRefreshOnly(int id) {
  switch (id) {
    case P::kPlayUseGraph:
    case P::kVpDisplayCache:
    case P::kTriggerMode:
    case P::kExplodeReduce:
    case P::kExplodeTo:
    case P::kVpDeleteObjects:
      return true;
    default:
      return false;
  }
}

}  // namespace

kvCache_obj::kvCache_obj(host::Interface& ip, KelvaneTools::kvCacheRegistry& registry, bool forLoad)
    : ip_(ip), registry_(registry), params_(std::make_unique<ParamBlock>(ip)) {
  state_.owner = this;
  gizmo_ = ip_.NewControl(host::ControlKind::Matrix);
  createdForLoad_ = forLoad;
  if (!forLoad) {
    params_->ApplyCreationDefaults();
    newlyCreated_ = true;
  }
  params_->ApplySceneFrameRate();
  Wire();
}

kvCache_obj::~kvCache_obj() {
  registry_.Release(&state_);
}

void kvCache_obj::Wire() {
  params_->SetChangeCallback([this](int id) { OnParamChanged(id); });
  params_->SetAccessor(this);
}

// ---------------------------------------------------------------------------------------------
// references

host::Control* kvCache_obj::Gizmo() {
  if (!gizmo_) gizmo_ = ip_.NewControl(host::ControlKind::Matrix);
  return gizmo_.get();
}

void kvCache_obj::SetGizmo(TimeValue t, const Matrix3& tm) {
  host::Control* g = Gizmo();
  if (!g) return;
  g->SetValue(t, tm, ip_.IsAnimateMode());
  NotifyRefChanged(kRefGizmo, RefMessage::Change);
}

void kvCache_obj::AdoptGizmo(std::unique_ptr<host::Control> c) {
  gizmo_ = std::move(c);
  if (gizmo_) OnGizmoChanged();
}

RefResult kvCache_obj::NotifyRefChanged(int ref, RefMessage msg) {
  if (msg == RefMessage::StopA || msg == RefMessage::StopB || msg == RefMessage::StopC) {
    return RefResult::Stop;
  }
  if (msg != RefMessage::Change) return RefResult::Succeed;
  if (ref == kRefParams) {
    OnParamChanged(params_->LastChangedId());
  } else if (ref == kRefGizmo) {
    OnGizmoChanged();
  }
  return RefResult::Succeed;
}

void kvCache_obj::OnGizmoChanged() {
  if (params_->GetBool(P::kTriggerInteractive) && params_->GetInt(P::kTriggerMode) == 1) {
    FlagTriggers();
    InvalidateAndNotify();
  }
}

void kvCache_obj::OnParamChanged(int id) {
  if (id < 0 || id == P::kNodes) return;
  const ParamBlock& pb = *params_;
  const bool graph = pb.GetBool(P::kPlayUseGraph);
  const int mode = pb.GetInt(P::kTriggerMode);

  if (pb.GetBool(P::kTriggerInteractive)) {
    const bool trigger = IsTriggerParam(id) || (id == P::kTriggerOmni && mode == 2) ||
                         (IsPlaybackParam(id) && !graph && mode >= 1);
    if (trigger) {
      FlagTriggers();
      InvalidateAndNotify();
    }
  }

  const bool full = ((IsPlaybackParam(id) || id == P::kVpDisplayCache) && !graph) ||
                    id == P::kPlayUseGraph || (id == P::kPlayFrame && graph) ||
                    id == P::kElementFrames;
  if (full) InvalidateAndNotify();

  switch (id) {
    case P::kVpBoxMode:
    case P::kVpInterpolate:
    case P::kVpHideObjects:
    case P::kLoadTypeLocal: {
      // Only the mesh is stale: the element times stay valid.
      const FrameSettings s = EvalSettings(false);
      state_.settings.boxMode = s.boxMode;
      state_.settings.interpolate = s.interpolate;
      state_.settings.hideInvisible = s.hideInvisible;
      lastBuildTime_ = -1;
      meshValidity_.SetEmpty();
      ip_.NotifyDependents(this, host::kPartAll);
      break;
    }
    case P::kRecStart:
    case P::kRecEnd:
      OnRangeChanged(P::kRecStart, P::kRecEnd, id);
      break;
    case P::kExplodeStart:
    case P::kExplodeEnd:
      OnRangeChanged(P::kExplodeStart, P::kExplodeEnd, id);
      break;
    case P::kFileName:
      FileNameChanged();
      break;
    default:
      break;
  }
  if (IsRefreshOnly(id)) RefreshUi(kRefreshParams);
}

void kvCache_obj::OnRangeChanged(int startId, int endId, int changedId) {
  // Undo and redo put back each end exactly as it was; the other end has its own record.
  if (adjustingRange_ || params_->Restoring()) return;
  const int otherId = changedId == startId ? endId : startId;
  const int v = params_->GetInt(changedId);
  const int other = params_->GetInt(otherId);
  const bool isStart = changedId == startId;
  int want = other;
  if (isStart ? v > other : v < other) {
    want = v;  // the moved end wins and pushes the other along
  } else if (rangeDrag_.id == changedId) {
    // A spinner drag coming back: the pushed end follows it home, and no further.
    const int home = rangeDrag_.other;
    if (isStart && other > home) want = std::max(home, v);
    if (!isStart && other < home) want = std::min(home, v);
  }
  if (want == other) return;
  adjustingRange_ = true;
  params_->SetInt(otherId, 0, want);
  adjustingRange_ = false;
}

void kvCache_obj::SetRangeDrag(int id, int otherValue) {
  switch (id) {
    case P::kRecStart:
    case P::kRecEnd:
    case P::kExplodeStart:
    case P::kExplodeEnd:
      rangeDrag_ = {id, otherValue};
      break;
    default:
      rangeDrag_ = {};
      break;
  }
}

void kvCache_obj::FileNameChanged() {
  PutGroupsRestore(*this);
  registry_.Release(&state_);
  state_.scratch.Reset();
  seenGeneration_ = 0;
  selection_.clear();
  FlagTriggers();
  InvalidateAndNotify();
  RefreshUi(kRefreshParams | kRefreshFileInfo | kRefreshGroups);
}

void kvCache_obj::Invalidate() {
  // The last build time goes too: a change must rebuild even at the time last built.
  state_.validity.SetEmpty();
  meshValidity_.SetEmpty();
  lastBuildTime_ = -1;
}

void kvCache_obj::InvalidateAndNotify() {
  Invalidate();
  ip_.NotifyDependents(this, host::kPartAll);
}

void kvCache_obj::ResizeElementFrames(int32_t count) {
  params_->SetCount(P::kElementFrames, count);
}

void kvCache_obj::DeleteElementFrame(int32_t index) {
  params_->Delete(P::kElementFrames, index, 1);
}

std::vector<int32_t> kvCache_obj::ElementSelection() const {
  return {selection_.begin(), selection_.end()};
}

void kvCache_obj::SetElementSelection(const std::vector<int32_t>& elements) {
  PutSelectionRestore();
  selection_.clear();
  for (const int32_t e : elements) {
    if (e >= 0) selection_.insert(static_cast<uint32_t>(e));
  }
  SelectionChanged();
}

std::string kvCache_obj::GetEntryName(int id, int index) const {
  return id == P::kElementFrames ? ElementFrameName(state_.groups, index) : std::string();
}

// ---------------------------------------------------------------------------------------------
// mesh evaluation

FrameSettings kvCache_obj::EvalSettings(bool render) const {
  const ParamBlock& pb = *params_;
  FrameSettings s;
  if (render) {
    s.boxMode = pb.GetBool(P::kRendBoxMode);
    s.interpolate = pb.GetBool(P::kRendInterpolate);
    s.deleteInvisible = !pb.GetBool(P::kRendDontDelete);
    s.hideInvisible = false;
    s.playbackIdle = true;
    s.hiddenMatId = pb.GetInt(P::kRendMatID) - 1;
    s.applyHiddenMatId = pb.GetBool(P::kRendApplyMatID);
  } else {
    // Deleting rebuilds topology, too slow while the animation plays: hide instead then.
    const bool playing = ip_.IsAnimPlaying();
    const bool del = pb.GetBool(P::kVpDeleteObjects);
    s.boxMode = pb.GetBool(P::kVpBoxMode);
    s.interpolate = pb.GetBool(P::kVpInterpolate);
    s.deleteInvisible = del && !playing;
    s.hideInvisible = (!del || playing) && pb.GetBool(P::kVpHideObjects);
    s.playbackIdle = !playing;
    s.hiddenMatId = -1;
    s.applyHiddenMatId = false;
  }
  s.unitScale = pb.GetFloat(P::kScaleUnits, 0);
  s.loadType = static_cast<LoadType>(std::clamp(pb.GetInt(P::kLoadTypeLocal), 0, 2));
  return s;
}

void kvCache_obj::EmptyMesh() {
  mesh_.FreeAll();
  mesh_.InvalidateTopologyCache();
  state_.scratch.Reset();
  meshValid_ = false;
  meshValidity_.SetEmpty();
  lastBuildTime_ = -1;
}

bool kvCache_obj::PreloadProgress(void* self, uint32_t done, uint32_t total) {
  auto* o = static_cast<kvCache_obj*>(self);
  const int percent = total ? static_cast<int>(uint64_t{done} * 100 / total) : 100;
  char text[128];
  std::snprintf(text, sizeof text, res::LoadString(res::IDS_READING_CACHE).data(), percent);
  o->status_ = text;
  o->ip_.SetStatusText(o->status_);
  o->ip_.ProgressUpdate(percent, std::string(res::LoadString(res::IDS_LOADING)));
  return !o->ip_.GetEscPressed();
}

void kvCache_obj::BuildMesh(TimeValue t, bool forRender) {
  if (meshValidity_.InInterval(t)) {
    lastBuildTime_ = t;
    return;
  }
  if (t == lastBuildTime_) {
    meshValidity_.SetInstant(t);
    return;
  }
  const bool render = renderState_ || forRender || ip_.IsRendering();
  const bool netServer = ip_.IsNetServer();
  if (!render && !params_->GetBool(P::kVpDisplayCache)) {
    if (mesh_.numVerts() == 0 && mesh_.numFaces() == 0) return;
    mesh_.FreeAll();
    mesh_.InvalidateTopologyCache();
    state_.scratch.Reset();
    return;
  }

  LoadType mode;
  if (netServer) {
    mode = params_->GetInt(P::kLoadTypeSlave) == 1 ? LoadType::PreLoad : LoadType::PerSample;
  } else {
    mode = static_cast<LoadType>(std::clamp(params_->GetInt(P::kLoadTypeLocal), 0, 2));
  }

  const std::string& name = params_->GetString(P::kFileName);
  const std::string path = name.empty() ? std::string() : ip_.ResolveAssetPath(name);
  kvCacheReader* reader = nullptr;
  bool progressShown = false;
  if (!path.empty()) {
    reader = registry_.Acquire(&state_, path).reader;
    if (reader && !reader->InError()) {
      reader->SetKeepOpen(mode != LoadType::PerSample);
      if (mode == LoadType::PreLoad && reader->HasIndex() && !reader->AllSamplesLoaded()) {
        reader->SetProgressCallback(&PreloadProgress, this);
        ip_.ProgressStart(std::string(res::LoadString(res::IDS_LOADING)));
        progressShown = true;
        reader->LoadAllSamples();
        reader->SetProgressCallback(nullptr, nullptr);
      }
    }
  }

  bool ok = false;
  bool newlyOpened = false;
  if (reader && !reader->InError() && reader->HasIndex()) {
    newlyOpened = reader->Generation() != seenGeneration_;
    seenGeneration_ = reader->Generation();
    ComputePlaybackState(t, *reader, render);
    FrameSettings& s = state_.settings;
    s = EvalSettings(render);
    s.inOrt = state_.pass.inORT;
    s.outOrt = state_.pass.outORT;
    s.reverse = state_.pass.reverse;
    s.loadType = mode;
    ok = reader->ReadFrame(mesh_, state_.frame, s, state_.scratch, newlyOpened);

    // A node showing a freshly opened cache gets the cache's material, unless it has one.
    host::MtlLib* lib = reader->MaterialLibrary();
    if (newlyOpened && lib && lib->Count() > 0) {
      host::Mtl* mtl = lib->At(0);
      for (host::Node* n : ip_.NodesReferencing(this)) {
        if (n && !n->IsDeleted() && n->GetMtl() != mtl && !n->GetMtl()) n->SetMtl(mtl);
      }
    }
  }

  if (ok) {
    meshValidity_.SetInstant(t);
    lastBuildTime_ = t;
    meshValid_ = true;
  } else {
    EmptyMesh();
  }
  if (progressShown) ip_.ProgressEnd();
  if (newlyOpened) RefreshUi(kRefreshFileInfo);
  createdForLoad_ = false;
}

bool kvCache_obj::GetTriMesh(TimeValue t, bool render, Mesh& out) {
  BuildMesh(t, render);
  out = mesh_;
  return mesh_.numFaces() > 0;
}

void kvCache_obj::RenderBegin() {
  renderState_ = true;
  FlagTriggers();
  InvalidateAndNotify();
}

void kvCache_obj::RenderEnd() {
  renderState_ = false;
  FlagTriggers();
  InvalidateAndNotify();
}

kvCacheReader* kvCache_obj::Reader() const {
  return registry_.Find(const_cast<PlaybackState*>(&state_));
}

// ---------------------------------------------------------------------------------------------
// playback

void kvCache_obj::ComputePlaybackState(TimeValue t, kvCacheReader& reader, bool forRender) {
  if (state_.validity.InInterval(t)) return;
  (void)forRender;
  const ParamBlock& pb = *params_;
  const int mode = pb.GetInt(P::kTriggerMode);
  if (mode > 0 && !pb.GetBool(P::kTriggerInteractive) && t == ip_.GetAnimRange().Start()) {
    FlagTriggers();
  }

  const int n = reader.NumElements();
  state_.triggerTimes.resize(n, kNotTriggered);
  state_.frame.resize(n);
  EvaluateTriggers(t, reader);

  PlaybackSettings p;
  p.useGraph = pb.GetBool(P::kPlayUseGraph);
  p.frame = pb.GetFloat(P::kPlayFrame, t);
  p.start = pb.GetInt(P::kPlayStart);
  p.speed = pb.GetFloat(P::kPlaySpeed, t);
  // A speed with a controller integrates even when its keys have all been deleted.
  if (host::Control* c = pb.GetController(P::kPlaySpeed); c && pb.IsControlled(P::kPlaySpeed)) {
    p.speedAt = [c](TimeValue u) { return c->GetFloat(u); };
  }
  p.fps = pb.GetInt(P::kPlayFPS, t);
  p.speedSteps = pb.GetInt(P::kPlaySpeedSteps);
  p.reverse = pb.GetBool(P::kPlayReverse);
  p.inORT = pb.GetInt(P::kPlayInORT);
  p.outORT = pb.GetInt(P::kPlayOutORT);

  const SceneTiming scene{ip_.GetTicksPerFrame(), ip_.GetFrameRate()};
  const CacheTiming cache{reader.FrameRate(), reader.NumSamples(), n};

  // Group rules point straight at the groups' element vectors: no copies per pass.
  const ElementGroupList& groups = state_.groups;
  state_.rules.resize(groups.count());
  for (int32_t i = 0; i < groups.count(); ++i) {
    const ElementGroup& g = groups.at(i);
    GroupRule& r = state_.rules[i];
    r.enabled = g.enabled != 0;
    r.mode = g.mode;
    r.delay = g.delay;
    r.matIndex = g.matIndex;
    r.trigger = g.trigger != 0;
    r.deleteByDistance = g.deleteByDistance != 0;
    r.deleteDistance = g.deleteDistance;
    r.deleteByAge = g.deleteByAge != 0;
    r.deleteAge = g.deleteAge;
    r.frame = i < pb.Count(P::kElementFrames) ? pb.GetListFloat(P::kElementFrames, i, t) : 0.0f;
    r.elements = g.elements();
  }

  state_.pass = ComputeElementTimes(t, p, scene, cache, state_.triggersActive, state_.rules,
                                    state_.triggerTimes, state_.distance,
                                    std::span<ElementFrameState>(state_.frame), &ip_);

  FrameSettings s = EvalSettings(forRender);
  s.inOrt = state_.pass.inORT;
  s.outOrt = state_.pass.outORT;
  s.reverse = state_.pass.reverse;

  if (!state_.distance.empty()) {
    reader.LoadSamplesForElements(state_.frame, s, state_.scratch);
    host::Control* g = Gizmo();
    const Point3 centre = g ? g->GetMatrix(t).GetTrans() : Point3{};
    ApplyDistanceDeletion(
        std::span<const DistanceCheck>(state_.distance), centre,
        [&](int32_t e) { return reader.ElementTransform(e, state_.frame[e]).GetTrans(); },
        std::span<ElementFrameState>(state_.frame));
  }
  state_.validity.SetInstant(t);
}

bool kvCache_obj::TriggerVolumeAt(TimeValue u, TriggerVolume& out) const {
  const int mode = params_->GetInt(P::kTriggerMode);
  if (mode == 1) {
    if (!gizmo_) return false;
    out = {gizmo_->GetMatrix(u), kGizmoTriggerRadius};
    return true;
  }
  host::Node* light = params_->GetNode(P::kTriggerOmni);
  host::Object* obj = light ? light->GetObjectRef() : nullptr;
  if (!obj || obj->GetClassId() != host::kOmniLightClassId) return false;
  Matrix3 tm = light->GetObjectTM(u);
  for (host::Node* n : ip_.NodesReferencing(this)) {
    if (n && !n->IsDeleted()) {
      tm = tm * Inverse(n->GetObjectTM(u));
      break;
    }
  }
  out = {tm, obj->GetFarAttenEnd(u)};
  return true;
}

void kvCache_obj::EvaluateTriggers(TimeValue t, kvCacheReader& reader) {
  (void)t;
  if (!state_.triggerRecompute) return;
  state_.triggerRecompute = false;
  state_.triggersActive = false;
  ResetTriggers(state_.triggerTimes);
  const int n = reader.NumElements();
  state_.hits.assign(n, TriggerHit{});
  const ParamBlock& pb = *params_;
  const int mode = pb.GetInt(P::kTriggerMode);
  if (n == 0 || mode == 0) return;

  const bool graph = pb.GetBool(P::kPlayUseGraph);
  const int tpf = ip_.GetTicksPerFrame();
  const TriggerScanSettings range = ScanRange(ip_.GetAnimRange(), graph, pb.GetInt(P::kPlayStart),
                                              tpf, pb.GetInt(P::kTriggerSteps));
  TriggerVolume probe;
  if (mode == 2 && !TriggerVolumeAt(range.u0, probe)) return;
  if (mode == 1 && !Gizmo()) return;

  // Rest positions: the first sample, or the last when playing backwards.
  const int32_t sample =
      pb.GetBool(P::kPlayReverse) && !graph ? std::max(reader.NumSamples() - 1, 0) : 0;
  if (!reader.LoadSample(sample, reader.KeepOpen())) return;
  state_.positions.resize(n);
  for (int i = 0; i < n; ++i) state_.positions[i] = reader.SampleTransform(i, sample).GetTrans();

  ip_.ProgressStart(std::string());
  const int64_t span = std::max<int64_t>(int64_t{range.u1} - range.u0, 1);
  const bool done = ScanTriggers(
      range, state_.positions,
      [&](TimeValue u) {
        TriggerVolume v;
        TriggerVolumeAt(u, v);
        return v;
      },
      [&](TimeValue u) {
        ip_.ProgressUpdate(static_cast<int>((int64_t{u} - range.u0) * 100 / span), std::string());
        return ip_.GetEscPressed();
      },
      state_.triggerTimes, state_.hits);
  ip_.ProgressEnd();
  state_.triggersActive = done;
}

// ---------------------------------------------------------------------------------------------
// element selection

void kvCache_obj::PutSelectionRestore() {
  host::Hold& hold = ip_.GetHold();
  if (!hold.Holding()) return;
  hold.Put(std::make_unique<Restore_Selection>(*this, ip_.GetTime()));
  selectionHeld_ = true;
}

void kvCache_obj::SelectionChanged() {
  lastBuildTime_ = -1;
  Invalidate();
  ip_.NotifyDependents(this, host::kPartAll);
  ip_.RedrawViews(ip_.GetTime());
  ip_.NotifyDependents(this, host::kPartSelect | host::kPartDisplay);
}

void kvCache_obj::SelectSubComponent(std::span<const uint32_t> hits, bool selected, bool all) {
  PutSelectionRestore();
  for (const uint32_t e : hits) {
    if (selected) {
      selection_.insert(e);
    } else {
      selection_.erase(e);
    }
    if (!all) break;
  }
  SelectionChanged();
}

void kvCache_obj::ClearSelection() {
  PutSelectionRestore();
  selection_.clear();
  SelectionChanged();
}

void kvCache_obj::SelectAll() {
  PutSelectionRestore();
  if (kvCacheReader* r = Reader(); r && r->HasIndex()) {
    for (int i = 0; i < r->NumElements(); ++i) selection_.insert(static_cast<uint32_t>(i));
  }
  SelectionChanged();
}

void kvCache_obj::InvertSelection() {
  PutSelectionRestore();
  std::set<uint32_t> inverted;
  if (kvCacheReader* r = Reader(); r && r->HasIndex()) {
    for (int i = 0; i < r->NumElements(); ++i) {
      if (!selection_.count(static_cast<uint32_t>(i))) inverted.insert(static_cast<uint32_t>(i));
    }
  }
  selection_ = std::move(inverted);
  SelectionChanged();
}

void kvCache_obj::RestoreSelection(std::set<uint32_t> s) {
  selection_ = std::move(s);
  SelectionChanged();
}

// ---------------------------------------------------------------------------------------------
// lifecycle

std::unique_ptr<host::Object> kvCache_obj::Clone() const {
  auto c = std::make_unique<kvCache_obj>(ip_, registry_, true);
  c->params_ = params_->Clone();
  c->Wire();
  c->gizmo_ = gizmo_ ? gizmo_->Clone() : nullptr;
  c->selection_ = selection_;
  c->state_.groups = state_.groups;
  c->status2_ = status2_;
  // Built as for loading, the clone keeps the created-for-load flag until its first build.
  c->FlagTriggers();
  c->InvalidateAndNotify();
  return c;
}

bool kvCache_obj::Save(host::ISave& s) const {
  s.BeginChunk(kChunkParams);
  if (!params_->Save(s)) return false;
  s.EndChunk();
  s.BeginChunk(kChunkGizmo);
  if (!SaveController(s, gizmo_.get())) return false;
  s.EndChunk();

  BitArray bits;
  kvCacheReader* r = Reader();
  if (r && r->HasIndex() && !r->InError() && r->NumElements() > 0) {
    const int n = r->NumElements();
    bits.SetSize(n);
    for (const uint32_t e : selection_) {
      if (e < static_cast<uint32_t>(n)) bits.Set(static_cast<int>(e));
    }
    // Elements the cache does not have leave the groups themselves, not only the saved copy,
    // so what the object holds stays what it saved. This is the one change saving makes.
    const_cast<ElementGroupList&>(state_.groups).trimToElementCount(n);
  }
  s.BeginChunk(kChunkSelection);
  if (!SaveBitArray(s, bits)) return false;
  s.EndChunk();
  s.BeginChunk(kChunkGroups);
  if (!state_.groups.save(s, ip_)) return false;
  s.EndChunk();
  return true;
}

host::IOResult kvCache_obj::Load(host::ILoad& l) {
  selection_.clear();
  BitArray bits;
  host::IOResult res;
  while ((res = l.OpenChunk()) == host::IOResult::Ok) {
    switch (l.CurChunkID()) {
      case kChunkParams:
        res = params_->Load(l);
        break;
      case kChunkGizmo:
        res = LoadController(l, Gizmo());
        break;
      case kChunkSelection:
        res = LoadBitArray(l, bits);
        break;
      case kChunkGroups: {
        // Groups the loader cannot take (an older record) leave the list empty; the user has
        // been told, and the rest of the object still loads. A damaged record is a read error.
        bool incompatible = false;
        res = state_.groups.load(l, ip_, &incompatible);
        if (incompatible) res = host::IOResult::Ok;
        break;
      }
      default:
        break;
    }
    if (res != host::IOResult::Ok) return res;
    if ((res = l.CloseChunk()) != host::IOResult::Ok) return res;
  }
  if (res != host::IOResult::End) return res;
  bits.ForEachSet([&](int i) { selection_.insert(static_cast<uint32_t>(i)); });
  FlagTriggers();
  Invalidate();
  return host::IOResult::Ok;
}

}  // namespace kv
