// Fuzzes the script literal parser of `kvcache call`, `get` and `set`: any text must either
// parse to a value that prints and parses back to an equal value, or be refused with a message.
#include <cstdlib>
#include <string>
#include <string_view>

#include "host/standalone/scene.h"
#include "script/literal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kv::standalone::Scene* scene = [] {
    auto* s = new kv::standalone::Scene();
    s->CreatePointHelperNode("Box001");
    s->CreatePointHelperNode("It's a box");
    return s;
  }();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kv::script::Value v;
  std::string error;
  if (!kv::script::ParseLiteral(text, *scene, v, error)) {
    if (error.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  const std::string printed = kv::script::PrintLiteral(v, *scene);
  kv::script::Value back;
  if (!kv::script::ParseLiteral(printed, *scene, back, error) || !(back == v)) std::abort();
  return 0;
}
