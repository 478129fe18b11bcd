// Small in-test stand-ins for the host: an undo hold with undo/redo, a float key controller, a
// chunked memory stream and an Interface whose scene is a handful of nodes.
#pragma once

#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/interface.h"

namespace kv::test {

class FakeHold : public host::Hold {
 public:
  struct Step {
    std::string label;
    std::vector<std::unique_ptr<host::RestoreObj>> recs;
  };
  bool Holding() const override { return open_ && suspend_ == 0; }
  void Begin() override {
    open_ = true;
    cur_.clear();
  }
  void Put(std::unique_ptr<host::RestoreObj> r) override {
    if (Holding()) cur_.push_back(std::move(r));
  }
  void Accept(const std::string& label) override {
    open_ = false;
    if (cur_.empty()) return;
    undo_.push_back({label, std::move(cur_)});
    redo_.clear();
    cur_.clear();
  }
  void Cancel() override {
    open_ = false;
    for (auto it = cur_.rbegin(); it != cur_.rend(); ++it) (*it)->Restore(false);
    cur_.clear();
  }
  void Suspend() override { ++suspend_; }
  void Resume() override { --suspend_; }
  bool IsSuspended() const override { return suspend_ > 0; }

  bool Undo() {
    if (undo_.empty()) return false;
    Step s = std::move(undo_.back());
    undo_.pop_back();
    for (auto it = s.recs.rbegin(); it != s.recs.rend(); ++it) (*it)->Restore(true);
    redo_.push_back(std::move(s));
    return true;
  }
  bool Redo() {
    if (redo_.empty()) return false;
    Step s = std::move(redo_.back());
    redo_.pop_back();
    for (auto& r : s.recs) r->Redo();
    undo_.push_back(std::move(s));
    return true;
  }
  size_t Steps() const { return undo_.size(); }
  std::string LastLabel() const { return undo_.empty() ? "" : undo_.back().label; }

 private:
  bool open_ = false;
  int suspend_ = 0;
  std::vector<std::unique_ptr<host::RestoreObj>> cur_;
  std::vector<Step> undo_, redo_;
};

// Float keys with linear interpolation and held ends.
class FakeFloatControl : public host::Control {
 public:
  host::ControlKind Kind() const override { return host::ControlKind::Float; }
  host::ControlValue GetValue(TimeValue t) const override {
    if (keys_.empty()) return constant_;
    auto hi = keys_.lower_bound(t);
    if (hi == keys_.end()) return std::prev(hi)->second;
    if (hi->first == t || hi == keys_.begin()) return hi->second;
    auto lo = std::prev(hi);
    const float u = float(t - lo->first) / float(hi->first - lo->first);
    return lo->second + u * (hi->second - lo->second);
  }
  void SetValue(TimeValue t, const host::ControlValue& v, bool makeKey) override {
    const float f = std::get<float>(v);
    if (makeKey)
      keys_[t] = f;
    else if (keys_.empty())
      constant_ = f;
    else if (keys_.count(t))
      keys_[t] = f;
  }
  int NumKeys() const override { return int(keys_.size()); }
  TimeValue GetKeyTime(int i) const override { return std::next(keys_.begin(), i)->first; }
  int GetKeyIndex(TimeValue t) const override {
    auto it = keys_.find(t);
    return it == keys_.end() ? -1 : int(std::distance(keys_.begin(), it));
  }
  void DeleteKey(int i) override { keys_.erase(std::next(keys_.begin(), i)); }
  std::unique_ptr<host::Control> Clone() const override {
    return std::make_unique<FakeFloatControl>(*this);
  }
  bool CopyFrom(const host::Control& o) override {
    *this = static_cast<const FakeFloatControl&>(o);
    return true;
  }

