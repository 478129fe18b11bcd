#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "commands.h"
#include "support.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::TwoElementCache;
using testing::WriteFile;

class InfoTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dir_); }
  void TearDown() override { fs::remove_all(dir_); }
  int Info(const std::string& file, bool elements) {
    out_.str(""), err_.str("");
    InfoArgs a;
    a.file = file;
    a.elements = elements;
    return RunInfo(a, CommonArgs{true}, out_, err_);
  }
  fs::path dir_ = fs::temp_directory_path() / ("kv_info_" + std::to_string(::getpid()));
  std::ostringstream out_, err_;
};

TEST_F(InfoTest, PrintsTheReportLinesAndTheElementTable) {
  const std::string path = (dir_ / "two.kvc").string();
  const std::string bytes = TwoElementCache();
  ASSERT_EQ(bytes.size(), 947u);
  WriteFile(path, bytes);

  ASSERT_EQ(Info(path, false), kExitOk) << err_.str();
  const std::string report = "Cache File : \"" + path +
                             "\"\n"
                             "\tFile size        : 947 B\n"
                             "\tMesh size        : 397 B\n"
                             "\tAnimation size   : 294 B\n"
                             "\tNumber of Frames : 3\n"
                             "\tStep Size        : 160 ticks\n"
                             "\tFrameRate        : 30 FPS\n"
                             "\tObjects          : 2\n";
  EXPECT_EQ(out_.str(), report);
  EXPECT_TRUE(err_.str().empty());

  ASSERT_EQ(Info(path, true), kExitOk);
  EXPECT_EQ(out_.str(), report + "0\tBox\t3\t1\n1\tBall\t4\t2\n");
}

TEST_F(InfoTest, UnreadableFilesPrintTheReadersMessage) {
  const std::string good = TwoElementCache();
  struct Case {
    std::string name, bytes, message;
  };
  std::string badMagic = good;
  badMagic[0] = 'X';
  std::string badVersion = good;
  badVersion[7] = 4;
  const std::vector<Case> cases = {
      {"short.kvc", good.substr(0, 30), "Read past EOF."},
      {"cut.kvc", good.substr(0, 400), "Read past EOF."},
      {"magic.kvc", badMagic, "Invalid cache file."},
      {"version.kvc", badVersion, "Invalid cache file."},
  };
  for (const Case& c : cases) {
    WriteFile((dir_ / c.name).string(), c.bytes);
    EXPECT_EQ(Info((dir_ / c.name).string(), false), kExitError) << c.name;
    EXPECT_EQ(err_.str(), c.message + "\n") << c.name;
    EXPECT_TRUE(out_.str().empty()) << c.name;
  }
  EXPECT_EQ(Info((dir_ / "missing.kvc").string(), true), kExitError);
  EXPECT_EQ(err_.str(), "File not found.\n");
}

}  // namespace
}  // namespace kv::cli
