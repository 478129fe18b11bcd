// Materials of the standalone host: a standard material (name and diffuse colour), a
// multi-material of sub-materials, and ordered material libraries.
#pragma once

#include <string>
#include <vector>

#include "geom/point.h"
#include "host/scene.h"

namespace kv::standalone {

class StdMtl final : public host::Mtl {
 public:
  StdMtl(std::string name, const Point3& color) : diffuse(color), name_(std::move(name)) {}
  std::string GetName() const override { return name_; }
  void SetName(const std::string& name) override { name_ = name; }
  int NumSubMtls() const override { return 0; }
  Mtl* GetSubMtl(int) const override { return nullptr; }
  Point3 GetDisplayColor() const override { return diffuse; }

  Point3 diffuse;  // linear RGB, 0..1

 private:
  std::string name_;
};

class MultiMtl final : public host::Mtl {
 public:
  explicit MultiMtl(std::string name) : name_(std::move(name)) {}
  std::string GetName() const override { return name_; }
  void SetName(const std::string& name) override { name_ = name; }
  int NumSubMtls() const override { return static_cast<int>(subs.size()); }
  Mtl* GetSubMtl(int i) const override {
    return i >= 0 && i < NumSubMtls() ? subs[static_cast<size_t>(i)] : nullptr;
  }

  std::vector<Mtl*> subs;  // slot i serves material id i; may hold nulls

 private:
  std::string name_;
};

class MtlList final : public host::MtlLib {
 public:
  int Count() const override { return static_cast<int>(mtls_.size()); }
  host::Mtl* At(int i) const override {
    return i >= 0 && i < Count() ? mtls_[static_cast<size_t>(i)] : nullptr;
  }
  void Add(host::Mtl* m) override {
    if (m) mtls_.push_back(m);
  }
  void Clear() override { mtls_.clear(); }

 private:
  std::vector<host::Mtl*> mtls_;
};

}  // namespace kv::standalone