 private:
  float constant_ = 0.0f;
  std::map<TimeValue, float> keys_;
};

class FakeObject : public host::Object {
 public:
  explicit FakeObject(host::ClassId id, host::SuperClass sc, bool convertible = false)
      : id_(id), sc_(sc), convertible_(convertible) {}
  host::ClassId GetClassId() const override { return id_; }
  host::SuperClass GetSuperClass() const override { return sc_; }
  bool CanConvertToTriObject() const override { return IsTriObject() || convertible_; }
  bool GetTriMesh(TimeValue, bool, Mesh&) override { return false; }
  std::unique_ptr<host::Object> Clone() const override {
    return std::make_unique<FakeObject>(*this);
  }
  bool Save(host::ISave&) const override { return true; }
  host::IOResult Load(host::ILoad&) override { return host::IOResult::Ok; }

 private:
  host::ClassId id_;
  host::SuperClass sc_;
  bool convertible_;
};

class FakeNode : public host::Node {
 public:
  FakeNode(std::string name, host::Object* obj) : name_(std::move(name)), obj_(obj) {}
  std::string GetName() const override { return name_; }
  void SetName(const std::string& n) override { name_ = n; }
  host::Node* GetParent() const override { return nullptr; }
  int NumChildren() const override { return 0; }
  host::Node* GetChild(int) const override { return nullptr; }
  Matrix3 GetNodeTM(TimeValue) const override { return {}; }
  Matrix3 GetObjectTM(TimeValue) const override { return {}; }
  float GetVisibility(TimeValue) const override { return 1.0f; }
  host::Object* GetObjectRef() const override { return obj_; }
  host::Mtl* GetMtl() const override { return nullptr; }
  void SetMtl(host::Mtl*) override {}
  uint32_t GetWireColor() const override { return 0; }
  bool IsDeleted() const override { return deleted; }
  bool Selected() const override { return false; }
  bool IsHidden() const override { return false; }
  void Hide(bool) override {}
  host::Control* GetTMController() const override { return nullptr; }
  host::Control* GetVisController() const override { return nullptr; }

  bool deleted = false;

 private:
  std::string name_;
  host::Object* obj_;
};

class FakeInterface : public host::Interface {
 public:
  TimeValue GetTime() const override { return time; }
  void SetTime(TimeValue t) override { time = t; }
  int GetFrameRate() const override { return fps; }
  int GetTicksPerFrame() const override { return kTicksPerSecond / fps; }
  Interval GetAnimRange() const override { return range; }
  bool IsRendering() const override { return false; }
  bool IsNetServer() const override { return false; }
  bool IsAnimPlaying() const override { return false; }
  bool IsAnimateMode() const override { return animate && suspendAnimate == 0; }
  void SuspendAnimate() override { ++suspendAnimate; }
  void ResumeAnimate() override { --suspendAnimate; }
  host::Hold& GetHold() override { return hold; }
  void NotifyDependents(host::Object*, uint32_t) override {}
  void RedrawViews(TimeValue) override { ++redraws; }
  std::vector<host::Node*> GetRootNodes() const override { return nodes; }
  host::Node* GetNodeByName(const std::string& name) const override {
    for (host::Node* n : nodes)
      if (n->GetName() == name) return n;
    return nullptr;
  }
  std::vector<host::Node*> GetSelectedNodes() const override { return {}; }
  std::vector<host::Node*> NodesReferencing(const host::Object*) const override { return {}; }
  bool DependsOn(const host::Node* node, const host::Object* obj) const override {
    return dependsOn && dependsOn(node, obj);
  }
  std::string MakeUniqueName(const std::string& base) const override { return base; }
  host::Node* CreateObjectNode(std::unique_ptr<host::Object>, const std::string&) override {
    return nullptr;
  }
  host::Node* CreateMeshNode(const Mesh&, const std::string&) override { return nullptr; }
  host::Node* CreatePointHelperNode(const std::string&) override { return nullptr; }
  host::Node* CreateInstanceNode(const host::Node*, const std::string&) override { return nullptr; }
  void DeleteNode(host::Node*) override {}
  std::unique_ptr<host::Control> NewControl(host::ControlKind kind) override {
    if (kind != host::ControlKind::Float) return nullptr;
    return std::make_unique<FakeFloatControl>();
  }
  std::unique_ptr<host::MtlLib> NewMtlLib() override { return nullptr; }
  bool LoadMaterialLibrary(const std::string&, host::MtlLib&) override { return false; }
  bool SaveMaterialLibrary(const std::string&, const host::MtlLib&) override { return false; }
  void FitMeshIDsToMaterial(Mesh&, host::Mtl*) override {}
  host::Mtl* CombineMaterials(host::Mtl* a, host::Mtl*, int& offset) override {
    offset = 0;
    return a;
  }
  void SetStatusText(const std::string&) override {}
  void ProgressStart(const std::string&) override {}
  void ProgressUpdate(int, const std::string&) override {}
  void ProgressEnd() override {}
  bool GetEscPressed() override { return false; }
  bool IsShiftDown() const override { return false; }
  host::MsgBoxResult MessageBox(const std::string& text, const std::string& title,
                                host::MsgBoxKind) override {
    messages.push_back(title + "|" + text);
    return host::MsgBoxResult::Ok;
  }
  bool SaveFileDialog(const std::string&, const std::string&, const std::string&,
                      std::string&) override {
    return false;
  }
  bool OpenFileDialog(const std::string&, const std::string&, std::string&) override {
    return false;
  }
  void ListenerPrint(const std::string&) override {}
  std::string ResolveAssetPath(const std::string&) const override { return {}; }
  void* LoadPluginLibrary(const std::string&) override { return nullptr; }
  void* FindExport(void*, const std::string&) override { return nullptr; }

