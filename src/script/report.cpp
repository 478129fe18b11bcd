#include "script/report.h"

#include <cstdio>

#include "cache/base.h"
#include "object/cache_obj.h"

namespace kv::script {

namespace {

std::string Format(const char* format, int value) {
  char buf[128];
  std::snprintf(buf, sizeof buf, format, value);
  return buf;
}

}  // namespace

void PrintCacheReport(KelvaneTools::kvCacheRegistry& registry, const host::Interface& ip,
                      const std::function<void(const std::string&)>& sink) {
  using KelvaneTools::SizeText;
  for (const std::string& file : registry.FileNames()) {
    const KelvaneTools::kvCacheReader* r = registry.Reader(file);
    const bool indexed = r && r->HasIndex();
    sink("Cache File : \"" + file + "\"\n");
    sink("\tFile size        : " + SizeText(indexed ? r->FileSize() : 0) + "\n");
    sink("\tMesh size        : " + SizeText(indexed ? r->MeshDataSize() : 0) + "\n");
    sink("\tAnimation size   : " + SizeText(indexed ? r->AnimationDataSize() : 0) + "\n");
    sink(Format("\tNumber of Frames : %i\n", indexed ? r->NumSamples() : 0));
    sink(Format("\tStep Size        : %i ticks\n", indexed ? r->Header().step : 0));
    sink(Format("\tFrameRate        : %i FPS\n", indexed ? r->FrameRate() : 0));
    sink(Format("\tObjects          : %i\n", indexed ? r->NumElements() : 0));
    sink("\n");

    const std::vector<void*> users = registry.Users(file);
    const int n = static_cast<int>(users.size());
    char line[128];
    std::snprintf(line, sizeof line, "\tReferenced by %i node%s%s\n", n, n == 1 ? "" : "s",
                  n > 0 ? " :" : "");
    sink(line);
    for (void* user : users) {
      // Users are the objects' playback states; the state names its object.
      const auto* state = static_cast<const PlaybackState*>(user);
      if (!state || !state->owner) {
        sink("\t\tNULL\n");
        continue;
      }
      std::string names;
      for (const host::Node* node : ip.NodesReferencing(state->owner)) {
        if (!node || node->IsDeleted()) continue;
        if (!names.empty()) names += ", ";
        names += "$'" + node->GetName() + "'";
      }
      sink(names.empty() ? std::string("\t\tEmpty (possibily deleted)\n") : "\t\t" + names + "\n");
    }
  }
}

}  // namespace kv::script
