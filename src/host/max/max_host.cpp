#include "host/max/max_host.h"

#include <commdlg.h>

#include <algorithm>

#include "cache/registry.h"
#include "host/max/cache_object.h"
#include "host/max/mesh_convert.h"
#include "object/cache_obj.h"

namespace kv::max {

namespace {

// Undo records of the core, put into theHold.
class RestoreAdapter final : public ::RestoreObj {
 public:
  explicit RestoreAdapter(std::unique_ptr<host::RestoreObj> rec) : rec_(std::move(rec)) {}
  void Restore(int isUndo) override { rec_->Restore(isUndo != 0); }
  void Redo() override { rec_->Redo(); }
  int Size() override { return rec_->Size(); }
  void EndHold() override { rec_->EndHold(); }
  MSTR Description() override { return MSTR(Widen(rec_->Description()).c_str()); }

 private:
  std::unique_ptr<host::RestoreObj> rec_;
};

// "text|pattern|" as the double-null-terminated list the Win32 dialogs read.
std::wstring DialogFilter(const std::string& filter) {
  std::wstring w = Widen(filter);
  std::replace(w.begin(), w.end(), L'|', L'\0');
  w.push_back(L'\0');
  w.push_back(L'\0');
  return w;
}

bool FileDialog(bool save, const std::string& title, const std::string& proposed,
                const std::string& filter, std::string& path) {
  wchar_t file[MAX_PATH] = {};
  const std::wstring start = Widen(proposed);
  std::copy_n(start.c_str(), std::min<size_t>(start.size(), MAX_PATH - 1), file);
  const std::wstring wtitle = Widen(title);
  const std::wstring wfilter = DialogFilter(filter);
  OPENFILENAMEW ofn = {};
  ofn.lStructSize = sizeof(ofn);
  ofn.hwndOwner = GetCOREInterface()->GetMAXHWnd();
  ofn.lpstrFilter = wfilter.c_str();
  ofn.lpstrFile = file;
  ofn.nMaxFile = MAX_PATH;
  ofn.lpstrTitle = wtitle.c_str();
  ofn.lpstrDefExt = L"kvc";
  ofn.Flags =
      OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | (save ? OFN_OVERWRITEPROMPT : OFN_FILEMUSTEXIST);
  const BOOL ok = save ? GetSaveFileNameW(&ofn) : GetOpenFileNameW(&ofn);
  if (!ok) return false;
  path = Narrow(file);
  return true;
}

// Progress has no thread of its own: the work runs on the main thread and polls.
DWORD WINAPI NoWork(LPVOID) {
  return 0;
}

}  // namespace

void MaxHold::Put(std::unique_ptr<host::RestoreObj> rec) {
  if (!rec || !theHold.Holding()) return;
  theHold.Put(new RestoreAdapter(std::move(rec)));
}

void MaxHold::Accept(const std::string& label) {
  theHold.Accept(Widen(label).c_str());
}

host::Node* MaxNode::GetParent() const {
  return TheHost().Wrap(n_->GetParentNode());
}

host::Node* MaxNode::GetChild(int i) const {
  return TheHost().Wrap(n_->GetChildNode(i));
}

host::Object* MaxNode::GetObjectRef() const {
  ::Object* o = n_->GetObjectRef();
  if (!o) return nullptr;
  // A cache object is answered by its core, so that the core sees its own objects as such.
  if (o->ClassID() == Class_ID(host::kKvCacheClassId.a, host::kKvCacheClassId.b)) {
    return &static_cast<MaxCacheObject*>(o)->Core();
  }
  return &objRef_;
}

host::Control* MaxNode::GetTMController() const {
  ::Control* c = n_->GetTMController();
  if (!c) return nullptr;
  if (!tm_ || tm_->Sdk() != c) tm_ = std::make_unique<MaxControl>(c);
  return tm_.get();
}

host::Control* MaxNode::GetVisController() const {
  ::Control* c = n_->GetVisController();
  if (!c) return nullptr;
  if (!vis_ || vis_->Sdk() != c) vis_ = std::make_unique<MaxControl>(c);
  return vis_.get();
}

bool MaxNode::SetTMController(std::unique_ptr<host::Control> c) {
  ::Control* s = MaxControl::SdkOf(c.get());
  if (!s || c->Kind() != host::ControlKind::PRS) return false;
  return n_->SetTMController(s) != FALSE;
}

bool MaxNode::SetVisController(std::unique_ptr<host::Control> c) {
  ::Control* s = MaxControl::SdkOf(c.get());
  if (!s || c->Kind() != host::ControlKind::Float) return false;
  n_->SetVisController(s);
  return true;
}

// The SDK's pick mode over the core's: the core's filter decides what the cursor offers, its
// Pick what a click does.
class MaxHost::PickMode final : public PickModeCallback, public PickNodeCallback {
 public:
  explicit PickMode(MaxHost& host) : host_(host) {}
  void Start(host::PickModeCallback& cb) { cb_ = &cb; }

