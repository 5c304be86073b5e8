// vornctl: cards, inputs and outputs of a vorn daemon, from the command line.

#include "vornctl/ExitStatus.h"
#include "vornctl/Program.h"

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
  try {
    return ctl::RunProgram(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vornctl: %s\n", error.what());
    return static_cast<int>(ctl::EXIT_STATUS::kUsage);
  }
}
