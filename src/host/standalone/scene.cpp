#include "host/standalone/scene.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;

// Undo record made of two closures; enough for the node's plain properties.
class FnRestore final : public host::RestoreObj {
 public:
  FnRestore(std::function<void()> undo, std::function<void()> redo)
      : undo_(std::move(undo)), redo_(std::move(redo)) {}
  void Restore(bool) override { undo_(); }
  void Redo() override { redo_(); }
  int Size() const override { return static_cast<int>(sizeof(*this)); }

 private:
  std::function<void()> undo_, redo_;
};

// Swaps a controller slot with the one the record keeps, both ways.
class SlotRestore final : public host::RestoreObj {
 public:
  SlotRestore(std::unique_ptr<host::Control>& slot, std::unique_ptr<host::Control> old)
      : slot_(slot), kept_(std::move(old)) {}
  void Restore(bool) override { std::swap(slot_, kept_); }
  void Redo() override { std::swap(slot_, kept_); }
  int Size() const override { return static_cast<int>(sizeof(*this)); }

 private:
  std::unique_ptr<host::Control>& slot_;
  std::unique_ptr<host::Control> kept_;
};

}  // namespace

// ---------------------------------------------------------------- SceneNode

SceneNode::SceneNode(Scene& scene, std::string name, host::Object* obj)
    : scene_(scene),
      name_(std::move(name)),
      obj_(obj),
      tm_(MakeControl(host::ControlKind::PRS, &scene.undo_)) {}

void SceneNode::Put(std::function<void()> undo, std::function<void()> redo) {
  if (scene_.undo_.Holding())
    scene_.undo_.Put(std::make_unique<FnRestore>(std::move(undo), std::move(redo)));
}

void SceneNode::SetName(const std::string& name) {
  if (name == name_) return;
  Put([this, old = name_] { scene_.Rename(this, old); },
      [this, name] { scene_.Rename(this, name); });
  scene_.Rename(this, name);
}

host::Node* SceneNode::GetChild(int i) const {
  return i >= 0 && i < NumChildren() ? children_[static_cast<size_t>(i)] : nullptr;
}

Matrix3 SceneNode::GetNodeTM(TimeValue t) const {
  Matrix3 m = GetLocalTM(t);
  for (const SceneNode* p = parent_; p; p = p->parent_) m = m * p->GetLocalTM(t);
  return m;
}

Matrix3 SceneNode::GetObjectTM(TimeValue t) const {
  return objOffset_ * GetNodeTM(t);
}

float SceneNode::GetVisibility(TimeValue t) const {
  float v = vis_ ? vis_->GetFloat(t) : 1.0f;
  if (inheritVis_ && parent_) v *= parent_->GetVisibility(t);
  return v;
}

void SceneNode::SetMtl(host::Mtl* m) {
  Put([this, old = mtl_] { mtl_ = old; }, [this, m] { mtl_ = m; });
  mtl_ = m;
}

void SceneNode::Hide(bool on) {
  Put([this, old = hidden_] { hidden_ = old; }, [this, on] { hidden_ = on; });
  hidden_ = on;
}

void SceneNode::SetSelected(bool on) {
  if (selected_ == on) return;
  Put([this, old = selected_] { selected_ = old; }, [this, on] { selected_ = on; });
  selected_ = on;
}

void SceneNode::SetWireColor(uint32_t bgr) {
  Put([this, old = wire_] { wire_ = old; }, [this, bgr] { wire_ = bgr; });
  wire_ = bgr;
}

void SceneNode::SetInheritVisibility(bool on) {
  Put([this, old = inheritVis_] { inheritVis_ = old; }, [this, on] { inheritVis_ = on; });
  inheritVis_ = on;
}

void SceneNode::SetObjectOffset(const Matrix3& m) {
  Put([this, old = objOffset_] { objOffset_ = old; }, [this, m] { objOffset_ = m; });
  objOffset_ = m;
}

bool SceneNode::SetTMController(std::unique_ptr<host::Control> c) {
  if (!c || c->Kind() != host::ControlKind::PRS) return false;
  std::swap(tm_, c);
  if (scene_.undo_.Holding()) scene_.undo_.Put(std::make_unique<SlotRestore>(tm_, std::move(c)));
  return true;
}

