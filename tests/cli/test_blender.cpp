#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli.h"
#include "commands.h"
#include "geom/point.h"
#include "support.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Call;
using testing::ObjVertices;
using testing::PointSetDistance;

// A rigid-body simulation made and evaluated by another program: recorded from its glTF
// export and played back, every object must sit where its author's program puts it.
TEST(BlenderData, RecordedAndPlayedBackWhereBlenderPutsIt) {
  const std::string data = kvtest::ReferenceDataDir().string();
  const std::string text = kvtest::ReadGzip(data + "/blender-stack-positions.json.gz");
  ASSERT_FALSE(text.empty()) << "cannot read " << data << "/blender-stack-positions.json.gz";
  const nlohmann::json ref = nlohmann::json::parse(text, nullptr, false);
  ASSERT_FALSE(ref.is_discarded());
  const fs::path dir = fs::temp_directory_path() / ("kv_blender_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const std::string cache = (dir / "stack.kvc").string();
  const testing::Outcome rec = Call({"record", data + "/blender-stack.glb", "-o", cache});
  ASSERT_EQ(rec.code, 0) << rec.err;

  // Element names and vertex counts, to split the played mesh by element.
  const testing::Outcome inf = Call({"info", cache, "--elements"});
  ASSERT_EQ(inf.code, 0) << inf.err;
  const std::string& info = inf.out;
  std::vector<std::pair<std::string, int>> elements;
  std::istringstream lines(info);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line[0] == '\t' || line.rfind("Cache", 0) == 0) continue;
    std::istringstream ls(line);
    int index, verts, faces;
    std::string name;
    ls >> index;
    ls.ignore(1);
    std::getline(ls, name, '\t');
    ls >> verts >> faces;
    elements.emplace_back(name, verts);
  }
  ASSERT_EQ(elements.size(), ref["frames"]["0"].size());

  for (const int frame : {0, 7, 15, 22, 30}) {
    const fs::path obj = dir / ("f" + std::to_string(frame) + ".obj");
    const testing::Outcome o =
        Call({"play", cache, "--frame", std::to_string(frame), "-o", obj.string()});
    ASSERT_EQ(o.code, 0) << o.err;
    const std::vector<Point3> played = ObjVertices(obj.string());
    const nlohmann::json& want = ref["frames"][std::to_string(frame)];
    size_t at = 0;
    for (const auto& [name, count] : elements) {
      ASSERT_TRUE(want.contains(name)) << name;
      ASSERT_LE(at + static_cast<size_t>(count), played.size());
      const std::vector<Point3> mine(played.begin() + static_cast<long>(at),
                                     played.begin() + static_cast<long>(at + count));
      at += static_cast<size_t>(count);
      std::vector<Point3> theirs;
      for (const auto& p : want[name])
        theirs.push_back({p[0].get<float>(), p[1].get<float>(), p[2].get<float>()});
      EXPECT_LT(PointSetDistance(mine, theirs), 1e-3f) << name << " at frame " << frame;
    }
    EXPECT_EQ(at, played.size());
  }
  fs::remove_all(dir);
}

}  // namespace
}  // namespace kv::cli