  TimeValue time = 0;
  int fps = 30;
  Interval range{0, 100 * 160};
  bool animate = false;
  int suspendAnimate = 0;
  int redraws = 0;
  FakeHold hold;
  std::vector<host::Node*> nodes;
  std::vector<std::string> messages;
  std::function<bool(const host::Node*, const host::Object*)> dependsOn;
};

// Chunks as [u16 id][u32 payload length][payload], nested; the same framing both ways.
class MemSave : public host::ISave {
 public:
  void BeginChunk(uint16_t id) override {
    Put(&id, 2);
    open_.push_back(bytes.size());
    const uint32_t zero = 0;
    Put(&zero, 4);
  }
  void EndChunk() override {
    const size_t at = open_.back();
    open_.pop_back();
    const uint32_t len = uint32_t(bytes.size() - at - 4);
    std::memcpy(&bytes[at], &len, 4);
  }
  bool Write(const void* data, size_t n) override {
    if (failAfter >= 0 && bytes.size() + n > size_t(failAfter)) return false;
    Put(data, n);
    return true;
  }
  std::vector<unsigned char> bytes;
  long failAfter = -1;  // a write past this many bytes fails

 private:
  void Put(const void* d, size_t n) {
    const auto* p = static_cast<const unsigned char*>(d);
    bytes.insert(bytes.end(), p, p + n);
  }
  std::vector<size_t> open_;
};

// Reads bytes written by MemSave. With `raw`, the whole buffer is one open chunk's payload
// (for streams that hold no chunks).
class MemLoad : public host::ILoad {
 public:
  explicit MemLoad(std::vector<unsigned char> b) : bytes_(std::move(b)) {
    ends_.push_back(bytes_.size());
  }
  host::IOResult OpenChunk() override {
    if (pos_ + 6 > ends_.back()) return host::IOResult::End;
    std::memcpy(&id_, &bytes_[pos_], 2);
    uint32_t len;
    std::memcpy(&len, &bytes_[pos_ + 2], 4);
    pos_ += 6;
    if (pos_ + len > ends_.back()) return host::IOResult::Error;
    ends_.push_back(pos_ + len);
    return host::IOResult::Ok;
  }
  uint16_t CurChunkID() const override { return id_; }
  host::IOResult CloseChunk() override {
    pos_ = ends_.back();
    ends_.pop_back();
    return host::IOResult::Ok;
  }
  host::IOResult Read(void* data, size_t n) override {
    if (pos_ + n > ends_.back()) return host::IOResult::Error;
    std::memcpy(data, &bytes_[pos_], n);
    pos_ += n;
    return host::IOResult::Ok;
  }
  size_t Left() const { return ends_.back() - pos_; }

 private:
  std::vector<unsigned char> bytes_;
  std::vector<size_t> ends_;
  size_t pos_ = 0;
  uint16_t id_ = 0;
};

}  // namespace kv::test
