// The cache object: a procedural mesh that plays a .kvc cache element by element. It owns its
// parameter block (reference 0), its gizmo transform controller (reference 1), its playback
// state with the element groups, its element selection and its output mesh. It holds no reader
// of its own: it looks the reader up in the shared registry by its file name.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cache/frame.h"
#include "geom/mesh.h"
#include "geom/time.h"
#include "groups/element_group.h"
#include "groups/group_owner.h"
#include "host/interface.h"
#include "object/param_block.h"
#include "object/time_mapping.h"
#include "object/triggers.h"

namespace KelvaneTools {
class kvCacheReader;
class kvCacheRegistry;
}  // namespace KelvaneTools

namespace kv {

class kvCache_obj;

// Everything the object computes per scene time, shared with the reader's frame read. Its
// address is the object's handle in the shared registry.
struct PlaybackState {
  kvCache_obj* owner = nullptr;
  std::vector<TimeValue> triggerTimes;                 // per element, kNotTriggered or a tick
  std::vector<KelvaneTools::ElementFrameState> frame;  // stage 2 results, which the reader samples
  KelvaneTools::FrameSettings settings;                // switches of the current evaluation
  KelvaneTools::FrameScratch scratch;                  // the output mesh's topology memory
  ElementGroupList groups;
  PassResult pass;    // ORTs and reverse in effect, global time
  Interval validity;  // the scene time the state was computed for
  bool triggerRecompute = true;
  bool triggersActive = false;
  std::vector<TriggerHit> hits;  // transform and radius each element was triggered with

  // Reused between passes so that a warm pass allocates nothing.
  std::vector<GroupRule> rules;
  std::vector<DistanceCheck> distance;
  std::vector<Point3> positions;
};

// Messages the object receives when one of its references changes.
enum class RefMessage : uint32_t {
  Change = 1,
  // Host notifications the object stops at once (their host codes).
  StopA = 128,
  StopB = 259,
  StopC = 562,
};
enum class RefResult { Succeed, Stop };

class kvCache_obj : public host::Object, public GroupOwner, public ParamAccessor {
 public:
  static constexpr int kRefParams = 0;
  static constexpr int kRefGizmo = 1;
  // Chunks of the object's saved data, in writing order.
  static constexpr uint16_t kChunkParams = 0x0010;
  static constexpr uint16_t kChunkGizmo = 0x0020;
  static constexpr uint16_t kChunkSelection = 0x0100;
  static constexpr uint16_t kChunkGroups = 0x0200;

  // What the rollouts are asked to refresh.
  enum Refresh : uint32_t { kRefreshParams = 1, kRefreshFileInfo = 2, kRefreshGroups = 4 };

  // A new object takes the scene's range and frame rate as defaults; one constructed for
  // loading keeps what the load brings (its frame rate still follows the scene).
  kvCache_obj(host::Interface& ip, KelvaneTools::kvCacheRegistry& registry, bool forLoad);
  ~kvCache_obj() override;
  kvCache_obj(const kvCache_obj&) = delete;
  kvCache_obj& operator=(const kvCache_obj&) = delete;

  // ---- host::Object
  host::ClassId GetClassId() const override { return host::kKvCacheClassId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Geometry; }
  bool CanConvertToTriObject() const override { return true; }
  // Builds the mesh for t (render switches when `render`) and copies it out.
  bool GetTriMesh(TimeValue t, bool render, Mesh& out) override;
  std::unique_ptr<host::Object> Clone() const override;
  // Chunks: parameters, gizmo, element selection (0x0100), element groups (0x0200).
  bool Save(host::ISave& s) const override;
  host::IOResult Load(host::ILoad& l) override;

  // ---- references
  ParamBlock& Params() { return *params_; }
  const ParamBlock& Params() const { return *params_; }
  // The gizmo's matrix controller, made with the identity value on first use; null only when
  // the host cannot make controllers.
  host::Control* Gizmo();
  // The gizmo held now, without making one.
  const host::Control* HeldGizmo() const { return gizmo_.get(); }
  // Sets the gizmo's value at t (a key in animate mode) and reacts as to any gizmo change.
  void SetGizmo(TimeValue t, const Matrix3& tm);
  // Hands the gizmo over to `c`, a controller the host keeps on the object's behalf (a host
  // whose scene holds references makes its controller the object's reference 1), dropping the
  // one held. A controller with other keys changes the gizmo, so the object reacts as to any
  // gizmo change. Null drops the gizmo quietly (the host is letting go); the next use makes one.
  void AdoptGizmo(std::unique_ptr<host::Control> c);
  RefResult NotifyRefChanged(int ref, RefMessage msg);

  // ---- mesh evaluation
  // Rebuilds the output mesh for t unless it is valid there. Never fails loudly: a missing or
  // broken cache gives the empty mesh.
  void BuildMesh(TimeValue t, bool forRender = false);
  const Mesh& GetMesh() const { return mesh_; }
  Interval MeshValidity() const { return meshValidity_; }
  TimeValue LastBuildTime() const { return lastBuildTime_; }
  bool MeshValid() const { return meshValid_; }
  bool RenderState() const { return renderState_; }
  void RenderBegin();
  void RenderEnd();
  const std::string& StatusText() const { return status_; }
  const std::string& StatusText2() const { return status2_; }
  void SetStatusText2(std::string s) { status2_ = std::move(s); }
  // The status field's progress bar: recording and explode set it while they run; a negative
  // value or total shows none.
  void SetProgress(int value, int total) { progressValue_ = value, progressTotal_ = total; }
  int ProgressValue() const { return progressValue_; }
  int ProgressTotal() const { return progressTotal_; }
  bool CreatedForLoad() const { return createdForLoad_; }

