#include "explode/explode.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "cache/reader.h"
#include "geom/affine.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "res/strings.h"

namespace kv::explode {
namespace {

namespace P = param;
using KelvaneTools::ElementFrameState;
using KelvaneTools::FrameSettings;
using KelvaneTools::kvCacheReader;

// The three key tracks of one created node until they are handed to its PRS controller.
struct Created {
  host::Node* node = nullptr;
  int element = 0;
  std::unique_ptr<host::Control> pos, rot, scl;
  Quat prev;  // the rotation of the last key, which the next one follows
};

// Progress of one phase: the host's bar and status, the object's status field, the caller's
// sink, and Escape.
class Phase {
 public:
  Phase(host::Interface& ip, kvCache_obj& obj, const ExplodeOptions& opt, int pctTextId,
        int statusId)
      : ip_(ip), obj_(obj), opt_(opt), pctTextId_(pctTextId), status_(res::GetString(statusId)) {
    ip_.SetStatusText(status_);
  }
  ~Phase() { obj_.SetProgress(-1, -1); }
  Phase(const Phase&) = delete;
  Phase& operator=(const Phase&) = delete;

  // False when the run is to stop.
  bool Report(int64_t done, int64_t total) {
    const int percent = total > 0 ? static_cast<int>(done * 100 / total) : 100;
    obj_.SetProgress(static_cast<int>(done), static_cast<int>(total));
    if (percent != shown_) {
      shown_ = percent;
      char text[128];
      std::snprintf(text, sizeof text, res::LoadString(pctTextId_).data(), percent);
      ip_.ProgressUpdate(percent, text);
      if (opt_.progress && !opt_.progress(status_, percent)) return false;
    }
    return !ip_.GetEscPressed();
  }

