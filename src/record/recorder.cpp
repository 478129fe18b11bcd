#include "record/recorder.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "record/deform.h"
#include "record/messages.h"
#include "record/node_writer.h"

namespace kv {
namespace fs = std::filesystem;
namespace txt = record_text;

TimeValue FrameTicks(int frame, int ticksPerFrame) {
  // Frames reach +-9999999 and a frame up to 4800 ticks: clamp rather than overflow.
  const int64_t t = int64_t{frame} * ticksPerFrame;
  return static_cast<TimeValue>(std::clamp<int64_t>(t, kTimeNegInfinity, kTimePosInfinity));
}

RecordRange ComputeRecordRange(int recStart, int recEnd, float recStep, int ticksPerFrame) {
  RecordRange r;
  r.start = FrameTicks(recStart, ticksPerFrame);
  const int64_t end = std::max<int64_t>(FrameTicks(recEnd, ticksPerFrame), r.start);
  // The product is taken in float, as the step spinner holds it: 0.7 frames at 160 ticks is
  // 112 ticks, where double arithmetic would give 111.99999 and truncate to 111.
  const float step = recStep * static_cast<float>(ticksPerFrame);
  r.step = step >= 1.0f ? static_cast<TimeValue>(std::min(step, 1e9f)) : 1;  // NaN gives 1
  // The file counts samples as (end - start + step) / step in 32 bits: keep that in range.
  const int64_t span = std::min<int64_t>(end - r.start, int64_t{kTimePosInfinity} - r.step);
  r.end = static_cast<TimeValue>(r.start + (span / r.step) * r.step);
  return r;
}

TimeValue LifetimeTicks(int frame, int frameRate) {
  const float rate = static_cast<float>(frameRate > 0 ? frameRate : 30) / 30.0f;
  const float t = static_cast<float>(frame) * 160.0f / rate;
  // Converting a float beyond the int range is undefined: clamp first.
  if (t >= 2147483520.0f) return kTimePosInfinity;  // the largest float below 2^31
  if (t <= -2147483648.0f) return kTimeNegInfinity;
  return static_cast<TimeValue>(t);
}

std::string MaterialLibraryPath(const std::string& cachePath) {
  if (cachePath.size() < 3) return cachePath + "mat";
  return cachePath.substr(0, cachePath.size() - 3) + "mat";
}

namespace {

std::string Percent(const std::string& format, int pct) {
  char buf[96];
  std::snprintf(buf, sizeof buf, format.c_str(), pct);
  return buf;
}

// A name beside `target` that no recording in this folder is likely to be using.
std::string TemporaryPathFor(const std::string& target) {
  return target + ".recording~";
}

void RemoveQuietly(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
}

}  // namespace

RigidExplodedFn Recorder::RigidHook() {
  if (!rigidLookedUp_) {
    rigidLookedUp_ = true;
    if (void* lib = ip_.LoadPluginLibrary(kRigidLibraryName))
      rigid_ = reinterpret_cast<RigidExplodedFn>(ip_.FindExport(lib, kRigidExportName));
  }
  return rigid_;
}

RecordResult Recorder::Record(RecordTarget& target, const RecordOptions& opt) {
  RecordResult res;
  const int tpf = ip_.GetTicksPerFrame();
  const int recStart = target.RecStart();
  const int recEnd = target.RecEnd();

  // 1-2. Gather the elements, letting the rigid-body library expand its own nodes.
  std::vector<host::Node*> elements;
  std::vector<host::Node*> temporaries;
  for (host::Node* n : target.Nodes()) {
    if (!n || !target.AcceptsNode(n)) continue;
    if (RigidExplodedFn hook = RigidHook())
      hook(n, &elements, &temporaries, FrameTicks(recStart, tpf), FrameTicks(recEnd, tpf));
    else
      elements.push_back(n);
  }

  const RecordRange range = ComputeRecordRange(recStart, recEnd, target.RecStep(), tpf);
  res.samples = range.NumSamples();

  // 3. Lifetimes: with topology off every element lives over the whole recorded range.
  std::vector<Lifetime> lifetimes(elements.size());
  if (!target.WriteTopology()) {
    const int rate = ip_.GetFrameRate();
    for (Lifetime& l : lifetimes) l = {LifetimeTicks(recStart, rate), LifetimeTicks(recEnd, rate)};
  }

  auto progress = [&](const std::string& format, int pct) {
    const std::string status = Percent(format, pct);
    target.SetStatus(status, pct);
    ip_.ProgressUpdate(pct, txt::Saving());
    bool go = !ip_.GetEscPressed();
    if (opt.progress && !opt.progress(status, pct)) go = false;
    return go;
  };
  host::Hold& undo = ip_.GetHold();
  // Temporary nodes are made by the recording, so taking their deletion back would only
  // bring back nodes the user never made: undo stays suspended around it on every path.
  auto deleteTemporaries = [&] {
    if (temporaries.empty()) return;
    undo.Suspend();
    {
      host::ScopedHold hold(undo);
      for (host::Node* n : temporaries)
        if (n && !n->IsDeleted()) ip_.DeleteNode(n);
      hold.Accept(txt::DeleteTmpObjects());
    }
    undo.Resume();
    ip_.RedrawViews(ip_.GetTime());
  };
  auto nothingToCache = [&] {
    deleteTemporaries();
    res.status = RecordStatus::NothingToCache;
    res.message = txt::NothingToCache();
    if (!opt.quiet)
      ip_.MessageBox(txt::NothingToCache(), txt::ErrorTitle(), host::MsgBoxKind::Warning);
    return res;
  };

  // 4. Deforming meshes become rigid pieces, each one element.
  DeformScene deform;
  if (target.WriteDeform() && !elements.empty()) {
    std::string error;
    const DeformStatus st = AnalyzeDeformations(
        elements, range, {target.WriteTopology(), opt.deformTolerance},
        [&](int pct) { return progress(txt::AnalyzingScene(), pct); }, deform, error);
    if (st != DeformStatus::Ok) {
      deleteTemporaries();
      target.SetStatus("");
      res.status = st == DeformStatus::Cancelled ? RecordStatus::Cancelled : RecordStatus::Failed;
      res.errorCode = st == DeformStatus::Cancelled ? 7 : 0;
      res.message = st == DeformStatus::Cancelled ? txt::Cancelled() : error;
      if (st == DeformStatus::Failed && !opt.quiet)
        ip_.MessageBox(error, txt::ErrorTitle(), host::MsgBoxKind::Error);
      return res;
    }
    res.deformReport = DeformReportLines(deform, opt.deformTolerance, &res.warnings);
  }

  // 5. Output file.
  std::string name = opt.fileName.empty() ? target.FileName() : opt.fileName;
  std::string path;
  if (name.empty()) {
    host::Node* own = target.OwnNode();
    const std::string proposed = own ? own->GetName() : txt::kDefaultFileName;
    if (!ip_.SaveFileDialog(txt::SaveDialogTitle(), proposed, txt::SaveDialogFilter(), path)) {
      deleteTemporaries();
      res.status = RecordStatus::NoFile;
      return res;
    }
  } else {
    path = ip_.ResolveAssetPath(name);
    if (path.empty()) {
      std::error_code ec;
      const fs::path abs = fs::absolute(name, ec);
      path = ec ? name : abs.string();
    }
  }
  res.path = path;

  // 7. Nothing from here to the new file name belongs on the undo stack.
  struct Suspension {
    host::Hold& h;
    bool on = true;
    void End() {
      if (on) h.Resume();
      on = false;
    }
    ~Suspension() { End(); }
  } suspended{undo};
  undo.Suspend();

  if (elements.empty()) return nothingToCache();

  // 8. Samples are stored relative to the object's own node so the played mesh lands where
  // the sources were. The mesh is played in object space, hence the object transform.
  Matrix3 reference;
  if (host::Node* own = target.OwnNode()) reference = Inverse(own->GetObjectTM(ip_.GetTime()));

  const std::string temp = TemporaryPathFor(path);
  NodeCacheWriter writer(ip_, temp, reference, range);
  bool ok = false;
  int code = 0;
  std::string message;
  {
    // 9. Capture meshes.
    std::vector<Lifetime> accepted;
    accepted.reserve(elements.size());
    if (target.WriteDeform()) {
      // A piece lives over the samples where it is shown, within the recorded lifetime.
      const Lifetime whole = lifetimes.empty() ? Lifetime{} : lifetimes.front();
      for (DeformPiece& p : deform.pieces) {
        if (p.FirstShown() < 0 || !writer.Add(p)) continue;
        const auto at = [&](int s) { return TimeValue(range.start + int64_t{s} * range.step); };
        accepted.push_back(
            {std::max(whole.first, at(p.FirstShown())), std::min(whole.last, at(p.LastShown()))});
      }
    } else {
      for (size_t i = 0; i < elements.size(); ++i) {
        if (writer.Add(elements[i], range.start))
          accepted.push_back(lifetimes[i]);
        else
          ++res.skipped;
      }
    }
    // 11. Write beside the target; Escape cancels.
    ip_.ProgressStart(txt::Saving());
    if (writer.Count() > 0)
      ok = writer.Write(accepted, [&](int pct) { return progress(txt::WritingCache(), pct); });
    ip_.ProgressEnd();
    code = ok ? 0 : writer.ErrorCode();
    message = ok ? std::string() : writer.ErrorMessage();
    if (ok) {
      // Readers let go of the old file for the replace; if it fails they keep it, unchanged.
      const bool released = refresher_ && refresher_->ReleaseFile(path);
      if (!ip_.RenameOver(temp, path)) {
        if (released) refresher_->KeepFile(path);
        ok = false;
        code = 4;
        message = txt::UnknownFileError();
      }
    }
  }
  if (writer.Count() == 0) return nothingToCache();

  // 12.
  deleteTemporaries();

  // 13. Failure: the temporary file goes, the target is as it was.
  if (!ok) {
    if (code != 1) RemoveQuietly(temp);
    res.status = code == 7 ? RecordStatus::Cancelled : RecordStatus::Failed;
    res.errorCode = code;
    res.message = message;
    if (code != 7 && !opt.quiet)
      ip_.MessageBox(message, txt::WriteErrorTitle(), host::MsgBoxKind::Error);
    target.SetStatus("");
    ip_.SetStatusText("");
    return res;
  }
  res.elements = writer.Count();

  // 10, 15. The old library is replaced only now that the new cache is in place, and the
  // same way: the new one is written beside it and put in its place.
  const std::string matPath = MaterialLibraryPath(path);
  bool libraryReplaced = false;
  if (host::Mtl* mtl = writer.CombinedMaterial()) {
    // Named after the final file, not the temporary one the writer saw.
    const std::string stem = fs::path(path).stem().string();
    mtl->SetName(stem.empty() ? "KV Cache" : stem);
    if (target.SaveMaterial()) {
      std::unique_ptr<host::MtlLib> lib = ip_.NewMtlLib();
      lib->Add(mtl);
      const std::string matTemp = TemporaryPathFor(matPath);
      libraryReplaced = ip_.SaveMaterialLibrary(matTemp, *lib) && ip_.RenameOver(matTemp, matPath);
      if (!libraryReplaced) RemoveQuietly(matTemp);
    }
  }
  // A library left from the previous recording would describe materials the new cache does
  // not use.
  if (!libraryReplaced) RemoveQuietly(matPath);

  // 16-17. Everything that plays this file sees the new content.
  if (refresher_) refresher_->FileRewritten(path, target);
  target.OnRecorded(path);
  target.SetStatus("");
  ip_.SetStatusText("");
  suspended.End();

  // 18. Emptying the list is the user's to take back.
  if (target.ClearNodeList()) {
    host::ScopedHold h(ip_.GetHold());
    target.EmptyNodeList();
    h.Accept(txt::EmptyNodeList());
  }
  // The analysis report goes to the listener: a warning must not stop a batch of recordings.
  for (const std::string& line : res.deformReport) ip_.ListenerPrint(line + "\n");
  for (const std::string& line : res.warnings) ip_.ListenerPrint("Warning: " + line + "\n");
  res.status = RecordStatus::Recorded;
  return res;
}

}  // namespace kv

namespace kv {

bool SettingsRecordTarget::AcceptsNode(host::Node* node) const {
  if (!node || node->IsDeleted()) return false;
  const host::Object* obj = node->GetObjectRef();
  if (!obj) return false;
  // The same test as the cache object's node list: a mesh now, or convertible to one.
  return obj->IsTriObject() || obj->CanConvertToTriObject();
}

void SettingsRecordTarget::OnRecorded(const std::string& path) {
  s_.fileName = path;
  recorded_ = true;
}

}  // namespace kv
