// vorn: start-up as a background daemon.

#include "thread/Pauses.h"
#include "vorn/base/Values.h"
#include "vorn/bus/SerialPort.h"
#include "vorn/master/Vorn.h"

#include <fcntl.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>

namespace vorn {
namespace {

constexpr const char* kPidPath = "/var/run/vorn/vorn.pid";

/// Where a standard stream was closed at start, its number must not go to a socket: what is printed
/// would reach a client.
void KeepStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) == -1) {
      // cppcheck-suppress leakReturnValNotUsed ; open for as long as the process lives
      open("/dev/null", O_RDWR);  // takes the lowest free number, this one
    }
  }
}

/// A client or a reader of standard output that vanished, or a file that has reached a limit of its
/// size, is an error of the write that meets it, never the end of the daemon.
void MakeWriteErrorsHarmless() {
  // Caught rather than ignored: what the daemon runs would inherit that, and a `grep` whose reader
  // has ended with the daemon would complain instead of ending.
  for (const int signal : {SIGPIPE, SIGXFSZ}) {
    std::signal(signal, [](int) {});
  }
}

/// A pause lasts as long as it says: by default each may take 50 us more, which is most of what a
/// command takes on its way.
void KeepTimersExact() {
  prctl(PR_SET_TIMERSLACK, 1UL);  // nanosecond; the workers' threads inherit it
}

/// One heap for all threads: what each of them would else keep back for itself adds up, and none
/// of them asks for memory often.
void KeepOneHeap() {
  mallopt(M_ARENA_MAX, 1);
}

/// Arms the stop flag. The signals come where the main thread waits, and nowhere else: between a
/// look at the flag and a wait one would be missed.
void InstallSignalHandling(SIGNAL_FLAG& flag) {
  pSignalFlag = &flag;
  std::signal(SIGINT, SIGhandler);
  std::signal(SIGTERM, SIGhandler);
  // Whatever the parent had set: the pauses wait for their child.
  std::signal(SIGCHLD, SIG_DFL);
  sigset_t stopping;
  sigemptyset(&stopping);
  sigaddset(&stopping, SIGINT);
  sigaddset(&stopping, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
}

/// The daemon's life behind the fork; the process's exit status.
int RunDaemon(SIGNAL_FLAG& signalFlag) {
  std::ofstream pidFile(kPidPath, std::ios::trunc);
  if (pidFile.fail()) {
    std::cout << "Couldn't open pid file." << std::endl;
    return EXIT_FAILURE;
  }
  pidFile << ITOA(getpid());
  pidFile.close();

  InstallSignalHandling(signalFlag);
  KeepTimersExact();
  KeepOneHeap();

  SERIAL_PORT port;
  SYSTEM_PAUSES pauses;
  VORN vorn(signalFlag, port, pauses);
  if (vorn.InitProgramData()) {
    vorn.InitInterfaces();
    vorn.MasterThread();
  }
  // Ends here, without destructors, while the workers run: they use no static object that exit
  // destroys, and the system takes back what they hold.
  std::exit(EXIT_SUCCESS);
}

}  // namespace

}  // namespace vorn

int main() {
  vorn::KeepStandardStreams();
  vorn::MakeWriteErrorsHarmless();  // before the first: the pid file's, and the words on it
  const pid_t child = fork();
  if (child < 0) {
    return EXIT_FAILURE;
  }
  if (child > 0) {
    return EXIT_SUCCESS;
  }
  setsid();
  // Out here, so that it outlives what an exception unwinds: the handler may write it to the last.
  const auto signalFlag = std::make_unique<vorn::SIGNAL_FLAG>(vorn::kNoSignal);
  try {
    return vorn::RunDaemon(*signalFlag);
  } catch (...) {
    throw;  // unwinds vorn::RunDaemon's objects on the way to an abnormal end
  }
}
