// The kvcache command line: parses argv and runs one command.
#pragma once

#include <iosfwd>

namespace kv::cli {

// Runs `kvcache` with the given arguments (argv[0] is the program name). Results go to `out`,
// messages and progress to `err`. Returns the exit code (see commands.h); never throws.
int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace kv::cli
