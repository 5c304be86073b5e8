// vornctl: cards, inputs and outputs of a vorn daemon, from the command line.

#include "vornctl/ExitStatus.h"
#include "vornctl/Program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace {

/// A stream that the program was started without is nowhere: else a connection would get its
/// number, and what is printed would go to the daemon.
void OpenClosedStreams() {
  int number = 0;
  do {
    number = open("/dev/null", O_RDWR);
  } while (number >= 0 && number <= 2);
  if (number >= 0) {
    close(number);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OpenClosedStreams();
  try {
    return ctl::RunProgram(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vornctl: %s\n", error.what());
    return static_cast<int>(ctl::EXIT_STATUS::kUsage);
  }
}
