// Materials and material libraries, SDK side, as the core's host::Mtl and host::MtlLib.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "host/max/sdk.h"
#include "host/scene.h"

namespace kv::max {

class MaxMtl final : public host::Mtl {
 public:
  explicit MaxMtl(::Mtl* m) : m_(m) {}
  ::Mtl* Sdk() const { return m_; }
  std::string GetName() const override { return Narrow(m_->GetName().data()); }
  void SetName(const std::string& name) override { m_->SetName(MSTR(Widen(name).c_str())); }
  int NumSubMtls() const override { return m_->NumSubMtls(); }
  host::Mtl* GetSubMtl(int i) const override;

 private:
  ::Mtl* m_;
};

// The wrapper of an SDK material, made on first use and kept for the library's life (the core
// holds material pointers as long as the scene keeps the material); null for null.
MaxMtl* WrapMtl(::Mtl* m);
::Mtl* SdkMtl(host::Mtl* m);

// An ordered list of materials, filled from or written to a material library file.
class MaxMtlLib final : public host::MtlLib {
 public:
  int Count() const override { return static_cast<int>(mtls_.size()); }
  host::Mtl* At(int i) const override { return mtls_[static_cast<size_t>(i)]; }
  void Add(host::Mtl* m) override { mtls_.push_back(m); }
  void Clear() override { mtls_.clear(); }

 private:
  std::vector<host::Mtl*> mtls_;
};

bool LoadMaterialLibrary(const std::string& path, host::MtlLib& into);
bool SaveMaterialLibrary(const std::string& path, const host::MtlLib& lib);
host::Mtl* CombineMaterials(host::Mtl* a, host::Mtl* b, int& offset);

}  // namespace kv::max