  BOOL HitTest(IObjParam* ip, HWND hWnd, ViewExp*, ::IPoint2 m, int) override {
    return ip->PickNode(hWnd, m, this) != nullptr;
  }
  BOOL Pick(IObjParam*, ViewExp* vpt) override {
    return cb_ && cb_->Pick(host_.Wrap(vpt->GetClosestHit())) ? TRUE : FALSE;
  }
  void EnterMode(IObjParam*) override {
    if (cb_) cb_->EnterMode();
  }
  void ExitMode(IObjParam*) override {
    if (cb_) cb_->ExitMode();
  }
  PickNodeCallback* GetFilter() override { return this; }
  BOOL Filter(::INode* node) override {
    return cb_ && node && cb_->Filter(host_.Wrap(node)) ? TRUE : FALSE;
  }

 private:
  MaxHost& host_;
  host::PickModeCallback* cb_ = nullptr;
};

MaxHost::MaxHost() : pick_(std::make_unique<PickMode>(*this)) {
  // 3ds Max has no query for a render in progress: count the renders it announces.
  RegisterNotification(OnRender, this, NOTIFY_PRE_RENDER);
  RegisterNotification(OnRender, this, NOTIFY_POST_RENDER);
}

MaxHost::~MaxHost() {
  UnRegisterNotification(OnRender, this, NOTIFY_PRE_RENDER);
  UnRegisterNotification(OnRender, this, NOTIFY_POST_RENDER);
}

void MaxHost::OnRender(void* param, NotifyInfo* info) {
  auto* self = static_cast<MaxHost*>(param);
  if (info->intcode == NOTIFY_PRE_RENDER) {
    ++self->renders_;
  } else if (self->renders_ > 0) {
    --self->renders_;
  }
}

namespace {

// The select-by-name dialog asking the core's callback.
class HitByName final : public HitByNameDlgCallback {
 public:
  explicit HitByName(host::HitByNameDlgCallback& cb)
      : cb_(cb), title_(Widen(cb.dialogTitle())), button_(Widen(cb.buttonText())) {}
  const MCHAR* dialogTitle() override { return title_.c_str(); }
  const MCHAR* buttonText() override { return button_.c_str(); }
  BOOL singleSelect() override { return cb_.singleSelect() ? TRUE : FALSE; }
  BOOL useFilter() override { return cb_.useFilter() ? TRUE : FALSE; }
  int filter(::INode* node) override {
    host::Node* n = TheHost().Wrap(node);
    return n && cb_.filter(n) ? TRUE : FALSE;
  }
  BOOL useProc() override { return cb_.useProc() ? TRUE : FALSE; }
  void proc(INodeTab& nodeTab) override {
    std::vector<host::Node*> nodes;
    nodes.reserve(static_cast<size_t>(nodeTab.Count()));
    for (int i = 0; i < nodeTab.Count(); ++i) {
      if (host::Node* n = TheHost().Wrap(nodeTab[i])) nodes.push_back(n);
    }
    cb_.proc(nodes);
  }
  BOOL doCustomHilite() override { return cb_.doCustomHilite() ? TRUE : FALSE; }
  BOOL doHilite(::INode*) override { return cb_.doHiliteNode() ? TRUE : FALSE; }
  BOOL showHiddenAndFrozen() override { return cb_.showHiddenAndFrozen() ? TRUE : FALSE; }

