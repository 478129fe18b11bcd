// The Khronos glTF validator, run through Node on a written file.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kvtest {

// Runs the Khronos validator on a file; "" when it passes, else its report. Skips (sets
// `skip`) when node is not installed.
inline std::string ValidateGltf(const std::filesystem::path& file, bool& skip) {
  namespace fs = std::filesystem;
  skip = false;
  if (std::system("node --version > /dev/null 2>&1") != 0) {
    skip = true;
    return {};
  }
  const fs::path tools = fs::canonical("/proc/self/exe").parent_path() / ".tools";
  if (!fs::exists(tools / "node_modules" / "gltf-validator")) {
    fs::create_directories(tools);
    const std::string cmd =
        "cd '" + tools.string() +
        "' && npm install --no-audit --no-fund --silent gltf-validator > npm.log 2>&1";
    if (std::system(cmd.c_str()) != 0)
      return "npm could not install gltf-validator (see " + (tools / "npm.log").string() + ")";
  }
  std::ofstream(tools / "validate.js") << R"(
const v = require('gltf-validator'), fs = require('fs'), path = require('path');
const f = process.argv[2];
v.validateBytes(new Uint8Array(fs.readFileSync(f)), {uri: path.basename(f),
    externalResourceFunction: (u) => new Promise((ok, no) => {
      try { ok(new Uint8Array(fs.readFileSync(path.join(path.dirname(f), decodeURIComponent(u))))); }
      catch (e) { no(e.toString()); } })})
  .then((r) => { if (r.issues.numErrors) { console.log(JSON.stringify(r.issues.messages)); process.exit(1); } })
  .catch((e) => { console.log(String(e)); process.exit(2); });
)";
  const fs::path out = file.string() + ".report";
  const std::string cmd = "NODE_PATH='" + (tools / "node_modules").string() + "' node '" +
                          (tools / "validate.js").string() + "' '" + file.string() + "' > '" +
                          out.string() + "' 2>&1";
  if (std::system(cmd.c_str()) == 0) return {};
  std::ifstream in(out);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()) + " ";
}

}  // namespace kvtest
