// The standalone host: an in-memory scene of nodes, objects and materials with time
// settings, undo, change-notification counters and a scripted user (the Responder). It
// implements host::Interface in full so that the core, the kvcache tool and the tests run
// the same code a real host would call.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/interface.h"
#include "host/standalone/materials.h"
#include "host/standalone/objects.h"
#include "host/standalone/responder.h"
#include "host/standalone/undo_stack.h"

namespace kv::standalone {

class Scene;

class SceneNode final : public host::Node {
 public:
  SceneNode(Scene& scene, std::string name, host::Object* obj);

  // host::Node
  std::string GetName() const override { return name_; }
  void SetName(const std::string& name) override;
  host::Node* GetParent() const override { return parent_; }
  int NumChildren() const override { return static_cast<int>(children_.size()); }
  host::Node* GetChild(int i) const override;
  Matrix3 GetNodeTM(TimeValue t) const override;
  Matrix3 GetObjectTM(TimeValue t) const override;
  float GetVisibility(TimeValue t) const override;
  host::Object* GetObjectRef() const override { return obj_; }
  host::Mtl* GetMtl() const override { return mtl_; }
  void SetMtl(host::Mtl* m) override;
  uint32_t GetWireColor() const override { return wire_; }
  bool IsDeleted() const override { return deleted_; }
  bool Selected() const override { return selected_; }
  bool IsHidden() const override { return hidden_; }
  void Hide(bool on) override;
  host::Control* GetTMController() const override { return tm_.get(); }
  host::Control* GetVisController() const override { return vis_.get(); }
  void SetSelected(bool on) override;
  void SetWireColor(uint32_t bgr) override;
  bool GetInheritVisibility() const override { return inheritVis_; }
  void SetInheritVisibility(bool on) override;
  bool SetTMController(std::unique_ptr<host::Control> c) override;
  bool SetVisController(std::unique_ptr<host::Control> c) override;
  void CopyProperties(const host::Node& from) override;

  // ---- standalone only
  // The object offset (object space to pivot), applied before the node transform.
  const Matrix3& GetObjectOffset() const { return objOffset_; }
  void SetObjectOffset(const Matrix3& m);
  Matrix3 GetObjOffsetTM() const override { return objOffset_; }
  bool IsFrozen() const override { return frozen_; }
  void SetFrozen(bool on) { frozen_ = on; }
  // Local transform (relative to the parent) at t, as the transform controller gives it.
  Matrix3 GetLocalTM(TimeValue t) const { return tm_->GetMatrix(t); }
  // Sets the world transform at t through the PRS controller (a key there when makeKey).
  void SetNodeTM(TimeValue t, const Matrix3& world, bool makeKey);
  // Keys on the PRS sub-controllers, in parent space.
  void KeyPosition(TimeValue t, const Point3& p);
  void KeyRotation(TimeValue t, const Quat& q);
  void KeyScale(TimeValue t, const Point3& s);
  // A visibility track, made (a Bezier float, value 1) when the node has none.
  host::Control& EnsureVisController();
  // Replaces the carried object by another the scene owns (an instance shares it).
  void SetObjectRef(host::Object* obj);
  SceneNode* Parent() const { return parent_; }
  const std::vector<SceneNode*>& Children() const { return children_; }

 private:
  friend class Scene;
  void Put(std::function<void()> undo, std::function<void()> redo);

