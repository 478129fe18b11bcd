// The plug-in's resource script: every string of the table under its own id with its exact
// text, read back by a reader of the script's own quoting rules.
#include "host/max/rc_script.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "res/strings.h"

namespace kv::max {
namespace {

// Reads a resource-script string literal back (the inverse of the quoting rules).
bool Unquote(const std::string& lit, std::string& out) {
  if (lit.size() < 2 || lit.front() != '"' || lit.back() != '"') return false;
  out.clear();
  for (size_t i = 1; i + 1 < lit.size(); ++i) {
    const char c = lit[i];
    if (c == '"') {
      if (lit[i + 1] != '"' || i + 2 >= lit.size()) return false;  // a lone quote ends early
      out += '"';
      ++i;
    } else if (c == '\\') {
      const char n = lit[++i];
      if (n == 'n')
        out += '\n';
      else if (n == 't')
        out += '\t';
      else if (n == '\\')
        out += '\\';
      else
        return false;
    } else {
      out += c;
    }
  }
  return true;
}

// id -> text of the script's STRINGTABLE, or a failure on a malformed or repeated line.
::testing::AssertionResult ReadStringTable(const std::string& script,
                                           std::map<int, std::string>& table) {
  std::istringstream in(script);
  std::string line;
  bool inside = false, seen = false;
  while (std::getline(in, line)) {
    if (line == "STRINGTABLE") seen = true;
    if (!seen) continue;
    if (line == "BEGIN") {
      inside = true;
      continue;
    }
    if (line == "END") break;
    if (!inside) continue;
    const size_t comma = line.find(", ");
    if (comma == std::string::npos) return ::testing::AssertionFailure() << "line: " << line;
    const int id = std::stoi(line.substr(0, comma));
    std::string text;
    if (!Unquote(line.substr(comma + 2), text)) {
      return ::testing::AssertionFailure() << "literal: " << line;
    }
    if (!table.emplace(id, text).second) return ::testing::AssertionFailure() << "twice: " << id;
  }
  return seen ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "no table";
}

TEST(RcQuote, EscapesWhatTheResourceCompilerWouldReadOtherwise) {
  EXPECT_EQ(RcQuote("KV Cache"), "\"KV Cache\"");
  EXPECT_EQ(RcQuote("say \"hi\""), "\"say \"\"hi\"\"\"");
  EXPECT_EQ(RcQuote("plugins\\KVRigid"), "\"plugins\\\\KVRigid\"");
  EXPECT_EQ(RcQuote("a\nb\tc"), "\"a\\nb\\tc\"");
  EXPECT_EQ(RcQuote("%s 1/4 \xC3\xA9"), "\"%s 1/4 \xC3\xA9\"");  // UTF-8 passes through
  EXPECT_EQ(RcQuote(""), "\"\"");
}

TEST(ResourceScript, HoldsEveryStringIdWithItsText) {
  const std::string script = ResourceScript();
  EXPECT_NE(script.find("#pragma code_page(65001)"), std::string::npos);

  std::map<int, std::string> table;
  ASSERT_TRUE(ReadStringTable(script, table));
  EXPECT_EQ(table.size(), res::StringTable().size());
  for (const res::StringEntry& e : res::StringTable()) {
    const auto it = table.find(e.id);
    ASSERT_NE(it, table.end()) << "id " << e.id;
    EXPECT_EQ(it->second, e.text) << "id " << e.id;
  }
  // The descriptor's four and a text with a line break, by value.
  EXPECT_EQ(table[1], "Kelvane");
  EXPECT_EQ(table[2], "Kelvane");
  EXPECT_EQ(table[3], "KV Cache");
  EXPECT_EQ(table[4], "KV_Cache");
  EXPECT_EQ(table[res::IDS_FILE_EXISTS], "%s already exists.\nDo you wish to replace it?");
}

}  // namespace
}  // namespace kv::max