bool SceneNode::SetVisController(std::unique_ptr<host::Control> c) {
  if (!c || c->Kind() != host::ControlKind::Float) return false;
  std::swap(vis_, c);
  if (scene_.undo_.Holding()) scene_.undo_.Put(std::make_unique<SlotRestore>(vis_, std::move(c)));
  return true;
}

host::Control& SceneNode::EnsureVisController() {
  if (!vis_) {
    auto c = MakeControl(host::ControlKind::Float, &scene_.undo_);
    c->SetValue(0, 1.0f, false);
    SetVisController(std::move(c));
  }
  return *vis_;
}

void SceneNode::CopyProperties(const host::Node& from) {
  SetWireColor(from.GetWireColor());
  SetInheritVisibility(from.GetInheritVisibility());
  Hide(from.IsHidden());
}

void SceneNode::SetNodeTM(TimeValue t, const Matrix3& world, bool makeKey) {
  const Matrix3 local = parent_ ? world * Inverse(parent_->GetNodeTM(t)) : world;
  tm_->SetValue(t, local, makeKey);
}

void SceneNode::KeyPosition(TimeValue t, const Point3& p) {
  tm_->GetPositionController()->SetValue(t, p, true);
}
void SceneNode::KeyRotation(TimeValue t, const Quat& q) {
  tm_->GetRotationController()->SetValue(t, q, true);
}
void SceneNode::KeyScale(TimeValue t, const Point3& s) {
  tm_->GetScaleController()->SetValue(t, host::ScaleValue{s, Quat{}}, true);
}

// ---------------------------------------------------------------- Scene

Scene::Scene() = default;

Scene::~Scene() {
  undo_.Clear();
  for (void* lib : libraries_) dlclose(lib);
}

void Scene::Reset() {
  undo_.Clear();
  nodes_.clear();
  byObject_.clear();
  byName_.clear();
  nameHints_.clear();
  objects_.clear();
  mtls_.clear();
  time_ = 0;
  fps_ = 30;
  range_ = Interval(0, 100 * 160);
  animate_ = false;
}

void Scene::NotifyDependents(host::Object*, uint32_t parts) {
  ++notifyCount_;
  notifiedParts_ |= parts;
}

void Scene::RedrawViews(TimeValue) {
  ++redrawCount_;
}

std::vector<SceneNode*> Scene::AllNodes(bool withDeleted) const {
  std::vector<SceneNode*> out;
  for (const auto& n : nodes_)
    if (withDeleted || !n->deleted_) out.push_back(n.get());
  return out;
}

std::vector<host::Node*> Scene::GetRootNodes() const {
  std::vector<host::Node*> out;
  for (const auto& n : nodes_)
    if (!n->deleted_ && !n->parent_) out.push_back(n.get());
  return out;
}

SceneNode* Scene::FindNode(const std::string& name) const {
  const auto it = byName_.find(name);
  if (it == byName_.end()) return nullptr;
  for (SceneNode* n : it->second)
    if (!n->deleted_) return n;
  return nullptr;
}

void Scene::IndexName(SceneNode* n) {
  std::vector<SceneNode*>& v = byName_[n->name_];
  const auto at = std::upper_bound(
      v.begin(), v.end(), n,
      [](const SceneNode* a, const SceneNode* b) { return a->serial_ < b->serial_; });
  v.insert(at, n);
}

void Scene::UnindexName(SceneNode* n) {
  const auto it = byName_.find(n->name_);
  if (it == byName_.end()) return;
  std::erase(it->second, n);
  if (it->second.empty()) byName_.erase(it);
}

void Scene::Rename(SceneNode* n, const std::string& name) {
  UnindexName(n);
  if (!n->deleted_) ++namesFreed_;
  n->name_ = name;
  IndexName(n);
}

void Scene::SetDeleted(SceneNode* n, bool on) {
  if (on && !n->deleted_) ++namesFreed_;
  n->deleted_ = on;
}

host::Node* Scene::GetNodeByName(const std::string& name) const {
  return FindNode(name);
}

