// The plug-in's export list (kvcache.def) against the entry points the host looks up: a name
// missing, added or misspelt there leaves 3ds Max unable to load the library.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "object/registration.h"

namespace kv {
namespace {

// Export name -> the function it names (itself unless aliased with "name = function").
std::map<std::string, std::string> ReadDef(const std::string& path) {
  std::ifstream in(path);
  std::map<std::string, std::string> out;
  std::string line;
  bool exports = false;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string name, eq, target;
    if (!(words >> name)) continue;
    if (name == "EXPORTS") {
      exports = true;
      continue;
    }
    if (!exports) continue;
    if (words >> eq >> target && eq == "=") {
      out[name] = target;
    } else {
      out[name] = name;
    }
  }
  return out;
}

TEST(PluginExports, DefFileListsExactlyTheSixEntryPoints) {
  const auto def = ReadDef(std::string(KV_SOURCE_DIR) + "/src/host/max/kvcache.def");
  std::set<std::string> names;
  for (const auto& [name, target] : def) names.insert(name);
  std::set<std::string> expected(registration::kExports.begin(), registration::kExports.end());
  EXPECT_EQ(names, expected);

  // The three that answer 1 are one function; the others are their own.
  ASSERT_TRUE(def.count("LibNumberClasses"));
  const std::string one = def.at("LibNumberClasses");
  EXPECT_EQ(def.at("LibInitialize"), one);
  EXPECT_EQ(def.at("LibShutdown"), one);
  for (const char* own : {"LibDescription", "LibClassDesc", "LibVersion"}) {
    ASSERT_TRUE(def.count(own)) << own;
    EXPECT_EQ(def.at(own), own);
  }
}

}  // namespace
}  // namespace kv