 private:
  host::HitByNameDlgCallback& cb_;
  std::wstring title_, button_;  // the dialog keeps the pointers while it is open
};

}  // namespace

bool MaxHost::DoHitByNameDialog(host::HitByNameDlgCallback& cb) {
  HitByName dlg(cb);
  return Core()->DoHitByNameDialog(&dlg) != FALSE;
}

void MaxNode::SetSelected(bool on) {
  if (on) {
    GetCOREInterface()->SelectNode(n_, 0);  // added to the selection
  } else {
    GetCOREInterface()->DeSelectNode(n_);
  }
}

void MaxNode::CopyProperties(const host::Node& from) {
  const auto* m = dynamic_cast<const MaxNode*>(&from);
  if (!m) return;
  ::INode* f = m->n_;
  n_->SetWireColor(f->GetWireColor());
  n_->SetInheritVisibility(f->GetInheritVisibility());
  n_->Hide(f->IsHidden() ? TRUE : FALSE);
  n_->SetRenderable(f->Renderable() ? TRUE : FALSE);
  n_->SetCastShadows(f->CastShadows() ? TRUE : FALSE);
  n_->SetRcvShadows(f->RcvShadows() ? TRUE : FALSE);
  n_->BoxMode(f->GetBoxMode());
  n_->BackCull(f->GetBackCull() ? TRUE : FALSE);
}

void MaxHost::SetPickMode(host::PickModeCallback& cb) {
  pick_->Start(cb);
  Core()->SetPickMode(pick_.get());
}

namespace {

// The system's modal dialogs close on OK or Cancel; what they show comes with the template.
INT_PTR CALLBACK ModalProc(HWND hwnd, UINT msg, WPARAM wp, LPARAM) {
  if (msg == WM_INITDIALOG) return TRUE;
  if (msg == WM_COMMAND && (LOWORD(wp) == IDOK || LOWORD(wp) == IDCANCEL)) {
    EndDialog(hwnd, LOWORD(wp));
    return TRUE;
  }
  return FALSE;
}

}  // namespace

int MaxHost::DoModalDialog(host::ModalDialog& dlg) {
  const INT_PTR r = DialogBoxParamW(ModuleHandle(), MAKEINTRESOURCEW(dlg.TemplateId()),
                                    Core()->GetMAXHWnd(), ModalProc, 0);
  return r == IDOK ? IDOK : 0;
}

MaxNode* MaxHost::Wrap(::INode* n) const {
  if (!n) return nullptr;
  auto& slot = nodes_[n];
  if (!slot) slot = std::make_unique<MaxNode>(n);
  return slot.get();
}

void MaxHost::NotifyDependents(host::Object* obj, uint32_t parts) {
  if (MaxCacheObject* o = MaxCacheObject::Owning(obj)) {
    o->InvalidateMesh();
    PartID p = 0;
    if (parts & host::kPartGeom) p |= PART_GEOM;
    if (parts & host::kPartTopo) p |= PART_TOPO;
    if (parts & host::kPartTexmap) p |= PART_TEXMAP;
    if (parts & host::kPartMtl) p |= PART_MTL;
    if (parts & host::kPartSelect) p |= PART_SELECT;
    if (parts & host::kPartDisplay) p |= PART_DISPLAY;
    o->NotifyDependents(::Interval(TIME_NegInfinity, TIME_PosInfinity), p, REFMSG_CHANGE);
  }
}

std::vector<host::Node*> MaxHost::GetRootNodes() const {
  std::vector<host::Node*> out;
  ::INode* root = Core()->GetRootNode();
  for (int i = 0; root && i < root->NumberOfChildren(); ++i) {
    out.push_back(Wrap(root->GetChildNode(i)));
  }
  return out;
}

host::Node* MaxHost::GetNodeByName(const std::string& name) const {
  return Wrap(Core()->GetINodeByName(Widen(name).c_str()));
}

std::vector<host::Node*> MaxHost::GetSelectedNodes() const {
  std::vector<host::Node*> out;
  const int n = Core()->GetSelNodeCount();
  for (int i = 0; i < n; ++i) out.push_back(Wrap(Core()->GetSelNode(i)));
  return out;
}

std::vector<host::Node*> MaxHost::NodesReferencing(const host::Object* obj) const {
  // A walk of the scene: the core asks this only on user commands, never per frame.
  std::vector<host::Node*> out;
  std::vector<::INode*> stack{Core()->GetRootNode()};
  while (!stack.empty()) {
    ::INode* n = stack.back();
    stack.pop_back();
    if (!n) continue;
    for (int i = 0; i < n->NumberOfChildren(); ++i) stack.push_back(n->GetChildNode(i));
    MaxNode* w = Wrap(n);
    if (n != Core()->GetRootNode() && w->GetObjectRef() == obj) out.push_back(w);
  }
  return out;
}

bool MaxHost::DependsOn(const host::Node* node, const host::Object* obj) const {
  // Only carrying the object is seen here; deeper dependencies need the reference walk.
  return node && node->GetObjectRef() == obj;
}

std::string MaxHost::MakeUniqueName(const std::string& base) const {
  MSTR name(Widen(base).c_str());
  Core()->MakeNameUnique(name);
  return Narrow(name.data());
}

host::Node* MaxHost::CreateObjectNode(std::unique_ptr<host::Object> obj, const std::string& name) {
  // Only the cache object can be given to the scene: others have no SDK object behind them.
  auto* core = dynamic_cast<kvCache_obj*>(obj.get());
  MaxCacheObject* o = core ? MaxCacheObject::Owning(core) : nullptr;
  if (!o) return nullptr;
  obj.release();  // the binding object owns it already
  ::INode* n = Core()->CreateObjectNode(o);
  if (!n) return nullptr;
  n->SetName(Widen(name).c_str());
  return Wrap(n);
}

host::Node* MaxHost::Place(::Object* obj, const std::string& name) {
  if (!obj) return nullptr;
  ::INode* n = Core()->CreateObjectNode(obj);
  if (!n) return nullptr;
  n->SetName(Widen(name).c_str());
  return Wrap(n);
}

host::Node* MaxHost::CreateMeshNode(const kv::Mesh& mesh, const std::string& name) {
  TriObject* tri = CreateNewTriObject();
  if (!tri) return nullptr;
  ToMax(mesh, tri->GetMesh());
  return Place(tri, name);
}

host::Node* MaxHost::CreatePointHelperNode(const std::string& name) {
  return Place(static_cast<::Object*>(
                   Core()->CreateInstance(HELPER_CLASS_ID, Class_ID(POINTHELP_CLASS_ID, 0))),
               name);
}

host::Node* MaxHost::CreateInstanceNode(const host::Node* of, const std::string& name) {
  // The new node shares the object: an instance.
  const auto* src = dynamic_cast<const MaxNode*>(of);
  return src ? Place(src->Sdk()->GetObjectRef(), name) : nullptr;
}

void MaxHost::DeleteNode(host::Node* node) {
  if (auto* n = dynamic_cast<MaxNode*>(node)) Core()->DeleteNode(n->Sdk(), FALSE);
}

void MaxHost::FitMeshIDsToMaterial(kv::Mesh& mesh, host::Mtl* mtl) {
  // Ids past the last sub-material wrap round, as the renderer reads them.
  if (!mtl) return;
  const int n = std::max(1, mtl->NumSubMtls());
  for (kv::Face& f : mesh.faces) f.setMatID(static_cast<kv::MtlID>(f.getMatID() % n));
}

void MaxHost::SetStatusText(const std::string& text) {
  Core()->ReplacePrompt(Widen(text).c_str());
}

void MaxHost::ProgressStart(const std::string& title) {
  Core()->ProgressStart(Widen(title).c_str(), TRUE, NoWork, nullptr);
}

void MaxHost::ProgressUpdate(int percent, const std::string& caption) {
  const std::wstring c = Widen(caption);
  Core()->ProgressUpdate(percent, FALSE, c.empty() ? nullptr : c.c_str());
}

bool MaxHost::GetEscPressed() {
  // Once per press: a key held down across several polls cancels once.
  static bool down = false;
  const bool now = (GetAsyncKeyState(VK_ESCAPE) & 0x8000) != 0;
  const bool pressed = now && !down;
  down = now;
  return pressed || Core()->GetCancel() != 0;
}

host::MsgBoxResult MaxHost::MessageBox(const std::string& text, const std::string& title,
                                       host::MsgBoxKind kind) {
  UINT type = MB_OK;
  switch (kind) {
    case host::MsgBoxKind::Info:
      type = MB_OK | MB_ICONINFORMATION;
      break;
    case host::MsgBoxKind::Warning:
      type = MB_OKCANCEL | MB_ICONWARNING;
      break;
    case host::MsgBoxKind::Error:
      type = MB_OK | MB_ICONERROR;
      break;
    case host::MsgBoxKind::Question:
      type = MB_YESNO | MB_ICONQUESTION;
      break;
  }
  const int r = MessageBoxW(Core()->GetMAXHWnd(), Widen(text).c_str(), Widen(title).c_str(), type);
  switch (r) {
    case IDYES:
      return host::MsgBoxResult::Yes;
    case IDNO:
      return host::MsgBoxResult::No;
    case IDCANCEL:
      return host::MsgBoxResult::Cancel;
    default:
      return host::MsgBoxResult::Ok;
  }
}

bool MaxHost::SaveFileDialog(const std::string& title, const std::string& proposed,
                             const std::string& filter, std::string& path) {
  return FileDialog(true, title, proposed, filter, path);
}

bool MaxHost::OpenFileDialog(const std::string& title, const std::string& filter,
                             std::string& path) {
  return FileDialog(false, title, {}, filter, path);
}

std::string MaxHost::ResolveAssetPath(const std::string& name) const {
  const DWORD attrs = GetFileAttributesW(Widen(name).c_str());
  return attrs != INVALID_FILE_ATTRIBUTES ? name : std::string();
}

void* MaxHost::LoadPluginLibrary(const std::string& name) {
  // The "plugins" folder beside the application.
  wchar_t exe[MAX_PATH] = {};
  const DWORD n = GetModuleFileNameW(nullptr, exe, MAX_PATH);
  if (n == 0 || n >= MAX_PATH || name.empty()) return nullptr;
  std::wstring path(exe, n);
  path.resize(path.find_last_of(L"\\/") + 1);
  path += L"plugins\\" + Widen(name);
  if (path.find(L'.', path.find_last_of(L"\\/")) == std::wstring::npos) path += L".dlo";
  return LoadLibraryW(path.c_str());
}

void* MaxHost::FindExport(void* library, const std::string& symbol) {
  if (!library) return nullptr;
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), symbol.c_str()));
}

