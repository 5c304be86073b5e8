#include "tests/support/PrivateRun.h"

#include "tests/support/ProcessInfo.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace support {
namespace {

constexpr int kCannotRunHere = 77;

bool OnlyLists(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]).starts_with("--gtest_list_tests")) {
      return true;
    }
  }
  return false;
}

/// Runs this program through private-run; its exit status, or 128 + signal.
int RunAgain(bool withNetwork, int argc, char** argv) {
  std::vector<char*> arguments;
  const auto add = [&arguments](const char* text) { arguments.push_back(const_cast<char*>(text)); };
  add(VORN_PRIVATE_RUN);
  if (withNetwork) {
    add("--net");
  }
#ifdef VORN_EMULATOR
  add(VORN_ADOPTING);
  add(VORN_EMULATOR);
#endif
  add("/proc/self/exe");
  static char self[4096];
  const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
  if (length > 0) {
    arguments.back() = self;
  }
  for (int i = 1; i < argc; ++i) {
    arguments.push_back(argv[i]);
  }
  arguments.push_back(nullptr);

  const pid_t child = fork();
  if (child == 0) {
    // Whoever ends this process (CTest, a time-out) ends the test, and with it its daemon.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    execv(arguments[0], arguments.data());
    std::perror(arguments[0]);
    _exit(kCannotRunHere);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    return EXIT_FAILURE;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void BringLoopbackUp() {
  const int control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
  if (control >= 0 && ioctl(control, SIOCGIFFLAGS, &request) == 0 &&
      (request.ifr_flags & IFF_UP) == 0) {
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    if (ioctl(control, SIOCSIFFLAGS, &request) != 0) {
      std::perror("cannot bring lo up");
    }
  }
  close(control);
}

}  // namespace

int RunPrivately(int argc, char** argv) {
  if (OnlyLists(argc, argv)) {
    return -1;
  }
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  if (std::getenv("VORN_PRIVATE") == nullptr) {
    int status = RunAgain(true, argc, argv);
    if (status == kCannotRunHere) {
      status = RunAgain(false, argc, argv);
    }
    // A test that crashed may have left its daemon; it is our child now.
    KillChildren();
    return status;
  }
  BringLoopbackUp();
  return -1;
}

}  // namespace support