  Scene& scene_;
  size_t serial_ = 0;  // creation order, kept by the name index
  std::string name_;
  SceneNode* parent_ = nullptr;
  std::vector<SceneNode*> children_;
  host::Object* obj_;
  host::Mtl* mtl_ = nullptr;
  uint32_t wire_ = 0x00808080;
  bool deleted_ = false, selected_ = false, hidden_ = false, inheritVis_ = true, frozen_ = false;
  Matrix3 objOffset_;
  std::unique_ptr<host::Control> tm_, vis_;
};

struct ProgressEvent {
  enum class What { Start, Update, End } what;
  int percent = 0;
  std::string text;  // title or caption
};

class Scene final : public host::Interface {
 public:
  Scene();
  ~Scene() override;
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // ---- host::Interface
  TimeValue GetTime() const override { return time_; }
  void SetTime(TimeValue t) override { time_ = t; }
  int GetFrameRate() const override { return fps_; }
  int GetTicksPerFrame() const override { return TicksPerFrame(fps_); }
  Interval GetAnimRange() const override { return range_; }
  bool IsRendering() const override { return rendering_; }
  bool IsNetServer() const override { return netServer_; }
  bool IsAnimPlaying() const override { return playing_; }
  bool IsAnimateMode() const override { return animate_ && animSuspend_ == 0; }
  void SuspendAnimate() override { ++animSuspend_; }
  void ResumeAnimate() override {
    if (animSuspend_ > 0) --animSuspend_;
  }
  host::Hold& GetHold() override { return undo_; }
  void NotifyDependents(host::Object* obj, uint32_t parts) override;
  void RedrawViews(TimeValue t) override;
  std::vector<host::Node*> GetRootNodes() const override;
  host::Node* GetNodeByName(const std::string& name) const override;
  std::vector<host::Node*> GetSelectedNodes() const override;
  std::vector<host::Node*> NodesReferencing(const host::Object* obj) const override;
  // A node depends on obj when it carries it or one of its ancestors does (its transform
  // then follows a node that obj drives).
  bool DependsOn(const host::Node* node, const host::Object* obj) const override;
  // base itself when free, else base (without trailing digits) followed by the first free
  // three-digit number: "Brick" -> "Brick001", "Brick001" -> "Brick002".
  std::string MakeUniqueName(const std::string& base) const override;
  host::Node* CreateObjectNode(std::unique_ptr<host::Object> obj, const std::string& name) override;
  host::Node* CreateMeshNode(const Mesh& mesh, const std::string& name) override;
  host::Node* CreatePointHelperNode(const std::string& name) override;
  // A node sharing `of`'s object and material, at the root with an identity transform.
  host::Node* CreateInstanceNode(const host::Node* of, const std::string& name) override;
  // Marks the node deleted and hands its children to its parent.
  void DeleteNode(host::Node* node) override;
  std::unique_ptr<host::Control> NewControl(host::ControlKind kind) override;
  std::unique_ptr<host::Control> NewKeyControl(host::ControlKind kind,
                                               host::Interp interp) override;
  void ClearSelection() override;
  std::unique_ptr<host::MtlLib> NewMtlLib() override;
  // Material library files are JSON (see SaveMaterialLibrary).
  bool LoadMaterialLibrary(const std::string& path, host::MtlLib& into) override;
  // Writes {"format": "kv-mtllib", "version": 1, "materials": [m...]} where a standard
  // material is {"type": "standard", "name": s, "diffuse": [r, g, b]} and a multi-material
  // {"type": "multi", "name": s, "subs": [m or null...]}.
  bool SaveMaterialLibrary(const std::string& path, const host::MtlLib& lib) override;
  // Material ids modulo the sub-material count (a plain material counts as one); a null
  // material leaves the mesh alone.
  void FitMeshIDsToMaterial(Mesh& mesh, host::Mtl* mtl) override;
  // A new multi-material: a's sub-materials (or a itself), then b's (or b); `offset` is the
  // number of slots that came from a.
  host::Mtl* CombineMaterials(host::Mtl* a, host::Mtl* b, int& offset) override;
  void SetStatusText(const std::string& text) override;
  void ProgressStart(const std::string& title) override;
  void ProgressUpdate(int percent, const std::string& caption) override;
  void ProgressEnd() override;
  bool GetEscPressed() override;
  bool IsShiftDown() const override { return responder_.shiftDown; }
  host::MsgBoxResult MessageBox(const std::string& text, const std::string& title,
                                host::MsgBoxKind kind) override;
  bool SaveFileDialog(const std::string& title, const std::string& proposed,
                      const std::string& filter, std::string& path) override;
  bool OpenFileDialog(const std::string& title, const std::string& filter,
                      std::string& path) override;
  void ListenerPrint(const std::string& text) override;
  void PushPrompt(const std::string& text) override { responder_.prompts.push_back(text); }
  void PopPrompt() override {
    if (!responder_.prompts.empty()) responder_.prompts.pop_back();
  }
  void SetPickMode(host::PickModeCallback& cb) override;
  bool DoHitByNameDialog(host::HitByNameDlgCallback& cb) override;
  int DoModalDialog(host::ModalDialog& dlg) override;
  void EnableAccelerators(bool on) override { responder_.accelerators = on; }
  // An absolute name as it is; a relative one when it exists relative to the working folder
  // or the asset folder (as an absolute path); else "".
  std::string ResolveAssetPath(const std::string& name) const override;
  // `name` (".so" added when it has no extension) under the plugins folder.
  void* LoadPluginLibrary(const std::string& name) override;
  void* FindExport(void* library, const std::string& symbol) override;
  // A rename over `to`. With open-file locking on it refuses, as Windows does, when this
  // process holds a handle to either file; Linux itself would allow it.
  bool RenameOver(const std::string& from, const std::string& to) override;

