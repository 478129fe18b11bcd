// A minimal host for the cache tests: materials and material libraries, and nothing else.
// Libraries are files listing one material name per line, so a test can see what was saved.
#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "host/interface.h"

namespace kvtest {

class FakeMtl : public kv::host::Mtl {
 public:
  explicit FakeMtl(std::string name, std::vector<kv::host::Mtl*> subs = {})
      : name_(std::move(name)), subs_(std::move(subs)) {}
  std::string GetName() const override { return name_; }
  void SetName(const std::string& n) override { name_ = n; }
  int NumSubMtls() const override { return static_cast<int>(subs_.size()); }
  kv::host::Mtl* GetSubMtl(int i) const override { return subs_[size_t(i)]; }

 private:
  std::string name_;
  std::vector<kv::host::Mtl*> subs_;
};

class FakeLib : public kv::host::MtlLib {
 public:
  int Count() const override { return static_cast<int>(m_.size()); }
  kv::host::Mtl* At(int i) const override { return m_[size_t(i)]; }
  void Add(kv::host::Mtl* m) override { m_.push_back(m); }
  void Clear() override { m_.clear(); }

 private:
  std::vector<kv::host::Mtl*> m_;
};

class FakeHost : public kv::host::Interface {
 public:
  std::vector<std::unique_ptr<FakeMtl>> owned;
  int fitCalls = 0;
  int combineCalls = 0;
  bool throwOnFit = false;

  FakeMtl* NewMtl(const std::string& name, std::vector<kv::host::Mtl*> subs = {}) {
    owned.push_back(std::make_unique<FakeMtl>(name, std::move(subs)));
    return owned.back().get();
  }

  kv::TimeValue GetTime() const override { return 0; }
  void SetTime(kv::TimeValue) override {}
  int GetFrameRate() const override { return 30; }
  int GetTicksPerFrame() const override { return 160; }
  kv::Interval GetAnimRange() const override { return {0, 100 * 160}; }
  bool IsRendering() const override { return false; }
  bool IsNetServer() const override { return false; }
  bool IsAnimPlaying() const override { return false; }
  bool IsAnimateMode() const override { return false; }
  void SuspendAnimate() override {}
  void ResumeAnimate() override {}
  kv::host::Hold& GetHold() override { std::abort(); }
  void NotifyDependents(kv::host::Object*, uint32_t) override {}
  void RedrawViews(kv::TimeValue) override {}
  std::vector<kv::host::Node*> GetRootNodes() const override { return {}; }
  kv::host::Node* GetNodeByName(const std::string&) const override { return nullptr; }
  std::vector<kv::host::Node*> GetSelectedNodes() const override { return {}; }
  std::vector<kv::host::Node*> NodesReferencing(const kv::host::Object*) const override {
    return {};
  }
  bool DependsOn(const kv::host::Node*, const kv::host::Object*) const override { return false; }
  std::string MakeUniqueName(const std::string& b) const override { return b; }
  kv::host::Node* CreateObjectNode(std::unique_ptr<kv::host::Object>, const std::string&) override {
    return nullptr;
  }
  kv::host::Node* CreateMeshNode(const kv::Mesh&, const std::string&) override { return nullptr; }
  kv::host::Node* CreatePointHelperNode(const std::string&) override { return nullptr; }
  kv::host::Node* CreateInstanceNode(const kv::host::Node*, const std::string&) override {
    return nullptr;
  }
  void DeleteNode(kv::host::Node*) override {}
  std::unique_ptr<kv::host::Control> NewControl(kv::host::ControlKind) override { return nullptr; }

  std::unique_ptr<kv::host::MtlLib> NewMtlLib() override { return std::make_unique<FakeLib>(); }
  bool LoadMaterialLibrary(const std::string& path, kv::host::MtlLib& into) override {
    std::ifstream in(path);
    if (!in) return false;
    for (std::string line; std::getline(in, line);) into.Add(NewMtl(line));
    return true;
  }
  bool SaveMaterialLibrary(const std::string& path, const kv::host::MtlLib& lib) override {
    std::ofstream out(path);
    for (int i = 0; i < lib.Count(); ++i) out << lib.At(i)->GetName() << "\n";
    return bool(out);
  }
  // Clamps ids into a multi-material's range; a plain material takes every id.
  void FitMeshIDsToMaterial(kv::Mesh& mesh, kv::host::Mtl* mtl) override {
    ++fitCalls;
    if (throwOnFit) throw std::runtime_error("host failure");
    const int n = mtl ? mtl->NumSubMtls() : 0;
    if (n == 0) return;
    for (kv::Face& f : mesh.faces) f.setMatID(kv::MtlID(f.getMatID() % n));
  }
  kv::host::Mtl* CombineMaterials(kv::host::Mtl* a, kv::host::Mtl* b, int& offset) override {
    ++combineCalls;
    std::vector<kv::host::Mtl*> subs;
    auto add = [&](kv::host::Mtl* m) {
      if (m->IsMultiMtl())
        for (int i = 0; i < m->NumSubMtls(); ++i) subs.push_back(m->GetSubMtl(i));
      else
        subs.push_back(m);
    };
    add(a);
    offset = static_cast<int>(subs.size());
    add(b);
    return NewMtl(a->GetName() + "+" + b->GetName(), subs);
  }

  void SetStatusText(const std::string&) override {}
  void ProgressStart(const std::string&) override {}
  void ProgressUpdate(int, const std::string&) override {}
  void ProgressEnd() override {}
  bool GetEscPressed() override { return false; }
  bool IsShiftDown() const override { return false; }
  kv::host::MsgBoxResult MessageBox(const std::string&, const std::string&,
                                    kv::host::MsgBoxKind) override {
    return kv::host::MsgBoxResult::Ok;
  }
  bool SaveFileDialog(const std::string&, const std::string&, const std::string&,
                      std::string&) override {
    return false;
  }
  bool OpenFileDialog(const std::string&, const std::string&, std::string&) override {
    return false;
  }
  void ListenerPrint(const std::string&) override {}
  std::string ResolveAssetPath(const std::string& n) const override { return n; }
  void* LoadPluginLibrary(const std::string&) override { return nullptr; }
  void* FindExport(void*, const std::string&) override { return nullptr; }
};

}  // namespace kvtest
