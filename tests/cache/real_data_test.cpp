// A scene simulated and exported by another program, recorded through the host's nodes into
// a cache and played back: every frame must show the positions that program computed.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "cache/reader.h"
#include "cache/writer.h"
#include "cache_bytes.h"
#include "host/standalone/gltf.h"
#include "host/standalone/scene.h"
#include "support/reference_data.h"

using namespace KelvaneTools;
namespace fs = std::filesystem;

namespace {

using kvtest::PointSetDistance;
using kvtest::ReadGzip;
using kvtest::ReferenceDataDir;

TEST(CacheRealData, RecordedSimulationPlaysBackAsItsAuthorShowsIt) {
  const std::string text = ReadGzip(ReferenceDataDir() / "blender-stack-positions.json.gz");
  ASSERT_FALSE(text.empty()) << "missing reference data in " << ReferenceDataDir();
  const nlohmann::json ref = nlohmann::json::parse(text);
  kv::standalone::Scene scene;
  std::string err;
  ASSERT_TRUE(
      kv::standalone::ImportGltf(scene, (ReferenceDataDir() / "blender-stack.glb").string(), err))
      << err;

  std::vector<std::string> names;
  std::vector<kv::host::Node*> nodes;
  for (const auto& [name, points] : ref["frames"]["0"].items()) {
    names.push_back(name);
    nodes.push_back(scene.FindNode(name));
    ASSERT_NE(nodes.back(), nullptr) << name;
  }
  NodeElementSource source(nodes, scene.GetFrameRate());
  kvtest::TempFile file("blender");
  kvtest::TempFile lib("blender", ".mat");
  const int tpf = scene.GetTicksPerFrame();
  kvCacheWriter writer(file.path, kv::Matrix3(), 0, 30 * tpf, tpf, kWriterVersion, source, &scene);
  for (int i = 0; i < source.Count(); ++i) ASSERT_TRUE(writer.AddElement(i, 0)) << names[i];
  ASSERT_TRUE(writer.Write()) << writer.ErrorMessageText();

  kvCacheReader reader(file.path, &scene);
  ASSERT_TRUE(reader.Open()) << reader.ErrorMessageText();
  ASSERT_EQ(reader.NumElements(), int(names.size()));
  EXPECT_EQ(reader.NumSamples(), 31);
  EXPECT_EQ(reader.FrameRate(), 30);
  for (int e = 0; e < reader.NumElements(); ++e)
    EXPECT_EQ(reader.Element(e).name, names[size_t(e)]);

  std::vector<ElementFrameState> states(names.size());
  FrameSettings settings;
  FrameScratch scratch;
  kv::Mesh out;
  int compared = 0;
  for (const auto& [frame, objects] : ref["frames"].items()) {
    for (auto& st : states) st.time = float(std::stoi(frame) * tpf);
    ASSERT_TRUE(reader.ReadFrame(out, states, settings, scratch, compared == 0));
    for (size_t e = 0; e < names.size(); ++e) {
      const CacheElement& el = reader.Element(int(e));
      const std::vector<kv::Point3> ours(out.verts.begin() + el.vertOffset,
                                         out.verts.begin() + el.vertOffset + el.numVerts);
      std::vector<kv::Point3> theirs;
      for (const auto& p : objects[names[e]])
        theirs.push_back({p[0].get<float>(), p[1].get<float>(), p[2].get<float>()});
      EXPECT_LT(PointSetDistance(theirs, ours), 1e-3f) << names[e] << " frame " << frame;
      ++compared;
    }
  }
  EXPECT_GT(compared, 31 * 20);
}

}  // namespace
