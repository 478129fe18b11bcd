// `kvcache panel`: actions by id or caption, the undo step each made, and bad actions refused.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "commands.h"
#include "support.h"

namespace kv::cli::testing {
namespace {

TEST(PanelCommand, ActionsRunInOrderAndReportTheirUndoSteps) {
  const Outcome r = Call({"panel", "--do", "choose 2014 Meters", "--do", "choose 2015 Inches",
                          "--do", "press Unload", "--all"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  EXPECT_NE(r.out.find("> press Unload  [undo: Unload Cache]"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("1024 status \"<None>\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("2017 spinner = 0.0254"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("[About]"), std::string::npos);
}

TEST(PanelCommand, BadActionsAreRefusedWithTheirReason) {
  Outcome r = Call({"panel", "--do", "press Nope"});
  EXPECT_EQ(r.code, kExitUsage);
  EXPECT_NE(r.err.find("no control 'Nope'"), std::string::npos) << r.err;
  r = Call({"panel", "--do", "choose 2014 Parsecs"});
  EXPECT_EQ(r.code, kExitUsage);
  EXPECT_NE(r.err.find("has no item 'Parsecs'"), std::string::npos) << r.err;
  r = Call({"panel", "--do", "type 1045 ten"});
  EXPECT_EQ(r.code, kExitUsage);
  // A disabled control cannot be worked: Pick Object.. needs the omni light mode.
  r = Call({"panel", "--do", "press 1092"});
  EXPECT_EQ(r.code, kExitUsage);
  EXPECT_NE(r.err.find("cannot be pressed now"), std::string::npos) << r.err;
}

TEST(PanelCommand, ExplodeButtonExplodesTheLoadedCache) {
  const std::string cache =
      ::testing::TempDir() + "kv_panel_explode_" + std::to_string(::getpid()) + ".kvc";
  WriteFile(cache, TwoElementCache());
  const Outcome r = Call({"panel", cache, "--do", "press 1142"});
  ASSERT_EQ(r.code, kExitOk) << r.err;
  // Reduction is on by default, so its step follows the explode's and is the last one.
  EXPECT_NE(r.out.find("> press 1142  [undo: Reduce Keys]"), std::string::npos) << r.out;
  std::remove(cache.c_str());
}

}  // namespace
}  // namespace kv::cli::testing
