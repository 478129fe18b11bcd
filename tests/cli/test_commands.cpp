#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "cli.h"
#include "commands.h"
#include "geom/point.h"
#include "host/standalone/scene.h"
#include "host/standalone/scene_file.h"
#include "progress.h"
#include "support.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Bytes;
using testing::Call;
using testing::ObjVertices;
using testing::Outcome;
using testing::PointSetDistance;
using testing::ReadFile;
using testing::WriteFile;

// A small glTF scene, Y-up as glTF has it:
//   Parent  a triangle (0,0,0) (1,0,0) (0,1,0) sliding +x from 0 to 3 over one second (LINEAR)
//   Child   the same triangle under Parent, at (0,1,0), turned 90 degrees about +y
//   Hidden  the same triangle at (0,0,2), invisible through KHR_node_visibility
//   Empty   a node without a mesh
void WriteSmallScene(const fs::path& dir) {
  Bytes bin;
  bin.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0);  // 36 bytes of positions
  bin.u16(0).u16(1).u16(2).u16(0);                   // indices and padding
  bin.f(0).f(1);                                     // key times
  bin.f(0).f(0).f(0).f(3).f(0).f(0);                 // key translations
  WriteFile((dir / "small.bin").string(), bin.s);
  const std::string gltf = R"({
  "asset": {"version": "2.0"},
  "extensionsUsed": ["KHR_node_visibility"],
  "scene": 0,
  "scenes": [{"nodes": [0, 2, 3]}],
  "nodes": [
    {"name": "Parent", "mesh": 0, "children": [1]},
    {"name": "Child", "mesh": 0, "translation": [0, 1, 0],
     "rotation": [0, 0.70710678, 0, 0.70710678]},
    {"name": "Hidden", "mesh": 0, "translation": [0, 0, 2],
     "extensions": {"KHR_node_visibility": {"visible": false}}},
    {"name": "Empty", "translation": [5, 5, 5]}
  ],
  "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "indices": 1}]}],
  "buffers": [{"uri": "small.bin", "byteLength": 76}],
  "bufferViews": [
    {"buffer": 0, "byteOffset": 0, "byteLength": 36},
    {"buffer": 0, "byteOffset": 36, "byteLength": 6},
    {"buffer": 0, "byteOffset": 44, "byteLength": 8},
    {"buffer": 0, "byteOffset": 52, "byteLength": 24}
  ],
  "accessors": [
    {"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
     "min": [0, 0, 0], "max": [1, 1, 0]},
    {"bufferView": 1, "componentType": 5123, "count": 3, "type": "SCALAR"},
    {"bufferView": 2, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0], "max": [1]},
    {"bufferView": 3, "componentType": 5126, "count": 2, "type": "VEC3"}
  ],
  "animations": [{"channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}}],
                  "samplers": [{"input": 2, "output": 3, "interpolation": "LINEAR"}]}]
})";
  WriteFile((dir / "small.gltf").string(), gltf);
}

// World positions of Parent's and Child's vertices at `seconds`, worked out from the glTF
// values above and turned Z-up as the scene is: glTF (x, y, z) is (x, -z, y).
std::map<std::string, std::vector<Point3>> SmallSceneAt(double seconds) {
  const float tx = static_cast<float>(3 * std::min(1.0, std::max(0.0, seconds)));
  const Point3 tri[3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  auto zUp = [](const Point3& p) { return Point3{p.x, -p.z, p.y}; };
  std::map<std::string, std::vector<Point3>> out;
  for (const Point3& v : tri) out["Parent"].push_back(zUp({v.x + tx, v.y, v.z}));
  // A quarter turn about +y takes (x, y, z) to (z, y, -x).
  for (const Point3& v : tri) out["Child"].push_back(zUp({v.z + tx, v.y + 1, -v.x}));
  return out;
}

// The expected vertices in the cache's element order (as `info --elements` lists it); elements
// without expectations (the hidden one) are left out.
std::vector<Point3> InElementOrder(const std::vector<std::string>& order,
                                   const std::map<std::string, std::vector<Point3>>& byName) {
  std::vector<Point3> out;
  for (const std::string& name : order)
    if (auto it = byName.find(name); it != byName.end())
      out.insert(out.end(), it->second.begin(), it->second.end());
  return out;
}

std::vector<std::string> ElementNames(const std::string& info) {
  std::vector<std::string> names;
  std::istringstream in(info);
  for (std::string line; std::getline(in, line);) {
    const size_t tab = line.find('\t');
    if (tab == std::string::npos || tab == 0) continue;
    names.push_back(line.substr(tab + 1, line.find('\t', tab + 1) - tab - 1));
  }
  return names;
}

class Commands : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_cmd_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }
  fs::path dir_;
};