std::vector<host::Node*> Scene::GetSelectedNodes() const {
  std::vector<host::Node*> out;
  for (const auto& n : nodes_)
    if (!n->deleted_ && n->selected_) out.push_back(n.get());
  return out;
}

std::vector<host::Node*> Scene::NodesReferencing(const host::Object* obj) const {
  std::vector<host::Node*> out;
  const auto it = byObject_.find(obj);
  if (!obj || it == byObject_.end()) return out;
  for (SceneNode* n : it->second)
    if (!n->deleted_) out.push_back(n);
  return out;
}

void SceneNode::SetObjectRef(host::Object* obj) {
  if (obj == obj_) return;
  if (obj_) std::erase(scene_.byObject_[obj_], this);
  obj_ = obj;
  if (obj_) scene_.byObject_[obj_].push_back(this);
}

bool Scene::DependsOn(const host::Node* node, const host::Object* obj) const {
  if (!obj) return false;
  for (const host::Node* n = node; n; n = n->GetParent())
    if (n->GetObjectRef() == obj) return true;
  return false;
}

std::string Scene::MakeUniqueName(const std::string& base) const {
  if (!FindNode(base)) return base;
  std::string stem = base;
  while (!stem.empty() && std::isdigit(static_cast<unsigned char>(stem.back()))) stem.pop_back();
  // Numbers below the hint are known to be taken, so making n names from one base costs n
  // look-ups, not n squared.
  NameHint& hint = nameHints_[stem];
  if (hint.freed != namesFreed_) hint = {1, namesFreed_};
  for (int i = hint.next;; ++i) {
    char num[16];
    std::snprintf(num, sizeof num, "%03d", i);
    std::string name = stem + num;
    if (!FindNode(name)) {
      hint.next = i;
      return name;
    }
  }
}

host::Object* Scene::AddObject(std::unique_ptr<host::Object> obj) {
  objects_.push_back(std::move(obj));
  return objects_.back().get();
}

SceneNode* Scene::AdoptNode(std::unique_ptr<SceneNode> n) {
  SceneNode* p = n.get();
  p->serial_ = nodes_.size();
  nodes_.push_back(std::move(n));
  if (p->obj_) byObject_[p->obj_].push_back(p);
  IndexName(p);
  // Creation is undone by the deleted mark: the node stays addressable, as the core expects.
  if (undo_.Holding())
    undo_.Put(std::make_unique<FnRestore>([this, p] { SetDeleted(p, true); },
                                          [this, p] { SetDeleted(p, false); }));
  return p;
}

SceneNode* Scene::CreateNode(std::unique_ptr<host::Object> obj, const std::string& name,
                             SceneNode* parent) {
  host::Object* o = obj ? AddObject(std::move(obj)) : nullptr;
  SceneNode* n = AdoptNode(std::make_unique<SceneNode>(*this, name, o));
  if (parent) Link(n, parent);
  return n;
}

host::Node* Scene::CreateObjectNode(std::unique_ptr<host::Object> obj, const std::string& name) {
  return CreateNode(std::move(obj), name);
}

host::Node* Scene::CreateMeshNode(const Mesh& mesh, const std::string& name) {
  return CreateNode(std::make_unique<TriObject>(mesh), name);
}

host::Node* Scene::CreatePointHelperNode(const std::string& name) {
  return CreateNode(std::make_unique<PointHelperObject>(), name);
}

SceneNode* Scene::CreateLightNode(host::ClassId lightClass, const std::string& name) {
  if (!IsLightClass(lightClass)) return nullptr;
  return CreateNode(std::make_unique<LightObject>(lightClass, &undo_), name);
}

host::Node* Scene::CreateInstanceNode(const host::Node* of, const std::string& name) {
  if (!of) return nullptr;
  SceneNode* n = AdoptNode(std::make_unique<SceneNode>(*this, name, of->GetObjectRef()));
  n->mtl_ = of->GetMtl();
  return n;
}