  // ---- settings tests and the tool change
  void SetOpenFileLocking(bool on) { lockOpenFiles_ = on; }
  int RenamesRefused() const { return renamesRefused_; }
  void SetFrameRate(int fps) { fps_ = fps > 0 ? fps : 30; }
  void SetAnimRange(const Interval& r) { range_ = r; }
  void SetRendering(bool on) { rendering_ = on; }
  void SetNetServer(bool on) { netServer_ = on; }
  void SetAnimPlaying(bool on) { playing_ = on; }
  void SetAnimateMode(bool on) { animate_ = on; }
  void SetAssetFolder(const std::string& dir) { assetDir_ = dir; }
  void SetPluginsFolder(const std::string& dir) { pluginsDir_ = dir; }
  // Listener text goes to stdout when on, else it gathers in ListenerText().
  void SetListenerToStdout(bool on) { listenerStdout_ = on; }
  const std::string& ListenerText() const { return listener_; }
  Responder& GetResponder() { return responder_; }

  // ---- what the scene has seen
  int NotifyCount() const { return notifyCount_; }
  uint32_t NotifiedParts() const { return notifiedParts_; }  // union since the last reset
  int RedrawCount() const { return redrawCount_; }
  void ResetCounters() { notifyCount_ = 0, notifiedParts_ = 0, redrawCount_ = 0; }
  const std::string& StatusText() const { return status_; }
  const std::vector<ProgressEvent>& Progress() const { return progress_; }

  // ---- undo
  UndoStack& UndoHistory() { return undo_; }
  bool Undo() { return undo_.Undo(); }
  bool Redo() { return undo_.Redo(); }

  // ---- nodes, objects and materials
  SceneNode* CreateNode(std::unique_ptr<host::Object> obj, const std::string& name,
                        SceneNode* parent = nullptr);
  SceneNode* CreateLightNode(host::ClassId lightClass, const std::string& name);
  // Makes child a child of parent (null: the root) keeping its local transform.
  void Link(SceneNode* child, SceneNode* parent);
  SceneNode* FindNode(const std::string& name) const;
  // Every node in creation order; deleted ones only when asked.
  std::vector<SceneNode*> AllNodes(bool withDeleted = false) const;
  StdMtl* NewStdMtl(const std::string& name, const Point3& diffuse);
  MultiMtl* NewMultiMtl(const std::string& name);
  const std::vector<std::unique_ptr<host::Mtl>>& Materials() const { return mtls_; }
  // Takes an object into the scene without a node (instances share it later).
  host::Object* AddObject(std::unique_ptr<host::Object> obj);
  const std::vector<std::unique_ptr<host::Object>>& Objects() const { return objects_; }
  // Empties the scene: nodes, objects, materials, undo steps; time settings to defaults.
  void Reset();

 private:
  friend class SceneNode;
  SceneNode* AdoptNode(std::unique_ptr<SceneNode> n);
  // Every change of a node's name or deleted mark goes through these, so that the name index
  // and the unique-name hints stay true.
  void Rename(SceneNode* n, const std::string& name);
  void SetDeleted(SceneNode* n, bool on);
  void IndexName(SceneNode* n);
  void UnindexName(SceneNode* n);

  TimeValue time_ = 0;
  int fps_ = 30;
  Interval range_{0, 100 * 160};
  bool rendering_ = false, netServer_ = false, playing_ = false, animate_ = false;
  int animSuspend_ = 0;

  // Declared before the undo stack: records may point at them, and records never touch
  // what they point at when they are destroyed.
  std::vector<std::unique_ptr<host::Object>> objects_;
  std::vector<std::unique_ptr<host::Mtl>> mtls_;
  std::vector<std::unique_ptr<SceneNode>> nodes_;
  // Nodes by the object they carry, in creation order: the core asks this per evaluation
  // (a cache object looks up its own node), so it must not walk every node of a large scene.
  std::unordered_map<const host::Object*, std::vector<SceneNode*>> byObject_;
  // Nodes by name (deleted ones too), in creation order: loading a scene looks up thousands
  // of nodes by name, and explode makes thousands of unique names.
  std::unordered_map<std::string, std::vector<SceneNode*>> byName_;
  // Per name stem, a number below which every numbered name was taken when it was found,
  // valid while no name has been freed since (namesFreed_ unchanged).
  struct NameHint {
    int next = 1;
    uint64_t freed = 0;
  };
  mutable std::unordered_map<std::string, NameHint> nameHints_;
  uint64_t namesFreed_ = 0;
  UndoStack undo_;

  Responder responder_;
  int notifyCount_ = 0, redrawCount_ = 0;
  uint32_t notifiedParts_ = 0;
  std::string status_;
  std::vector<ProgressEvent> progress_;
  std::string listener_;
  bool listenerStdout_ = false;
  std::string assetDir_, pluginsDir_;
  std::vector<void*> libraries_;
  bool lockOpenFiles_ = false;
  int renamesRefused_ = 0;
};

}  // namespace kv::standalone
