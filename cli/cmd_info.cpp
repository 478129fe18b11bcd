#include <cstdio>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "cache/reader.h"
#include "commands.h"

namespace kv::cli {

namespace {

std::string Printf(const char* format, int value) {
  char buf[64];
  std::snprintf(buf, sizeof buf, format, value);
  return buf;
}

}  // namespace

int RunInfo(const InfoArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  using namespace KelvaneTools;
  // Samples are not needed: opening reads the header, the index and the meshes
  // only.
  kvCacheReader reader(a.file);
  if (!reader.Open()) {
    err << reader.ErrorMessageText() << '\n';
    return kExitError;
  }
  const CacheHeader& h = reader.Header();
  std::error_code ec;
  const uintmax_t fileSize = std::filesystem::file_size(a.file, ec);
  const uint64_t meshBytes = static_cast<uint64_t>(h.sampleTableOffset) - h.dataOffset;
  const uint64_t animBytes =
      static_cast<uint64_t>(h.sampleStride) * static_cast<uint64_t>(h.numSamples);

  out << "Cache File : \"" << a.file << "\"\n"
      << "\tFile size        : " << SizeText(ec ? 0 : fileSize) << '\n'
      << "\tMesh size        : " << SizeText(meshBytes) << '\n'
      << "\tAnimation size   : " << SizeText(animBytes) << '\n'
      << Printf("\tNumber of Frames : %i\n", h.numSamples)
      << Printf("\tStep Size        : %i ticks\n", h.step)
      << Printf("\tFrameRate        : %i FPS\n", h.frameRate)
      << Printf("\tObjects          : %i\n", reader.NumElements());
  if (a.elements) {
    for (int i = 0; i < reader.NumElements(); ++i) {
      const CacheElement& e = reader.Element(i);
      out << i << '\t' << e.name << '\t' << e.numVerts << '\t' << e.numFaces << '\n';
    }
  }
  return kExitOk;
}

}  // namespace kv::cli
