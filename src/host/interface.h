// The host as the core sees it: time, undo, nodes, materials, user feedback and the file
// system services the core cannot do itself. One instance per host; the core receives it as
// a reference and never assumes which host is behind it.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "geom/mesh.h"
#include "geom/time.h"
#include "host/codepage.h"
#include "host/controller.h"
#include "host/pick.h"
#include "host/scene.h"
#include "host/undo.h"

namespace kv::host {

enum class MsgBoxKind { Info, Warning, Error, Question };
enum class MsgBoxResult { Ok, Cancel, Yes, No };

// Parts of an object that a change touches (as bits).
enum PartMask : uint32_t {
  kPartGeom = 1u << 0,
  kPartTopo = 1u << 1,
  kPartTexmap = 1u << 2,
  kPartMtl = 1u << 3,
  kPartSelect = 1u << 4,
  kPartDisplay = 1u << 5,
  kPartAll = 0xFFFFFFFFu,
};

class Interface {
 public:
  virtual ~Interface() = default;

  // ---- time
  virtual TimeValue GetTime() const = 0;
  virtual void SetTime(TimeValue t) = 0;
  virtual int GetFrameRate() const = 0;
  virtual int GetTicksPerFrame() const = 0;
  virtual Interval GetAnimRange() const = 0;
  virtual bool IsRendering() const = 0;    // a render is in progress
  virtual bool IsNetServer() const = 0;    // runs as a network rendering server
  virtual bool IsAnimPlaying() const = 0;  // interactive playback in the viewports
  virtual bool IsAnimateMode() const = 0;  // setting values makes keys
  virtual void SuspendAnimate() = 0;       // nests with ResumeAnimate
  virtual void ResumeAnimate() = 0;

  // ---- undo
  virtual Hold& GetHold() = 0;

  // ---- change notification
  // Tells everything that depends on `obj` (its nodes, the viewports) that `parts` changed.
  virtual void NotifyDependents(Object* obj, uint32_t parts) = 0;
  virtual void RedrawViews(TimeValue t) = 0;

  // ---- nodes
  virtual std::vector<Node*> GetRootNodes() const = 0;
  virtual Node* GetNodeByName(const std::string& name) const = 0;
  virtual std::vector<Node*> GetSelectedNodes() const = 0;
  // The nodes whose object is `obj`.
  virtual std::vector<Node*> NodesReferencing(const Object* obj) const = 0;
  // Whether `node` depends on `obj` (it carries it, or its transform or object is driven by
  // it); adding such a node to obj's references would make a loop.
  virtual bool DependsOn(const Node* node, const Object* obj) const = 0;
  // A name no node has yet, made from `base` (base itself when free, else base + number).
  virtual std::string MakeUniqueName(const std::string& base) const = 0;
  // A node carrying `obj` (the host takes ownership), at the scene root.
  virtual Node* CreateObjectNode(std::unique_ptr<Object> obj, const std::string& name) = 0;
  virtual Node* CreateMeshNode(const Mesh& mesh, const std::string& name) = 0;
  virtual Node* CreatePointHelperNode(const std::string& name) = 0;
  virtual Node* CreateInstanceNode(const Node* of, const std::string& name) = 0;
  // Marks the node deleted (undoable when a hold is open).
  virtual void DeleteNode(Node* node) = 0;
  virtual std::unique_ptr<Control> NewControl(ControlKind kind) = 0;
  // A keyframe controller of the given interpolation (the default controller when the host
  // has no such class).
  virtual std::unique_ptr<Control> NewKeyControl(ControlKind kind, Interp interp) {
    (void)interp;
    return NewControl(kind);
  }
  // Deselects every node (undoable when a hold is open).
  virtual void ClearSelection() {}

  // ---- materials
  virtual std::unique_ptr<MtlLib> NewMtlLib() = 0;
  virtual bool LoadMaterialLibrary(const std::string& path, MtlLib& into) = 0;
  virtual bool SaveMaterialLibrary(const std::string& path, const MtlLib& lib) = 0;
  // Clamps the mesh's material ids into the range of the material's sub-materials.
  virtual void FitMeshIDsToMaterial(Mesh& mesh, Mtl* mtl) = 0;
  // A multi-material holding both; `offset` receives the id offset of b's ids in it.
  virtual Mtl* CombineMaterials(Mtl* a, Mtl* b, int& offset) = 0;

  // ---- user feedback
  virtual void SetStatusText(const std::string& text) = 0;
  virtual void ProgressStart(const std::string& title) = 0;
  virtual void ProgressUpdate(int percent, const std::string& caption) = 0;
  virtual void ProgressEnd() = 0;
  virtual bool GetEscPressed() = 0;  // polled during long work; true once per press
  virtual bool IsShiftDown() const = 0;
  virtual MsgBoxResult MessageBox(const std::string& text, const std::string& title,
                                  MsgBoxKind kind) = 0;
  // File dialogs: false when the user cancels.
  virtual bool SaveFileDialog(const std::string& title, const std::string& proposed,
                              const std::string& filter, std::string& path) = 0;
  virtual bool OpenFileDialog(const std::string& title, const std::string& filter,
                              std::string& path) = 0;
  // Text for the script listener.
  virtual void ListenerPrint(const std::string& text) = 0;
  // The prompt line; pushes and pops nest.
  virtual void PushPrompt(const std::string& text) { (void)text; }
  virtual void PopPrompt() {}
  // Starts a viewport pick mode driven by `cb` until it ends itself or the user leaves it.
  virtual void SetPickMode(PickModeCallback& cb) { (void)cb; }
  // The select-by-name dialog; false when the user cancels (or the host has none).
  virtual bool DoHitByNameDialog(HitByNameDlgCallback& cb) {
    (void)cb;
    return false;
  }
  // Runs one of the system's dialogs modally; its result (0: cancelled, or no dialog shown).
  virtual int DoModalDialog(ModalDialog& dlg) {
    (void)dlg;
    return 0;
  }
  // The host's keyboard shortcuts, off while the user types into one of the system's fields.
  virtual void EnableAccelerators(bool on) { (void)on; }
  // Whether the viewports draw through the retained-mode pipeline (no forced wireframe there).
  virtual bool IsRetainedModeViewport() const { return false; }

  // ---- files and libraries
  // Full path of an asset name, or "" when it cannot be resolved.
  virtual std::string ResolveAssetPath(const std::string& name) const = 0;
  // A library under the host's plugins folder; null when absent. The host keeps it loaded.
  virtual void* LoadPluginLibrary(const std::string& name) = 0;
  virtual void* FindExport(void* library, const std::string& symbol) = 0;
  // Puts the file `from` in the place of `to` in one step, replacing what was there; false,
  // with both files as they were, when that fails (a system that locks open files refuses to
  // replace one that is open).
  virtual bool RenameOver(const std::string& from, const std::string& to);

  // ---- text
  // Names stored in files (cache elements, element groups) go through the host's 8-bit code
  // page, one byte per character; a character the code page lacks becomes '?'. The core's
  // strings are UTF-8. Without a code page of its own a host uses Windows-1252.
  virtual std::string ToCodePage(std::string_view utf8) const { return Utf8ToCp1252(utf8); }
  virtual std::string FromCodePage(std::string_view bytes) const { return Cp1252ToUtf8(bytes); }
};

inline bool Interface::RenameOver(const std::string& from, const std::string& to) {
  std::error_code ec;
  std::filesystem::rename(from, to, ec);
  return !ec;
}

}  // namespace kv::host
