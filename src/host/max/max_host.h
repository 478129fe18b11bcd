// The core's host interfaces over the 3ds Max SDK: the application (time, nodes, feedback,
// dialogs, files), undo through theHold, and scene nodes. One instance for the library's life.
#pragma once

#include <map>
#include <memory>

#include "host/interface.h"
#include "host/max/materials.h"
#include "host/max/scene_objects.h"
#include "host/max/sdk.h"

namespace KelvaneTools {
class kvCacheRegistry;
}

namespace kv::max {

class MaxHold final : public host::Hold {
 public:
  bool Holding() const override { return theHold.Holding() != 0; }
  bool RestoringOrRedoing() const override { return theHold.RestoreOrRedoing() != 0; }
  void Begin() override { theHold.Begin(); }
  void Put(std::unique_ptr<host::RestoreObj> rec) override;
  void Accept(const std::string& label) override;
  void Cancel() override { theHold.Cancel(); }
  void Suspend() override { theHold.Suspend(); }
  void Resume() override { theHold.Resume(); }
  bool IsSuspended() const override { return theHold.IsSuspended() != 0; }
};

class MaxNode final : public host::Node {
 public:
  explicit MaxNode(::INode* n) : n_(n), objRef_(n) {}
  ::INode* Sdk() const { return n_; }

  std::string GetName() const override { return Narrow(n_->GetName()); }
  void SetName(const std::string& name) override { n_->SetName(Widen(name).c_str()); }
  host::Node* GetParent() const override;
  int NumChildren() const override { return n_->NumberOfChildren(); }
  host::Node* GetChild(int i) const override;
  kv::Matrix3 GetNodeTM(TimeValue t) const override { return ToKv(n_->GetNodeTM(t)); }
  kv::Matrix3 GetObjectTM(TimeValue t) const override { return ToKv(n_->GetObjectTM(t)); }
  float GetVisibility(TimeValue t) const override { return n_->GetVisibility(t); }
  host::Object* GetObjectRef() const override;
  host::Mtl* GetMtl() const override { return WrapMtl(n_->GetMtl()); }
  void SetMtl(host::Mtl* m) override { n_->SetMtl(SdkMtl(m)); }
  uint32_t GetWireColor() const override { return n_->GetWireColor(); }
  void SetWireColor(uint32_t bgr) override { n_->SetWireColor(bgr); }
  bool IsDeleted() const override { return n_->TestAFlag(A_IS_DELETED) != 0; }
  bool Selected() const override { return n_->Selected() != 0; }
  bool IsHidden() const override { return n_->IsHidden() != 0; }
  void Hide(bool on) override { n_->Hide(on ? TRUE : FALSE); }
  host::Control* GetTMController() const override;
  host::Control* GetVisController() const override;
  bool SetTMController(std::unique_ptr<host::Control> c) override;
  bool SetVisController(std::unique_ptr<host::Control> c) override;
  bool GetInheritVisibility() const override { return n_->GetInheritVisibility() != 0; }
  void SetInheritVisibility(bool on) override { n_->SetInheritVisibility(on ? TRUE : FALSE); }
  void SetSelected(bool on) override;
  void CopyProperties(const host::Node& from) override;

 private:
  ::INode* n_;
  mutable MaxObjectRef objRef_;
  mutable std::unique_ptr<MaxControl> tm_, vis_;
};

class MaxHost final : public host::Interface {
 public:
  MaxHost();
  ~MaxHost() override;
  // ---- time
  TimeValue GetTime() const override { return Core()->GetTime(); }
  void SetTime(TimeValue t) override { Core()->SetTime(t, FALSE); }
  int GetFrameRate() const override { return ::GetFrameRate(); }
  int GetTicksPerFrame() const override { return ::GetTicksPerFrame(); }
  kv::Interval GetAnimRange() const override { return ToKv(Core()->GetAnimRange()); }
  bool IsRendering() const override { return renders_ > 0; }
  bool IsNetServer() const override { return Core()->IsNetServer() != 0; }
  bool IsAnimPlaying() const override { return Core()->IsAnimPlaying() != 0; }
  bool IsAnimateMode() const override { return ::Animating() != 0; }
  void SuspendAnimate() override { ::SuspendAnimate(); }
  void ResumeAnimate() override { ::ResumeAnimate(); }

  // ---- undo and change notification
  host::Hold& GetHold() override { return hold_; }
  void NotifyDependents(host::Object* obj, uint32_t parts) override;
  void RedrawViews(TimeValue t) override { Core()->RedrawViews(t); }

