#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"

namespace kv::cli {
namespace {

struct Outcome {
  int code;
  std::string out, err;
};

Outcome Call(std::vector<const char*> args) {
  args.insert(args.begin(), "kvcache");
  std::ostringstream out, err;
  const int code = Run(static_cast<int>(args.size()), args.data(), out, err);
  return {code, out.str(), err.str()};
}

TEST(CliArgs, HelpIsShownForTheToolAndEveryCommand) {
  for (const char* cmd : {"record", "info", "play", "demo"}) {
    const Outcome o = Call({cmd, "--help"});
    EXPECT_EQ(o.code, kExitOk) << cmd;
    EXPECT_NE(o.out.find(std::string("kvcache ") + cmd), std::string::npos) << o.out;
  }
  // The tool's own flag is taken after a command as well.
  const Outcome quiet = Call({"info", "/no/such/file.kvc", "--quiet"});
  EXPECT_EQ(quiet.code, kExitError) << quiet.err;
  EXPECT_EQ(quiet.err, "File not found.\n");

  const Outcome top = Call({"--help"});
  EXPECT_EQ(top.code, kExitOk);
  for (const char* cmd : {"record", "info", "play", "demo"})
    EXPECT_NE(top.out.find(cmd), std::string::npos);
}

TEST(CliArgs, WrongCommandLinesExitWithUsageAndSayWhy) {
  struct Case {
    std::vector<const char*> args;
    std::string says;
  };
  const std::vector<Case> cases = {
      {{}, "subcommand"},
      {{"frobnicate"}, "frobnicate"},
      {{"record", "/no/such/scene.gltf", "-o", "x.kvc"}, "/no/such/scene.gltf"},
      {{"record", KV_SOURCE_DIR "/CMakeLists.txt"}, "--output"},
      {{"record", KV_SOURCE_DIR "/CMakeLists.txt", "-o", "x.kvc", "--step", "0"}, "--step"},
      {{"record", KV_SOURCE_DIR "/CMakeLists.txt", "-o", ""}, "--output"},
      {{"info"}, "file"},
      {{"play", "x.kvc", "-o", "x.obj"}, "--frame or --time"},
      {{"play", "x.kvc", "--frame", "1", "--time", "160", "-o", "x.obj"}, "exclude"},
      {{"play", "x.kvc", "--frame", "1", "-o", "x.obj", "--before", "sometimes"}, "sometimes"},
      {{"play", "x.kvc", "--frame", "1", "-o", "x.obj", "--load", "lazy"}, "lazy"},
      {{"play", "x.kvc", "--frame", "1", "-o", "x.obj", "--scale-from", "cubits"}, "cubits"},
  };
  for (const Case& c : cases) {
    const Outcome o = Call(c.args);
    std::string line;
    for (const char* a : c.args) line += std::string(a) + " ";
    EXPECT_EQ(o.code, kExitUsage) << line << "\n" << o.err;
    EXPECT_NE(o.err.find(c.says), std::string::npos) << line << "\n" << o.err;
    EXPECT_TRUE(o.out.empty()) << line;
  }
}

}  // namespace
}  // namespace kv::cli