  // ---- playback
  // Stages 1 and 2 for t (and the trigger scan when flagged); nothing when the state is valid
  // at t. The reader must be this object's (indexed) reader.
  void ComputePlaybackState(TimeValue t, KelvaneTools::kvCacheReader& reader, bool forRender);
  PlaybackState& Playback() { return state_; }
  const PlaybackState& Playback() const { return state_; }
  const ElementGroupList& Groups() const { return state_.groups; }
  // This object's reader in the registry (reopened when in error), or null.
  KelvaneTools::kvCacheReader* Reader() const;
  void FlagTriggers() { state_.triggerRecompute = true; }
  bool TriggersActive() const { return state_.triggersActive; }
  // Empties the playback and mesh validity (and forgets the last build time) so the next
  // request recomputes.
  void Invalidate();

  // ---- range pairs (recStart/recEnd, explodeStart/explodeEnd)
  // Whenever one end is set past the other, the other end is pushed to the same value. The
  // pushed end goes back only while the user drags the spinner of the end that pushed it:
  // the rollout calls SetRangeDrag with that end's id and the other end's value from before
  // the drag when the drag starts, and ClearRangeDrag on any other command and when the drag
  // ends. As the dragged end comes back, the pushed end follows it home and no further. A
  // typed or scripted value never brings a pushed end back.
  void SetRangeDrag(int id, int otherValue);
  void ClearRangeDrag() { rangeDrag_ = {}; }
  int RangeDragId() const { return rangeDrag_.id; }

  // ---- element selection
  const std::set<uint32_t>& Selection() const { return selection_; }
  // The four selection operations; each puts a Restore_Selection when a hold is open.
  // SelectSubComponent walks `hits` (only the first unless `all`) and inserts or removes them.
  void SelectSubComponent(std::span<const uint32_t> hits, bool selected, bool all);
  void ClearSelection();
  void SelectAll();
  void InvertSelection();
  // Puts a set back (undo and redo) and refreshes, without recording.
  void RestoreSelection(std::set<uint32_t> s);
  bool SelectionHeld() const { return selectionHeld_; }
  void SetSelectionHeld(bool on) { selectionHeld_ = on; }

  // ---- GroupOwner
  ElementGroupList& Groups() override { return state_.groups; }
  host::Interface& Host() override { return ip_; }
  void MarkModified() override { modified_ = true; }
  void RefreshGroupsUI() override { RefreshUi(kRefreshGroups); }
  // Invalidate, then tell dependents everything changed.
  void InvalidateAndNotify() override;
  void ResizeElementFrames(int32_t count) override;
  void DeleteElementFrame(int32_t index) override;
  std::vector<int32_t> ElementSelection() const override;
  void SetElementSelection(const std::vector<int32_t>& elements) override;
  bool AskGroupName(std::string& name) override { return askGroupName && askGroupName(name); }

  // ---- ParamAccessor: `elementFrames` entries are named after the groups.
  std::string GetEntryName(int id, int index) const override;

  // ---- outside hooks
  // Called when the rollouts should refresh (a Refresh mask); unset without a user interface.
  std::function<void(uint32_t)> onRefresh;
  // The group name dialog; unset without a user interface (the answer is then "cancelled").
  std::function<bool(std::string&)> askGroupName;
  bool Modified() const { return modified_; }
  KelvaneTools::kvCacheRegistry& Registry() const { return registry_; }

  // The switches of the current evaluation, from the parameters.
  KelvaneTools::FrameSettings EvalSettings(bool render) const;

 private:
  void Wire();
  void OnParamChanged(int id);
  void OnGizmoChanged();
  void OnRangeChanged(int startId, int endId, int changedId);
  void FileNameChanged();
  void RefreshUi(uint32_t what) const {
    if (onRefresh) onRefresh(what);
  }
  void EmptyMesh();
  void EvaluateTriggers(TimeValue t, KelvaneTools::kvCacheReader& reader);
  bool TriggerVolumeAt(TimeValue u, TriggerVolume& out) const;
  void SelectionChanged();
  void PutSelectionRestore();
  static bool PreloadProgress(void* self, uint32_t done, uint32_t total);

  host::Interface& ip_;
  KelvaneTools::kvCacheRegistry& registry_;
  std::unique_ptr<ParamBlock> params_;
  std::unique_ptr<host::Control> gizmo_;
  PlaybackState state_;
  std::set<uint32_t> selection_;
  bool selectionHeld_ = false;

  Mesh mesh_;
  Interval meshValidity_;
  TimeValue lastBuildTime_ = -1;
  bool meshValid_ = false;
  bool renderState_ = false;
  bool createdForLoad_ = false;
  bool newlyCreated_ = false;
  bool modified_ = false;
  uint64_t seenGeneration_ = 0;  // reader open the mesh was last built from
  std::string status_, status2_;
  int progressValue_ = -1, progressTotal_ = -1;

  // The range end whose spinner is being dragged, and the other end's value from before the
  // drag (-1: no drag).
  struct RangeDrag {
    int id = -1;
    int other = 0;
  };
  RangeDrag rangeDrag_;
  bool adjustingRange_ = false;
};

}  // namespace kv
