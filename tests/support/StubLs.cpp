/// The stand-in for the `ls` command with which the daemon looks for adapters: the first `ls` in
/// PATH.
///
/// Waits until the file ready in the folder VORN_TEST_PAUSES is there, then is the machine's own
/// ls. Until then the daemon does not touch an adapter: the test has time to lower its priority.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

int main(int, char** argv) {
  const char* const folder = std::getenv("VORN_TEST_PAUSES");
  if (folder != nullptr) {
    const std::string ready = std::string(folder) + "/ready";
    for (int looks = 0; access(ready.c_str(), F_OK) != 0 && looks < 60'000; ++looks) {
      const timespec pause{0, 1'000'000};
      nanosleep(&pause, nullptr);
    }
  }
  execv("/bin/ls", argv);
  std::perror("/bin/ls");
  return 2;
}