  // ---- nodes
  std::vector<host::Node*> GetRootNodes() const override;
  host::Node* GetNodeByName(const std::string& name) const override;
  std::vector<host::Node*> GetSelectedNodes() const override;
  std::vector<host::Node*> NodesReferencing(const host::Object* obj) const override;
  bool DependsOn(const host::Node* node, const host::Object* obj) const override;
  std::string MakeUniqueName(const std::string& base) const override;
  host::Node* CreateObjectNode(std::unique_ptr<host::Object> obj, const std::string& name) override;
  host::Node* CreateMeshNode(const kv::Mesh& mesh, const std::string& name) override;
  host::Node* CreatePointHelperNode(const std::string& name) override;
  host::Node* CreateInstanceNode(const host::Node* of, const std::string& name) override;
  void DeleteNode(host::Node* node) override;
  std::unique_ptr<host::Control> NewControl(host::ControlKind kind) override {
    return NewMaxControl(kind);
  }
  std::unique_ptr<host::Control> NewKeyControl(host::ControlKind kind,
                                               host::Interp interp) override {
    return NewMaxKeyControl(kind, interp);
  }
  void ClearSelection() override { Core()->ClearNodeSelection(FALSE); }
  bool DoHitByNameDialog(host::HitByNameDlgCallback& cb) override;

  // ---- materials
  std::unique_ptr<host::MtlLib> NewMtlLib() override { return std::make_unique<MaxMtlLib>(); }
  bool LoadMaterialLibrary(const std::string& path, host::MtlLib& into) override {
    return max::LoadMaterialLibrary(path, into);
  }
  bool SaveMaterialLibrary(const std::string& path, const host::MtlLib& lib) override {
    return max::SaveMaterialLibrary(path, lib);
  }
  void FitMeshIDsToMaterial(kv::Mesh& mesh, host::Mtl* mtl) override;
  host::Mtl* CombineMaterials(host::Mtl* a, host::Mtl* b, int& offset) override {
    return max::CombineMaterials(a, b, offset);
  }

  // ---- user feedback
  void SetStatusText(const std::string& text) override;
  void ProgressStart(const std::string& title) override;
  void ProgressUpdate(int percent, const std::string& caption) override;
  void ProgressEnd() override { Core()->ProgressEnd(); }
  bool GetEscPressed() override;
  bool IsShiftDown() const override { return (GetKeyState(VK_SHIFT) & 0x8000) != 0; }
  host::MsgBoxResult MessageBox(const std::string& text, const std::string& title,
                                host::MsgBoxKind kind) override;
  bool SaveFileDialog(const std::string& title, const std::string& proposed,
                      const std::string& filter, std::string& path) override;
  bool OpenFileDialog(const std::string& title, const std::string& filter,
                      std::string& path) override;
  // The script listener's stream (function_publishing.cpp).
  void ListenerPrint(const std::string& text) override;
  void PushPrompt(const std::string& text) override { Core()->PushPrompt(Widen(text).c_str()); }
  void PopPrompt() override { Core()->PopPrompt(); }
  void SetPickMode(host::PickModeCallback& cb) override;
  int DoModalDialog(host::ModalDialog& dlg) override;
  void EnableAccelerators(bool on) override {
    if (on) {
      ::EnableAccelerators();
    } else {
      ::DisableAccelerators();
    }
  }

  // ---- files and libraries
  std::string ResolveAssetPath(const std::string& name) const override;
  void* LoadPluginLibrary(const std::string& name) override;
  void* FindExport(void* library, const std::string& symbol) override;
  // One MoveFileExW: refused while the target is open, which the recorder allows for.
  bool RenameOver(const std::string& from, const std::string& to) override;

  // ---- text: names in files use the system's ANSI code page
  std::string ToCodePage(std::string_view utf8) const override;
  std::string FromCodePage(std::string_view bytes) const override;

  // ---- work: the system thread pool, this thread taking its share (parallel_for.cpp)
  void ParallelFor(size_t n, size_t grain, host::RangeFn fn) override;

  // The wrapper of an SDK node (made on first use, kept for the library's life); null for null.
  MaxNode* Wrap(::INode* n) const;

 private:
  class PickMode;
  std::unique_ptr<PickMode> pick_;
  host::Node* Place(::Object* obj, const std::string& name);
  static ::Interface* Core() { return GetCOREInterface(); }
  static void OnRender(void* param, NotifyInfo* info);
  MaxHold hold_;
  int renders_ = 0;  // renders begun and not yet ended (a render can start another)
  mutable std::map<::INode*, std::unique_ptr<MaxNode>> nodes_;
};

MaxHost& TheHost();
KelvaneTools::kvCacheRegistry& SharedRegistry();

}  // namespace kv::max