void Scene::Link(SceneNode* child, SceneNode* parent) {
  if (!child || child == parent) return;
  for (SceneNode* p = parent; p; p = p->parent_)
    if (p == child) return;  // would make a loop
  SceneNode* old = child->parent_;
  auto relink = [child](SceneNode* from, SceneNode* to) {
    if (from) std::erase(from->children_, child);
    child->parent_ = to;
    if (to) to->children_.push_back(child);
  };
  relink(old, parent);
  if (undo_.Holding())
    undo_.Put(
        std::make_unique<FnRestore>([=] { relink(parent, old); }, [=] { relink(old, parent); }));
}

void Scene::DeleteNode(host::Node* node) {
  // Only nodes of this scene; no walk over all nodes (a recording deletes many).
  auto* n = dynamic_cast<SceneNode*>(node);
  if (!n || &n->scene_ != this || n->deleted_) return;
  const bool wasSelected = n->selected_;
  // Children move to the deleted node's parent, as in the host.
  for (SceneNode* c : std::vector<SceneNode*>(n->children_)) Link(c, n->parent_);
  SetDeleted(n, true);
  n->selected_ = false;
  if (undo_.Holding())
    undo_.Put(std::make_unique<FnRestore>(
        [this, n, wasSelected] { SetDeleted(n, false), n->selected_ = wasSelected; },
        [this, n] { SetDeleted(n, true), n->selected_ = false; }));
}

void Scene::ClearSelection() {
  for (const auto& n : nodes_) n->SetSelected(false);
}

std::unique_ptr<host::Control> Scene::NewControl(host::ControlKind kind) {
  return MakeControl(kind, &undo_);
}

std::unique_ptr<host::Control> Scene::NewKeyControl(host::ControlKind kind, host::Interp interp) {
  return MakeControl(kind, interp, &undo_);
}

// ---------------------------------------------------------------- materials

StdMtl* Scene::NewStdMtl(const std::string& name, const Point3& diffuse) {
  auto m = std::make_unique<StdMtl>(name, diffuse);
  StdMtl* p = m.get();
  mtls_.push_back(std::move(m));
  return p;
}

MultiMtl* Scene::NewMultiMtl(const std::string& name) {
  auto m = std::make_unique<MultiMtl>(name);
  MultiMtl* p = m.get();
  mtls_.push_back(std::move(m));
  return p;
}

std::unique_ptr<host::MtlLib> Scene::NewMtlLib() {
  return std::make_unique<MtlList>();
}

void Scene::FitMeshIDsToMaterial(Mesh& mesh, host::Mtl* mtl) {
  if (!mtl) return;
  const int n = std::max(1, mtl->NumSubMtls());
  for (Face& f : mesh.faces) f.setMatID(static_cast<MtlID>(f.getMatID() % n));
}

host::Mtl* Scene::CombineMaterials(host::Mtl* a, host::Mtl* b, int& offset) {
  MultiMtl* m = NewMultiMtl(a ? a->GetName() : std::string("Multi"));
  auto add = [m](host::Mtl* x) {
    if (!x) return;
    if (x->IsMultiMtl())
      for (int i = 0; i < x->NumSubMtls(); ++i) m->subs.push_back(x->GetSubMtl(i));
    else
      m->subs.push_back(x);
  };
  add(a);
  offset = m->NumSubMtls();
  add(b);
  return m;
}

namespace {

using nlohmann::json;

json MtlToJson(const host::Mtl* m, int depth) {
  if (!m) return nullptr;
  if (const auto* s = dynamic_cast<const StdMtl*>(m))
    return {{"type", "standard"},
            {"name", s->GetName()},
            {"diffuse", {s->diffuse.x, s->diffuse.y, s->diffuse.z}}};
  json j = {{"type", "multi"}, {"name", m->GetName()}, {"subs", json::array()}};
  if (depth < 8)
    for (int i = 0; i < m->NumSubMtls(); ++i)
      j["subs"].push_back(MtlToJson(m->GetSubMtl(i), depth + 1));
  return j;
}

}  // namespace

