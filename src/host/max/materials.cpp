#include "host/max/materials.h"

namespace kv::max {

host::Mtl* MaxMtl::GetSubMtl(int i) const {
  return WrapMtl(m_->GetSubMtl(i));
}

MaxMtl* WrapMtl(::Mtl* m) {
  static std::map<::Mtl*, std::unique_ptr<MaxMtl>> wrappers;
  if (!m) return nullptr;
  auto& slot = wrappers[m];
  if (!slot) slot = std::make_unique<MaxMtl>(m);
  return slot.get();
}

::Mtl* SdkMtl(host::Mtl* m) {
  auto* w = dynamic_cast<MaxMtl*>(m);
  return w ? w->Sdk() : nullptr;
}

bool LoadMaterialLibrary(const std::string& path, host::MtlLib& into) {
  MtlBaseLib lib;
  if (!GetCOREInterface()->LoadMaterialLib(Widen(path).c_str(), &lib)) return false;
  into.Clear();
  for (int i = 0; i < lib.Count(); ++i) {
    // Texture maps may share a library with materials; only materials are the core's.
    MtlBase* mb = lib[i];
    if (mb && mb->SuperClassID() == MATERIAL_CLASS_ID) into.Add(WrapMtl(static_cast<::Mtl*>(mb)));
  }
  return true;
}

bool SaveMaterialLibrary(const std::string& path, const host::MtlLib& lib) {
  MtlBaseLib out;
  for (int i = 0; i < lib.Count(); ++i) {
    if (::Mtl* m = SdkMtl(lib.At(i))) out.Add(m);
  }
  return GetCOREInterface()->SaveMaterialLib(Widen(path).c_str(), &out) != 0;
}

host::Mtl* CombineMaterials(host::Mtl* a, host::Mtl* b, int& offset) {
  offset = 0;
  MultiMtl* multi = NewDefaultMultiMtl();
  if (!multi) return nullptr;
  std::vector<::Mtl*> subs;
  auto add = [&subs](host::Mtl* x) {
    if (!x) return;
    if (x->IsMultiMtl()) {
      for (int i = 0; i < x->NumSubMtls(); ++i) subs.push_back(SdkMtl(x->GetSubMtl(i)));
    } else {
      subs.push_back(SdkMtl(x));
    }
  };
  add(a);
  offset = static_cast<int>(subs.size());
  add(b);
  multi->SetNumSubMtls(static_cast<int>(subs.size()));
  for (size_t i = 0; i < subs.size(); ++i) multi->SetSubMtl(static_cast<int>(i), subs[i]);
  if (a) multi->SetName(MSTR(Widen(a->GetName()).c_str()));
  return WrapMtl(multi);
}

}  // namespace kv::max