 private:
  host::Interface& ip_;
  kvCache_obj& obj_;
  const ExplodeOptions& opt_;
  int pctTextId_;
  std::string status_;
  int shown_ = -1;
};

// The frame settings of one evaluation of the object's playback, as the object itself uses
// them, in box mode when boxes are what the run creates.
FrameSettings SettingsFor(const kvCache_obj& obj, bool boxMode) {
  FrameSettings s = obj.EvalSettings(false);
  const PassResult& pass = obj.Playback().pass;
  s.inOrt = pass.inORT;
  s.outOrt = pass.outORT;
  s.reverse = pass.reverse;
  s.boxMode = boxMode;
  return s;
}

// Evaluates the object's playback at t with the private reader and loads the samples that
// the elements need.
void Evaluate(kvCache_obj& obj, kvCacheReader& reader, TimeValue t, bool boxMode) {
  obj.Invalidate();
  obj.ComputePlaybackState(t, reader, false);
  PlaybackState& st = obj.Playback();
  reader.LoadSamplesForElements(st.frame, SettingsFor(obj, boxMode), st.scratch);
}

host::Node* CreateTarget(host::Interface& ip, const kvCacheReader& reader, int e, int kind,
                         host::Node* picked, const std::string& name) {
  switch (kind) {
    case kToMesh:
    case kToBox: {
      // A new mesh must not key its creation.
      ip.SuspendAnimate();
      host::Node* n = ip.CreateMeshNode(
          kind == kToBox ? reader.ElementBoxMesh(e) : reader.ElementMesh(e), name);
      ip.ResumeAnimate();
      return n;
    }
    case kToPoint:
      return ip.CreatePointHelperNode(name);
    case kToCustom: {
      host::Object* o = picked ? picked->GetObjectRef() : nullptr;
      if (!o || !o->CanConvertToTriObject()) return nullptr;
      return ip.CreateInstanceNode(picked, name);
    }
    default:
      return nullptr;
  }
}

}  // namespace

ExplodeInputs InputsFromRollout(const kvCache_obj& obj, const host::Interface& ip) {
  const ParamBlock& pb = obj.Params();
  const int tpf = ip.GetTicksPerFrame();
  ExplodeInputs in;
  in.interval = Interval(pb.GetInt(P::kExplodeStart) * tpf, pb.GetInt(P::kExplodeEnd) * tpf);
  in.step = static_cast<TimeValue>(pb.GetFloat(P::kExplodeStep) * static_cast<float>(tpf));
  in.selectedOnly = pb.GetBool(P::kExplodeSelectedOnly);
  in.reduce = pb.GetBool(P::kExplodeReduce);
  if (in.reduce) {
    in.reduceStep = tpf * static_cast<int>(pb.GetFloat(P::kExplodeReduceStep));
    in.reduceThreshold = pb.GetFloat(P::kExplodeReduceThresh);
  } else {
    in.reduceStep = tpf;
    in.reduceThreshold = kDefaultReduceThreshold;
  }
  in.fromScript = false;
  return in;
}

ExplodeInputs InputsFromScript(const Interval& interval, TimeValue stepSize, bool selectedOnly,
                               bool reduceKeys, TimeValue reduceStepSize, float reduceThresh,
                               host::Node* cacheNode) {
  ExplodeInputs in;
  in.interval = interval;
  in.step = stepSize;
  in.selectedOnly = selectedOnly;
  in.reduce = reduceKeys;
  in.reduceStep = reduceStepSize;
  in.reduceThreshold = reduceThresh;
  in.cacheNode = cacheNode;
  in.fromScript = true;
  return in;
}

std::vector<TimeValue> ExplodeSampleTimes(const Interval& interval, TimeValue step) {
  const int64_t s = std::max<int64_t>(step, 1);
  const int64_t a = interval.Start(), b = interval.End();
  std::vector<TimeValue> out;
  if (b > a) out.reserve(static_cast<size_t>((b - a) / s + 1));
  out.push_back(static_cast<TimeValue>(a));
  for (int64_t t = a + s; t <= b; t += s) out.push_back(static_cast<TimeValue>(t));
  return out;
}

ExplodeResult Explode(host::Interface& ip, kvCache_obj& obj, const ExplodeInputs& in,
                      const ExplodeOptions& opt) {
  ExplodeResult r;
  const ParamBlock& pb = obj.Params();
  const std::string& name = pb.GetString(P::kFileName);
  const std::string path = name.empty() ? std::string() : ip.ResolveAssetPath(name);
  if (path.empty()) {
    r.status = ExplodeStatus::NoFile;
    return r;
  }
  // A private reader: the shared one keeps serving the viewports as it was.
  kvCacheReader reader(path, &ip);
  if (!reader.Open()) {
    r.status = ExplodeStatus::ReaderError;
    r.message = std::string(reader.ErrorMessageText());
    return r;
  }
  host::Node* cacheNode = in.cacheNode;
  if (!cacheNode) {
    for (host::Node* n : ip.NodesReferencing(&obj))
      if (n && !n->IsDeleted()) {
        cacheNode = n;
        break;
      }
  }
  const int kind = pb.GetInt(P::kExplodeTo);
  const bool boxMode = kind == kToBox;
  const Interval& range = in.interval;
  const TimeValue step = std::max<TimeValue>(in.step, 1);

  // The elements: selected ones or all, less those removed or hidden at the start.
  Evaluate(obj, reader, range.Start(), boxMode);
  const PlaybackState& st = obj.Playback();
  const int numElements = reader.NumElements();
  std::vector<int> chosen;
  std::vector<float> visibility;
  for (int e = 0; e < numElements; ++e) {
    if (in.selectedOnly && !obj.Selection().contains(static_cast<uint32_t>(e))) continue;
    const ElementFrameState& f = st.frame[static_cast<size_t>(e)];
    if (f.removed || !f.shown) continue;
    chosen.push_back(e);
    const bool visible = !reader.HasVisibility() || reader.SampleVisible(e, f.sampleA);
    visibility.push_back(visible ? 1.0f : 0.0f);
  }
  if (chosen.empty()) {
    obj.Invalidate();
    r.status = ExplodeStatus::NothingToExplode;
    return r;
  }
  const std::vector<TimeValue> times = ExplodeSampleTimes(range, step);
  r.samples = static_cast<int>(times.size());

  host::Hold& hold = ip.GetHold();
  hold.Begin();
  ip.ProgressStart(std::string());
  bool cancelled = false;
  std::vector<Created> made;
  made.reserve(chosen.size());
  host::Node* picked = pb.GetNode(P::kExplodeToNode);

  {
    Phase phase(ip, obj, opt, res::IDS_CREATING_OBJECTS_PCT, res::IDS_CREATING_OBJECTS);
    for (size_t i = 0; i < chosen.size() && !cancelled; ++i) {
      const int e = chosen[i];
      const std::string nodeName = ip.MakeUniqueName(reader.Element(e).name);
      host::Node* n = CreateTarget(ip, reader, e, kind, picked, nodeName);
      if (!n) {
        ++r.skipped;
      } else {
        if ((kind == kToMesh || kind == kToBox) && cacheNode) n->SetMtl(cacheNode->GetMtl());
        std::unique_ptr<host::Control> vis = ip.NewControl(host::ControlKind::Float);
        if (vis) {
          vis->SetValue(range.Start(), visibility[i], false);
          n->SetVisController(std::move(vis));
        }
        Created c;
        c.node = n;
        c.element = e;
        c.pos = ip.NewKeyControl(host::ControlKind::Position, host::Interp::TCB);
        c.rot = ip.NewKeyControl(host::ControlKind::Rotation, host::Interp::TCB);
        c.scl = ip.NewKeyControl(host::ControlKind::Scale, host::Interp::TCB);
        made.push_back(std::move(c));
      }
      cancelled = !phase.Report(static_cast<int64_t>(i) + 1, static_cast<int64_t>(chosen.size()));
    }
  }

  if (!cancelled) {
    Phase phase(ip, obj, opt, res::IDS_CREATING_ANIMATION_PCT, res::IDS_CREATING_ANIMATION);
    ip.GetEscPressed();
    // The tracks belong to no node yet: their keys need no undo records of their own.
    hold.Suspend();
    for (size_t k = 0; k < times.size() && !cancelled; ++k) {
      const TimeValue t = times[k];
      Evaluate(obj, reader, t, boxMode);
      const PlaybackState& now = obj.Playback();
      const float unitScale = obj.EvalSettings(false).unitScale;
      const Matrix3 nodeTM = cacheNode ? cacheNode->GetObjectTM(t) : Matrix3();
      for (Created& c : made) {
        Matrix3 m = reader.ElementTransform(c.element, now.frame[static_cast<size_t>(c.element)]);
        if (unitScale != 1.0f) m = m * unitScale;
        const AffineParts ap = DecompAffine(m * nodeTM);
        // Each rotation follows the previous key's, so the track never takes the long way
        // between two samples.
        const Quat q = ap.q.Closest(c.prev);
        c.prev = q;
        host::ScaleValue sv;
        sv.s = ap.k * ap.f;
        sv.q = ap.u;
        if (c.pos) c.pos->SetValue(t, ap.t, true);
        if (c.rot) c.rot->SetValue(t, q, true);
        if (c.scl) c.scl->SetValue(t, sv, true);
      }
      cancelled = !phase.Report(static_cast<int64_t>(k) + 1, static_cast<int64_t>(times.size()));
    }
    hold.Resume();
  }

  if (!cancelled) {
    for (Created& c : made) {
      if (cacheNode) c.node->CopyProperties(*cacheNode);
      std::unique_ptr<host::Control> prs = ip.NewControl(host::ControlKind::PRS);
      if (!prs) continue;
      if (c.pos) prs->SetPositionController(std::move(c.pos));
      if (c.rot) prs->SetRotationController(std::move(c.rot));
      if (c.scl) prs->SetScaleController(std::move(c.scl));
      c.node->SetTMController(std::move(prs));
      r.nodes.push_back(c.node);
      r.elements.push_back(c.element);
    }
  }

  ip.ProgressEnd();
  obj.Invalidate();
  if (cancelled) {
    hold.Cancel();
    r.nodes.clear();
    r.elements.clear();
    r.status = ExplodeStatus::Cancelled;
    ip.SetStatusText(std::string());
    return r;
  }
  if (!in.fromScript) {
    ip.ClearSelection();
    for (host::Node* n : r.nodes) n->SetSelected(true);
  }
  hold.Accept(res::GetString(res::IDS_UNDO_EXPLODE));
  ip.RedrawViews(ip.GetTime());
  r.status = ExplodeStatus::Exploded;

  if (in.reduce) {
    std::vector<host::Control*> controllers;
    controllers.reserve(r.nodes.size() * 3);
    for (host::Node* n : r.nodes) {
      host::Control* prs = n->GetTMController();
      if (!prs) continue;
      controllers.push_back(prs->GetPositionController());
      controllers.push_back(prs->GetRotationController());
      controllers.push_back(prs->GetScaleController());
    }
    ReduceOptions ro;
    if (opt.progress) {
      const std::string status = res::GetString(res::IDS_REDUCING_KEYS);
      ro.progress = [&](int done, int total) {
        return opt.progress(status,
                            total > 0 ? static_cast<int>(int64_t{done} * 100 / total) : 100);
      };
    }
    r.reduction = ReduceKeys(ip, controllers, range, in.reduceStep, in.reduceThreshold, ro);
    r.reduced = r.reduction.completed;
  }
  ip.SetStatusText(std::string());
  return r;
}

}  // namespace kv::explode
