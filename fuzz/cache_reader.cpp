// Fuzzes open, index, sampling and frame assembly of the cache reader. The input is written
// to a private file because the reader works on files; the last input bytes choose the
// playback settings and element times.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cache/reader.h"

using namespace KelvaneTools;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Memory-backed when available: the file round trip dominates each run otherwise.
  static const std::string path = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                  "/kv_fuzz_" + std::to_string(getpid()) + ".kvc";
  if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
    if (size) std::fwrite(data, 1, size, f);
    std::fclose(f);
  } else {
    return 0;
  }

  kvCacheReader reader(path);
  reader.SetKeepOpen(size % 2 == 0);
  if (!reader.Open()) return 0;

  auto byte = [&](size_t back) { return size > back ? data[size - 1 - back] : uint8_t{0}; };
  FrameSettings s;
  s.inOrt = byte(0) & 3;
  s.outOrt = (byte(0) >> 2) & 3;
  s.reverse = byte(0) & 16;
  s.interpolate = byte(0) & 32;
  s.deleteInvisible = byte(0) & 64;
  s.hideInvisible = byte(0) & 128;
  s.applyHiddenMatId = byte(1) & 1;
  s.hiddenMatId = byte(1) >> 1;
  s.playbackIdle = byte(1) & 2;

  std::vector<ElementFrameState> states(size_t(reader.NumElements()));
  const float step = float(reader.Step());
  for (size_t e = 0; e < states.size(); ++e) {
    states[e].time = float(int8_t(byte(2 + e % 8))) * step / 4;
    states[e].removed = byte(10) & (1u << (e % 8));
    states[e].matIdOverride = (byte(11) & 1) ? int(e % 5) : -1;
  }
  FrameScratch scratch;
  kv::Mesh out;
  reader.ReadFrame(out, states, s, scratch, true);
  for (auto& st : states) st.time += step * 1.5f;
  reader.ReadFrame(out, states, s, scratch, false);
  s.boxMode = true;
  reader.ReadFrame(out, states, s, scratch, false);
  if (reader.HasIndex() && reader.NumElements() > 0) {
    reader.ElementMesh(0);
    reader.ElementMesh(reader.NumElements() - 1);
    reader.ElementBoxMesh(0);
  }
  (void)reader.StatusText();
  return 0;
}