bool Scene::SaveMaterialLibrary(const std::string& path, const host::MtlLib& lib) {
  json j = {{"format", "kv-mtllib"}, {"version", 1}, {"materials", json::array()}};
  for (int i = 0; i < lib.Count(); ++i) j["materials"].push_back(MtlToJson(lib.At(i), 0));
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  if (!f) return false;
  f << j.dump(2) << '\n';
  return static_cast<bool>(f);
}

bool Scene::LoadMaterialLibrary(const std::string& path, host::MtlLib& into) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return false;
  const json j = json::parse(f, nullptr, false);
  if (j.is_discarded() || !j.is_object() || j.value("format", "") != "kv-mtllib" ||
      !j.contains("materials") || !j["materials"].is_array())
    return false;
  // Builds every material first so that a bad entry adds nothing to the library.
  std::vector<host::Mtl*> made;
  std::function<host::Mtl*(const json&, int)> build = [&](const json& e, int depth) -> host::Mtl* {
    if (e.is_null() || !e.is_object() || depth > 8) return nullptr;
    const std::string type = e.value("type", "");
    const std::string name =
        e.contains("name") && e["name"].is_string() ? e["name"].get<std::string>() : "";
    if (type == "standard") {
      Point3 d{0.5f, 0.5f, 0.5f};
      if (e.contains("diffuse") && e["diffuse"].is_array() && e["diffuse"].size() == 3 &&
          e["diffuse"][0].is_number() && e["diffuse"][1].is_number() && e["diffuse"][2].is_number())
        d = {e["diffuse"][0].get<float>(), e["diffuse"][1].get<float>(),
             e["diffuse"][2].get<float>()};
      return NewStdMtl(name, d);
    }
    if (type == "multi") {
      MultiMtl* m = NewMultiMtl(name);
      if (e.contains("subs") && e["subs"].is_array())
        for (const json& s : e["subs"]) m->subs.push_back(build(s, depth + 1));
      return m;
    }
    return nullptr;
  };
  for (const json& e : j["materials"]) {
    host::Mtl* m = build(e, 0);
    if (!m) return false;
    made.push_back(m);
  }
  for (host::Mtl* m : made) into.Add(m);
  return true;
}

// ---------------------------------------------------------------- user feedback

void Scene::SetStatusText(const std::string& text) {
  status_ = text;
}

void Scene::ProgressStart(const std::string& title) {
  progress_.push_back({ProgressEvent::What::Start, 0, title});
}
void Scene::ProgressUpdate(int percent, const std::string& caption) {
  progress_.push_back({ProgressEvent::What::Update, percent, caption});
}
void Scene::ProgressEnd() {
  progress_.push_back({ProgressEvent::What::End, 100, {}});
}

bool Scene::GetEscPressed() {
  if (responder_.escAnswers.empty()) return false;
  const bool pressed = responder_.escAnswers.front();
  responder_.escAnswers.pop_front();
  return pressed;
}

host::MsgBoxResult Scene::MessageBox(const std::string& text, const std::string& title,
                                     host::MsgBoxKind kind) {
  responder_.log.push_back({Responder::Shown::What::MessageBox, title, text, kind});
  if (!responder_.msgBoxAnswers.empty()) {
    const host::MsgBoxResult r = responder_.msgBoxAnswers.front();
    responder_.msgBoxAnswers.pop_front();
    return r;
  }
  return kind == host::MsgBoxKind::Question ? responder_.questionDefault : host::MsgBoxResult::Ok;
}

namespace {
bool AnswerDialog(Responder& r, std::string& path) {
  if (r.fileAnswers.empty()) return false;
  const std::optional<std::string> a = r.fileAnswers.front();
  r.fileAnswers.pop_front();
  if (!a) return false;
  path = *a;
  return true;
}
}  // namespace

bool Scene::SaveFileDialog(const std::string& title, const std::string& proposed,
                           const std::string&, std::string& path) {
  responder_.log.push_back({Responder::Shown::What::SaveDialog, title, proposed});
  return AnswerDialog(responder_, path);
}

bool Scene::OpenFileDialog(const std::string& title, const std::string& filter, std::string& path) {
  responder_.log.push_back({Responder::Shown::What::OpenDialog, title, filter});
  return AnswerDialog(responder_, path);
}

