// Writes the plug-in's resource script: make_rc OUTPUT. Leaves an existing file untouched when
// nothing changed, so the resources are not rebuilt for nothing.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "host/max/rc_script.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_rc OUTPUT.rc\n");
    return 2;
  }
  const std::string script = kv::max::ResourceScript();
  std::ifstream in(argv[1], std::ios::binary);
  std::stringstream old;
  old << in.rdbuf();
  if (in && old.str() == script) return 0;
  std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
  out << script;
  if (!out.flush()) {
    std::fprintf(stderr, "make_rc: cannot write %s\n", argv[1]);
    return 1;
  }
  return 0;
}
