// The library's entry points. Nothing happens at load time beyond keeping the module handle:
// the descriptor is a static object and the host asks for it when it needs it. The export
// names are given in kvcache.def, so that these are the library's only exports and the three
// that answer 1 are one function.
#include "host/max/class_desc.h"
#include "host/max/sdk.h"
#include "object/registration.h"

namespace {
HINSTANCE gModule = nullptr;
}

namespace kv::max {

HINSTANCE ModuleHandle() {
  return gModule;
}

const MCHAR* GetString(int id) {
  static MCHAR buffer[512];
  if (!gModule) return nullptr;
  return LoadStringW(gModule, static_cast<UINT>(id), buffer, 512) > 0 ? buffer : nullptr;
}

std::wstring Widen(std::string_view s) {
  if (s.empty()) return {};
  const int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
  std::wstring w(static_cast<size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), w.data(), n);
  return w;
}

std::string Narrow(const wchar_t* s) {
  if (!s || !*s) return {};
  const int n = WideCharToMultiByte(CP_UTF8, 0, s, -1, nullptr, 0, nullptr, nullptr);
  std::string r(static_cast<size_t>(n), '\0');
  WideCharToMultiByte(CP_UTF8, 0, s, -1, r.data(), n, nullptr, nullptr);
  r.resize(static_cast<size_t>(n) - 1);  // the terminator
  return r;
}

}  // namespace kv::max

BOOL WINAPI DllMain(HINSTANCE module, ULONG reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    gModule = module;
    DisableThreadLibraryCalls(module);
  }
  return TRUE;
}

extern "C" {

const MCHAR* LibDescription() {
  return kv::max::GetString(kv::registration::kLibDescriptionId);
}

// Exported as LibNumberClasses, LibInitialize and LibShutdown.
int kvLibReturnOne() {
  return 1;
}

ClassDesc* LibClassDesc(int i) {
  return kv::registration::IsClassIndex(i) ? &kv::max::TheClassDesc() : nullptr;
}

ULONG LibVersion() {
  static_assert(VERSION_3DSMAX == kv::registration::kLibVersion,
                "the SDK headers are not those of 3ds Max 2023");
  return VERSION_3DSMAX;
}

}  // extern "C"