TEST_F(Commands, RecordInfoAndPlayASmallScene) {
  WriteSmallScene(dir_);
  Outcome o = Call({"record", P("small.gltf"), "-o", P("small.kvc")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_NE(o.out.find("Recorded 3 elements, 31 samples"), std::string::npos) << o.out;

  o = Call({"info", P("small.kvc"), "--elements"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_NE(o.out.find("\tNumber of Frames : 31\n\tStep Size        : 160 ticks\n"
                       "\tFrameRate        : 30 FPS\n\tObjects          : 3\n"),
            std::string::npos)
      << o.out;
  const std::vector<std::string> order = ElementNames(o.out);
  ASSERT_EQ(order.size(), 3u) << o.out;
  for (const char* name : {"Parent", "Child", "Hidden"}) {
    EXPECT_NE(std::find(order.begin(), order.end(), name), order.end()) << name;
    EXPECT_NE(o.out.find(std::string("\t") + name + "\t3\t1\n"), std::string::npos) << name;
  }

  // Whole frames, a sub-frame between two samples, and ticks; the hidden element stays out.
  struct Case {
    std::vector<std::string> when;
    double seconds;
  };
  for (const Case& c :
       {Case{{"--frame", "0"}, 0.0}, Case{{"--frame", "15"}, 0.5}, Case{{"--frame", "7.5"}, 0.25},
        Case{{"--time", "4800"}, 1.0}, Case{{"--frame", "40"}, 1.0}}) {
    std::vector<std::string> args = {"play", P("small.kvc"), "-o", P("f.obj")};
    args.insert(args.end(), c.when.begin(), c.when.end());
    o = Call(args);
    ASSERT_EQ(o.code, kExitOk) << c.when[1] << ": " << o.err;
    const std::vector<Point3> got = ObjVertices(P("f.obj"));
    const std::vector<Point3> want = InElementOrder(order, SmallSceneAt(c.seconds));
    ASSERT_EQ(got.size(), want.size()) << c.when[1];
    for (size_t i = 0; i < got.size(); ++i)
      EXPECT_LT((got[i] - want[i]).Length(), 1e-4f) << c.when[1] << " vertex " << i;
  }

  // Playback options reach the object: before the start with "hide" nothing is shown, a
  // later playback start holds frame 0, and a graph frame picks the cache frame directly.
  o = Call({"play", P("small.kvc"), "-o", P("h.obj"), "--frame", "-3", "--before", "hide"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_TRUE(ObjVertices(P("h.obj")).empty());
  o = Call({"play", P("small.kvc"), "-o", P("s.obj"), "--frame", "10", "--start", "10"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_LT(PointSetDistance(ObjVertices(P("s.obj")), InElementOrder(order, SmallSceneAt(0))),
            1e-4f);
  o = Call({"play", P("small.kvc"), "-o", P("g.obj"), "--frame", "2", "--graph-frame", "30"});
  EXPECT_LT(PointSetDistance(ObjVertices(P("g.obj")), InElementOrder(order, SmallSceneAt(1))),
            1e-4f);
  o = Call({"play", P("small.kvc"), "-o", P("d.obj"), "--frame", "3", "--dont-delete"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_EQ(ObjVertices(P("d.obj")).size(), 9u);  // the hidden element is kept
}

// Element names go into the file in Windows-1252, one byte per character, and come back whole;
// a character the code page lacks is stored as '?'.
TEST_F(Commands, LatinNamesSurviveRecordingWhole) {
  WriteSmallScene(dir_);
  std::string gltf = ReadFile(P("small.gltf"));
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"\"Parent\"", "\"Wände\""},
                                 {"\"Child\"", "\"Größe\""},
                                 {"\"Hidden\"", "\"日本\""}}) {
    ASSERT_NE(gltf.find(from), std::string::npos);
    gltf.replace(gltf.find(from), from.size(), to);
  }
  WriteFile(P("latin.gltf"), gltf);
  Outcome o = Call({"record", P("latin.gltf"), "-o", P("latin.kvc")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  o = Call({"info", P("latin.kvc"), "--elements"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  std::vector<std::string> names = ElementNames(o.out);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"??", "Größe", "Wände"})) << o.out;
  const std::string bytes = ReadFile(P("latin.kvc"));
  EXPECT_NE(bytes.find(std::string("\x05\0\0\0W\xE4nde", 9)), std::string::npos);
  EXPECT_NE(bytes.find(std::string("\x05\0\0\0Gr\xF6\xDF"
                                   "e",
                                   9)),
            std::string::npos);
  EXPECT_NE(bytes.find(std::string("\x02\0\0\0??", 6)), std::string::npos);
}

TEST_F(Commands, RecordingFailuresSayWhyAndKeepThePreviousCache) {
  WriteSmallScene(dir_);
  ASSERT_EQ(Call({"record", P("small.gltf"), "-o", P("keep.kvc")}).code, kExitOk);
  const std::string before = ReadFile(P("keep.kvc"));

  Outcome o = Call({"record", P("small.gltf"), "-o", P("keep.kvc"), "--nodes", "Nobody*"});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("Nothing to cache!"), std::string::npos) << o.err;
  EXPECT_EQ(ReadFile(P("keep.kvc")), before);

  WriteFile(P("broken.gltf"), "{\"asset\": {\"version\": \"2.0\"}, \"nodes\": [");
  o = Call({"record", P("broken.gltf"), "-o", P("keep.kvc")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_FALSE(o.err.empty());
  EXPECT_EQ(ReadFile(P("keep.kvc")), before);

  o = Call({"record", P("small.gltf"), "-o", P("no/such/dir/x.kvc")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("File not found."), std::string::npos) << o.err;

  // Only the matching nodes are recorded.
  o = Call({"record", P("small.gltf"), "-o", P("p.kvc"), "--nodes", "P*", "--start", "5", "--end",
            "9", "--step", "2"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  o = Call({"info", P("p.kvc"), "--elements"});
  EXPECT_NE(o.out.find("\tNumber of Frames : 3\n\tStep Size        : 320 ticks\n"),
            std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("\tObjects          : 1\n0\tParent\t3\t1\n"), std::string::npos) << o.out;
}

TEST_F(Commands, NonFiniteNumbersAndBackwardRangesAreRefused) {
  WriteFile(P("two.kvc"), testing::TwoElementCache());
  WriteSmallScene(dir_);
  // Every floating option of play, each with every non-finite spelling: a usage error that
  // names the option, and no mesh written.
  for (const char* opt : {"--frame", "--speed", "--graph-frame", "--scale"}) {
    for (const char* bad : {"nan", "NaN", "inf", "-inf", "infinity"}) {
      std::vector<std::string> args = {"play", P("two.kvc"), "-o", P("n.obj")};
      if (std::string(opt) != "--frame") args.insert(args.end(), {"--frame", "1"});
      args.insert(args.end(), {opt, bad});
      const Outcome o = Call(args);
      EXPECT_EQ(o.code, kExitUsage) << opt << " " << bad << ": " << o.err;
      EXPECT_NE(o.err.find(opt), std::string::npos) << o.err;
      // A range check may speak first for infinity; NaN passes ranges and must still fail.
      if (std::string(bad) == "nan") {
        EXPECT_NE(o.err.find("finite"), std::string::npos) << o.err;
      }
      EXPECT_FALSE(fs::exists(P("n.obj"))) << opt << " " << bad;
    }
  }
  Outcome o = Call({"record", P("small.gltf"), "-o", P("r.kvc"), "--step", "nan"});
  EXPECT_EQ(o.code, kExitUsage) << o.err;
  EXPECT_NE(o.err.find("--step"), std::string::npos) << o.err;

  // A start after the end, typed or fallen back on from the scene's range (0 to 30), writes
  // nothing and names where each end came from.
  o = Call({"record", P("small.gltf"), "-o", P("r.kvc"), "--start", "10", "--end", "5"});
  EXPECT_EQ(o.code, kExitUsage) << o.err;
  EXPECT_NE(o.err.find("--start 10 is after --end 5"), std::string::npos) << o.err;
  o = Call({"record", P("small.gltf"), "-o", P("r.kvc"), "--start", "40"});
  EXPECT_EQ(o.code, kExitUsage) << o.err;
  EXPECT_NE(o.err.find("--start 40 is after the scene's end frame 30"), std::string::npos) << o.err;
  EXPECT_FALSE(fs::exists(P("r.kvc")));
  // One frame is still a range.
  o = Call({"record", P("small.gltf"), "-o", P("r.kvc"), "--start", "5", "--end", "5"});
  EXPECT_EQ(o.code, kExitOk) << o.err;
}

TEST_F(Commands, PlayRejectsBadFilesAndOutputs) {
  Outcome o = Call({"play", P("missing.kvc"), "--frame", "1", "-o", P("x.obj")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_EQ(o.err, "File not found.\n");
  WriteFile(P("junk.kvc"), std::string(300, 'x'));
  o = Call({"play", P("junk.kvc"), "--frame", "1", "-o", P("x.obj")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_EQ(o.err, "Invalid cache file.\n");
  WriteFile(P("two.kvc"), testing::TwoElementCache());
  o = Call({"play", P("two.kvc"), "--frame", "1", "-o", P("x.stl")});
  EXPECT_EQ(o.code, kExitUsage);
  EXPECT_NE(o.err.find(".obj, .ply or .glb"), std::string::npos);
  EXPECT_FALSE(fs::exists(P("x.stl")));
  o = Call({"play", P("two.kvc"), "--frame", "1", "-o", P("no/dir/x.obj")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("cannot create"), std::string::npos);
}

TEST_F(Commands, PlaysAHandBuiltCacheWithVisibilityAndScale) {
  WriteFile(P("two.kvc"), testing::TwoElementCache());
  // Frame 1: Box moved one unit along x; Ball at (0, 0, 5).
  Outcome o = Call({"play", P("two.kvc"), "--frame", "1", "-o", P("a.obj")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  const std::vector<Point3> want = {{1, 0, 0},  {2, 0, 0}, {1, 1, 0}, {-1, -1, 5},
                                    {1, -1, 5}, {1, 1, 5}, {-1, 1, 5}};
  EXPECT_EQ(ObjVertices(P("a.obj")), want);
  // Frame 2: the Ball's sample is invisible and it is deleted.
  o = Call({"play", P("two.kvc"), "--frame", "2", "-o", P("b.obj")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_EQ(ObjVertices(P("b.obj")).size(), 3u);
  // Scale 3 times the inches-to-feet factor of 12: everything 36 times as far out.
  o = Call({"play", P("two.kvc"), "--frame", "1", "-o", P("c.obj"), "--scale", "3", "--scale-from",
            "inches", "--scale-to", "feet"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  const std::vector<Point3> scaled = ObjVertices(P("c.obj"));
  ASSERT_EQ(scaled.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_LT((scaled[i] - want[i] * 36.0f).Length(), 1e-3f) << i;
  // The unit list's own spelling "Milimeters" is a name too: metres over it scale by 1000.
  o = Call({"play", P("two.kvc"), "--frame", "1", "-o", P("m.obj"), "--scale-from", "Milimeters",
            "--scale-to", "metres"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  const std::vector<Point3> metres = ObjVertices(P("m.obj"));
  ASSERT_EQ(metres.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i)
    EXPECT_LT((metres[i] - want[i] * 1000.0f).Length(), 0.05f) << i;
}

}  // namespace
}  // namespace kv::cli

namespace kv::cli {
namespace {

TEST_F(Commands, DemoRecordsAndPlaysASmallWall) {
  const Outcome o = Call({"demo", P("demo"), "--columns", "6", "--rows", "4", "--frames", "8"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  for (const char* f : {"scene.glb", "wall.kvc", "wall.mat", "frame_000.glb", "frame_004.glb",
                        "frame_008.glb", "frame_004.obj", "triggered_004.glb", "triggered_008.glb"})
    EXPECT_TRUE(fs::is_regular_file(dir_ / "demo" / f)) << f;
  // 24 bricks of 12 faces, plus the ball until the group deletes it.
  EXPECT_NE(o.out.find("frame_008.glb"), std::string::npos);
  const size_t played = o.out.find("faces", o.out.find("frame_008.glb"));
  const size_t triggered = o.out.find("faces", o.out.find("triggered_008.glb"));
  ASSERT_NE(played, std::string::npos);
  ASSERT_NE(triggered, std::string::npos);
  auto facesBefore = [&](size_t at) {
    const size_t start = o.out.rfind(", ", at) + 2;
    return std::stoi(o.out.substr(start, at - start));
  };
  EXPECT_GT(facesBefore(played), 24 * 12);
  EXPECT_EQ(facesBefore(triggered), 24 * 12);

  const Outcome info = Call({"info", P("demo/wall.kvc")});
  EXPECT_NE(info.out.find("\tNumber of Frames : 9\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("\tObjects          : 25\n"), std::string::npos) << info.out;
}

TEST_F(Commands, CtrlCCancelsARecordingAndKeepsThePreviousCache) {
  WriteSmallScene(dir_);
  ASSERT_EQ(Call({"record", P("small.gltf"), "-o", P("c.kvc"), "--end", "5"}).code, kExitOk);
  const std::string before = ReadFile(P("c.kvc"));
  RequestInterrupt();  // what the SIGINT handler does
  const Outcome o = Call({"record", P("small.gltf"), "-o", P("c.kvc")});
  ClearInterrupt();
  EXPECT_EQ(o.code, kExitCancelled);
  EXPECT_NE(o.err.find("Operation cancelled."), std::string::npos) << o.err;
  EXPECT_EQ(ReadFile(P("c.kvc")), before);
  for (const auto& e : fs::directory_iterator(dir_))
    EXPECT_EQ(e.path().string().find("~"), std::string::npos) << e.path();

  // Loading every sample up front is the long part of playing: Ctrl-C stops it too.
  RequestInterrupt();
  const Outcome play =
      Call({"play", P("c.kvc"), "--frame", "1", "--load", "pre-load", "-o", P("c.obj")});
  ClearInterrupt();
  EXPECT_EQ(play.code, kExitCancelled);
  EXPECT_NE(play.err.find("Operation cancelled."), std::string::npos) << play.err;
  EXPECT_FALSE(fs::exists(P("c.obj")));
  EXPECT_EQ(Call({"play", P("c.kvc"), "--frame", "1", "--load", "pre-load", "-o", P("c.obj")}).code,
            kExitOk);
}

TEST_F(Commands, RecordsAStandaloneSceneFile) {
  {
    standalone::Scene scene;
    scene.SetFrameRate(25);
    scene.SetAnimRange(Interval(0, 4 * 192));
    Mesh tri;
    tri.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    tri.setNumFaces(1);
    tri.faces[0].setVerts(0, 1, 2);
    auto* a = static_cast<standalone::SceneNode*>(scene.CreateMeshNode(tri, "Left"));
    a->KeyPosition(0, {0, 0, 0});
    a->KeyPosition(4 * 192, {4, 0, 0});
    scene.CreatePointHelperNode("Helper");
    std::string error;
    ASSERT_TRUE(standalone::SaveScene(scene, P("s.kvscene"), error)) << error;
  }
  Outcome o = Call({"record", P("s.kvscene"), "-o", P("s.kvc")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  o = Call({"info", P("s.kvc"), "--elements"});
  EXPECT_NE(o.out.find("\tNumber of Frames : 5\n\tStep Size        : 192 ticks\n"
                       "\tFrameRate        : 25 FPS\n\tObjects          : 1\n0\tLeft\t3\t1\n"),
            std::string::npos)
      << o.out;
  o = Call({"play", P("s.kvc"), "--frame", "2", "-o", P("s.obj")});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  const std::vector<Point3> want = {{2, 0, 0}, {3, 0, 0}, {2, 1, 0}};
  EXPECT_EQ(ObjVertices(P("s.obj")), want);

  WriteFile(P("bad.kvscene"), "KVSCENE");
  o = Call({"record", P("bad.kvscene"), "-o", P("b.kvc")});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("kvcache record: "), std::string::npos);
  EXPECT_FALSE(fs::exists(P("b.kvc")));
}

}  // namespace
}  // namespace kv::cli