bool MaxHost::RenameOver(const std::string& from, const std::string& to) {
  // One rename that replaces the target; it fails, leaving both files, while the target is
  // open elsewhere.
  return MoveFileExW(Widen(from).c_str(), Widen(to).c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

std::string MaxHost::ToCodePage(std::string_view utf8) const {
  const std::wstring w = Widen(utf8);
  if (w.empty()) return {};
  // Without best-fit mapping a character the code page lacks becomes the default '?', not a
  // look-alike letter.
  const int n = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, w.data(), int(w.size()), nullptr,
                                    0, "?", nullptr);
  std::string out(size_t(n > 0 ? n : 0), '\0');
  if (n > 0)
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, w.data(), int(w.size()), out.data(), n, "?",
                        nullptr);
  return out;
}

std::string MaxHost::FromCodePage(std::string_view bytes) const {
  if (bytes.empty()) return {};
  const int n = MultiByteToWideChar(CP_ACP, 0, bytes.data(), int(bytes.size()), nullptr, 0);
  std::wstring w(size_t(n > 0 ? n : 0), L'\0');
  if (n > 0) MultiByteToWideChar(CP_ACP, 0, bytes.data(), int(bytes.size()), w.data(), n);
  return Narrow(w.c_str());
}

MaxHost& TheHost() {
  static MaxHost host;
  return host;
}

KelvaneTools::kvCacheRegistry& SharedRegistry() {
  static KelvaneTools::kvCacheRegistry registry(&TheHost());
  return registry;
}

}  // namespace kv::max
