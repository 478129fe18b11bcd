#include "host/max/rc_script.h"

#include "res/strings.h"

namespace kv::max {

std::string RcQuote(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '"':
        out += "\"\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        out += c;
        break;
    }
  }
  out += '"';
  return out;
}

std::string ResourceScript() {
  std::string rc =
      "// Generated at build time from the string table; edit the table, not this file.\n"
      "#pragma code_page(65001)\n\n"
      "STRINGTABLE\nBEGIN\n";
  for (const res::StringEntry& e : res::StringTable()) {
    rc += "  " + std::to_string(e.id) + ", " + RcQuote(e.text) + "\n";
  }
  rc += "END\n";
  return rc;
}

}  // namespace kv::max
