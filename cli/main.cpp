#include <iostream>

#include "cli.h"
#include "progress.h"

int main(int argc, char** argv) {
  kv::cli::InstallInterruptHandler();
  return kv::cli::Run(argc, argv, std::cout, std::cerr);
}
