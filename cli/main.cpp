#include <unistd.h>

#include <iostream>

#include "cli.h"
#include "progress.h"

int main(int argc, char** argv) {
  kv::cli::InstallInterruptHandler();
  kv::cli::SetProgressBarsEnabled(isatty(STDERR_FILENO) != 0);
  return kv::cli::Run(argc, argv, std::cout, std::cerr);
}