void Scene::SetPickMode(host::PickModeCallback& cb) {
  responder_.log.push_back({Responder::Shown::What::PickMode, {}, {}});
  cb.EnterMode();
  while (!responder_.picks.empty()) {
    const std::string name = responder_.picks.front();
    responder_.picks.pop_front();
    if (name.empty()) {
      if (cb.Pick(nullptr)) break;
      continue;
    }
    SceneNode* n = FindNode(name);
    if (!n || n->IsDeleted() || !cb.Filter(n)) continue;  // nothing pickable under the cursor
    if (cb.Pick(n)) break;
  }
  cb.ExitMode();
}

bool Scene::DoHitByNameDialog(host::HitByNameDlgCallback& cb) {
  responder_.log.push_back({Responder::Shown::What::ByName, cb.dialogTitle(), cb.buttonText()});
  if (responder_.byNameAnswers.empty()) return false;
  const std::optional<std::vector<std::string>> a = responder_.byNameAnswers.front();
  responder_.byNameAnswers.pop_front();
  if (!a) return false;
  const bool all = cb.showHiddenAndFrozen();
  std::vector<host::Node*> chosen;
  for (const std::string& name : *a) {
    SceneNode* n = FindNode(name);
    if (!n || n->IsDeleted() || (!all && n->IsHidden())) continue;
    if (cb.useFilter() && !cb.filter(n)) continue;
    if (std::find(chosen.begin(), chosen.end(), n) != chosen.end()) continue;
    chosen.push_back(n);
    if (cb.singleSelect()) break;
  }
  if (cb.useProc()) cb.proc(chosen);
  return true;
}

int Scene::DoModalDialog(host::ModalDialog& dlg) {
  responder_.log.push_back({Responder::Shown::What::Dialog, std::to_string(dlg.TemplateId()), {}});
  if (responder_.dialogActions.empty()) return 0;
  const auto act = std::move(responder_.dialogActions.front());
  responder_.dialogActions.pop_front();
  return act(dlg);
}

void Scene::ListenerPrint(const std::string& text) {
  if (listenerStdout_) {
    std::cout << text;
    std::cout.flush();
  } else {
    listener_ += text;
  }
}

// ---------------------------------------------------------------- files and libraries

std::string Scene::ResolveAssetPath(const std::string& name) const {
  if (name.empty()) return {};
  std::error_code ec;
  const fs::path p = fs::u8path(name);
  if (p.is_absolute()) return name;
  if (fs::exists(p, ec)) return fs::absolute(p, ec).string();
  if (!assetDir_.empty()) {
    const fs::path q = fs::u8path(assetDir_) / p;
    if (fs::exists(q, ec)) return fs::absolute(q, ec).string();
  }
  return {};
}

void* Scene::LoadPluginLibrary(const std::string& name) {
  if (pluginsDir_.empty() || name.empty()) return nullptr;
  fs::path p = fs::u8path(pluginsDir_) / fs::u8path(name);
  if (!p.has_extension()) p += ".so";
  void* lib = dlopen(p.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (lib) libraries_.push_back(lib);
  return lib;
}

void* Scene::FindExport(void* library, const std::string& symbol) {
  return library ? dlsym(library, symbol.c_str()) : nullptr;
}

namespace {

// Whether a descriptor of this process refers to `path` (through /proc/self/fd).
bool HeldOpen(const fs::path& path) {
  std::error_code ec;
  const fs::path want = fs::weakly_canonical(path, ec);
  if (ec) return false;
  for (const auto& fd : fs::directory_iterator("/proc/self/fd", ec)) {
    std::error_code lc;
    const fs::path target = fs::read_symlink(fd.path(), lc);
    if (!lc && target == want) return true;
  }
  return false;
}

}  // namespace

bool Scene::RenameOver(const std::string& from, const std::string& to) {
  if (lockOpenFiles_ && (HeldOpen(fs::u8path(from)) || HeldOpen(fs::u8path(to)))) {
    ++renamesRefused_;
    return false;
  }
  std::error_code ec;
  fs::rename(fs::u8path(from), fs::u8path(to), ec);
  return !ec;
}

}  // namespace kv::standalone
