#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cache_bytes.h"
#include "cli.h"
#include "commands.h"
#include "geom/point.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;

int Call(std::vector<std::string> args, std::string* out = nullptr) {
  args.insert(args.begin(), {"kvcache", "--quiet"});
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  std::ostringstream o, e;
  const int code = Run(static_cast<int>(argv.size()), argv.data(), o, e);
  if (out) *out = o.str();
  if (code != 0) ADD_FAILURE() << e.str();
  return code;
}

std::string Gunzip(const std::string& path) {
  gzFile f = gzopen(path.c_str(), "rb");
  if (!f) return {};
  std::string s;
  char buf[1 << 16];
  for (int n; (n = gzread(f, buf, sizeof buf)) > 0;) s.append(buf, static_cast<size_t>(n));
  gzclose(f);
  return s;
}

std::vector<Point3> ObjVertices(const fs::path& p) {
  std::istringstream in(testing::ReadFile(p.string()));
  std::vector<Point3> v;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("v ", 0) != 0) continue;
    std::istringstream ls(line.substr(2));
    Point3 q;
    ls >> q.x >> q.y >> q.z;
    v.push_back(q);
  }
  return v;
}

float PointSetDistance(const std::vector<Point3>& a, const std::vector<Point3>& b) {
  auto oneWay = [](const std::vector<Point3>& from, const std::vector<Point3>& to) {
    float worst = 0;
    for (const Point3& p : from) {
      float best = INFINITY;
      for (const Point3& q : to) best = std::min(best, (p - q).LengthSquared());
      worst = std::max(worst, best);
    }
    return std::sqrt(worst);
  };
  return std::max(oneWay(a, b), oneWay(b, a));
}

// A rigid-body simulation made and evaluated by another program: recorded from its glTF
// export and played back, every object must sit where its author's program puts it.
TEST(BlenderData, RecordedAndPlayedBackWhereBlenderPutsIt) {
  // The data folder sits beside the source tree; KV_SHARED_DATA_DIR in the environment
  // overrides it for trees checked out elsewhere.
  const char* env = std::getenv("KV_SHARED_DATA_DIR");
  const std::string data = env ? env : KV_SHARED_DATA_DIR;
  const std::string text = Gunzip(data + "/blender-stack-positions.json.gz");
  ASSERT_FALSE(text.empty()) << "cannot read " << data << "/blender-stack-positions.json.gz";
  const nlohmann::json ref = nlohmann::json::parse(text, nullptr, false);
  ASSERT_FALSE(ref.is_discarded());
  const fs::path dir = fs::temp_directory_path() / ("kv_blender_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  const std::string cache = (dir / "stack.kvc").string();
  ASSERT_EQ(Call({"record", data + "/blender-stack.glb", "-o", cache}), 0);

  // Element names and vertex counts, to split the played mesh by element.
  std::string info;
  ASSERT_EQ(Call({"info", cache, "--elements"}, &info), 0);
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
    ASSERT_EQ(Call({"play", cache, "--frame", std::to_string(frame), "-o", obj.string()}), 0);
    const std::vector<Point3> played = ObjVertices(obj);
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
