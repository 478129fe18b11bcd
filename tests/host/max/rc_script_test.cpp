// The plug-in's resource script: every string of the table under its own id with its exact
// text, read back by a reader of the script's own quoting rules.
#include "host/max/rc_script.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "res/control_ids.h"
#include "res/strings.h"
#include "ui/rollout_table.h"

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

// One control line of a dialog template: its id and, for the kinds that have one, its text.
struct TemplateControl {
  int id = 0;
  std::string text;
  bool hasText = false;
};

// The controls of dialog `templateId` in the script, in order; false when it is missing or a
// line does not read.
bool ReadDialog(const std::string& script, int templateId, std::vector<TemplateControl>& out,
                std::string& caption) {
  std::istringstream in(script);
  std::string line;
  const std::string head = std::to_string(templateId) + " DIALOGEX ";
  bool inside = false, found = false;
  while (std::getline(in, line)) {
    if (line.rfind(head, 0) == 0) found = true;
    if (!found) continue;
    if (line.rfind("CAPTION ", 0) == 0 && !Unquote(line.substr(8), caption)) return false;
    if (line == "BEGIN") {
      inside = true;
      continue;
    }
    if (line == "END") return true;
    if (!inside) continue;
    std::istringstream words(line);
    std::string kind;
    words >> kind;
    TemplateControl c;
    std::string rest;
    std::getline(words, rest);
    rest.erase(0, rest.find_first_not_of(' '));
    if (kind == "LTEXT" || kind == "GROUPBOX" || kind == "CONTROL") {
      // A literal, then the id: find the literal's end by the quoting rules.
      size_t i = 1;
      while (i < rest.size() && !(rest[i] == '"' && (i + 1 == rest.size() || rest[i + 1] != '"'))) {
        i += rest[i] == '"' ? 2 : 1;
      }
      if (!Unquote(rest.substr(0, i + 1), c.text)) return false;
      c.hasText = true;
      rest = rest.substr(rest.find(',', i) + 2);
    }
    c.id = std::stoi(rest);
    out.push_back(c);
  }
  return false;
}

TEST(ResourceScript, HoldsEveryRolloutAndDialogWithEachControlIdAndCaption) {
  const std::string script = ResourceScript();
  std::vector<const ui::DialogDef*> dialogs;
  for (const ui::DialogDef& d : ui::RolloutDefs()) dialogs.push_back(&d);
  dialogs.push_back(&ui::ElementListDialogDef());
  for (const ui::DialogDef* d : dialogs) {
    SCOPED_TRACE(d->templateId);
    std::vector<TemplateControl> got;
    std::string caption;
    ASSERT_TRUE(ReadDialog(script, d->templateId, got, caption));
    ASSERT_EQ(got.size(), d->controls.size());
    for (size_t i = 0; i < got.size(); ++i) {
      const ui::ControlDef& c = d->controls[i];
      EXPECT_EQ(got[i].id, c.id) << "control " << i;
      if (got[i].hasText) {
        EXPECT_EQ(got[i].text, c.Caption()) << "control " << c.id;
      }
    }
    // Modal dialogs carry their title; rollouts take theirs from the panel.
    EXPECT_EQ(caption, d->map < 0 ? std::string(res::FindString(d->titleId)) : "");
  }
  // The Cache File rollout by hand: its template number and a button and its text.
  std::vector<TemplateControl> cacheFile;
  std::string none;
  ASSERT_TRUE(ReadDialog(script, res::IDD_CACHE_FILE, cacheFile, none));
  const auto load = std::find_if(cacheFile.begin(), cacheFile.end(),
                                 [](const TemplateControl& c) { return c.id == res::IDC_LOAD; });
  ASSERT_NE(load, cacheFile.end());
  EXPECT_EQ(load->text, "Load..");
}

}  // namespace
}  // namespace kv::max
