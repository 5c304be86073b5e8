#include "tests/support/Daemon.h"

#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <stdexcept>

namespace support {
namespace {

#ifdef VORN_PROGRAM
constexpr const char* kProgram = VORN_PROGRAM;
#else
constexpr const char* kProgram = "/nonexistent/vorn";
#endif

/// For the handler below; one daemon at a time.
std::atomic<pid_t> running{0};

/// The test is to end at once (its time-out): the daemon, a session of its own, must not stay.
void OnTermination(int) {
  const pid_t pid = running.load();
  if (pid > 0) {
    kill(pid, SIGKILL);
  }
  _exit(128 + SIGTERM);
}

/// Clones fail with EAGAIN from here on where any of the flags in `with` is set and none in
/// `without`; fork counts as a clone without flags, clone3 as unknown to the kernel, so that its
/// callers take clone. A failure ends the child.
void RefuseClones(unsigned int with, unsigned int without) {
#ifdef SYS_fork
  const unsigned int forkCall = with == 0 ? SYS_fork : SYS_vfork;
#else
  const unsigned int forkCall = ~0U;
#endif
  // A condition on no flags always holds.
  const unsigned int anyFlag = with == 0 ? ~0U : with;
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone3, 6, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, forkCall, 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 5),
      // The flags are the first argument's low word on the little-endian machines that this runs
      // on.
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, without, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, anyFlag, 0, 2),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    _exit(125);
  }
}

/// Takes the lowest free numbers above the standard streams. The numbers reach the daemon.
void TakeDescriptors(int count) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const auto needed = static_cast<rlim_t>(count) + 100;
  if (limit.rlim_cur < needed) {
    limit.rlim_cur = needed;
    limit.rlim_max = limit.rlim_max < needed ? needed : limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  for (int i = 0; i < count; ++i) {
    // cppcheck-suppress leakReturnValNotUsed ; for the program to come
    if (open("/dev/null", O_RDONLY) < 0) {
      _exit(125);
    }
  }
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

std::vector<std::string> Environment(std::map<std::string, std::string> changes) {
#ifdef VORN_EMULATOR
  // For the emulated program, not for the shell that starts the emulator.
  changes.emplace("QEMU_SET_ENV", "LD_PRELOAD=" VORN_BOARD_READS);
#else
  changes.emplace("LD_PRELOAD", VORN_BOARD_READS);
#endif
  // AddressSanitizer's runtime would insist on being loaded first; the reads are handed on to it.
  const char* options = std::getenv("ASAN_OPTIONS");
  changes.emplace(
      "ASAN_OPTIONS",
      std::string(options == nullptr ? "" : options).append(":verify_asan_link_order=0"));
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('='));
    if (changes.count(name) == 0) {
      all.push_back(text);
    }
  }
  for (const auto& [name, value] : changes) {
    all.push_back(std::string(name).append("=").append(value));
  }
  return all;
}

}  // namespace

DAEMON::DAEMON(std::string outputPath) : m_outputPath(std::move(outputPath)) {
  struct sigaction action {};
  action.sa_handler = OnTermination;
  sigaction(SIGTERM, &action, nullptr);
}

DAEMON::~DAEMON() {
  Kill();
}

int DAEMON::Start(const START& start) {
  std::vector<std::string> arguments = start.arguments;
  arguments.insert(arguments.begin(), kProgram);
  std::vector<std::string> environment = Environment(start.environment);
  // Nothing is allocated between fork and exec: other threads of the test may hold locks.
  const std::vector<char*> argumentPointers = Pointers(arguments);
  const std::vector<char*> environmentPointers = Pointers(environment);
  const std::vector<pid_t> before = Children(getpid());

  const pid_t starter = fork();
  if (starter < 0) {
    throw std::runtime_error("fork failed");
  }
  if (starter == 0) {
    const int input = open("/dev/null", O_RDONLY);
    const int output = open(m_outputPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    if (input < 0 || output < 0 || dup2(input, 0) < 0 || dup2(output, 1) < 0 ||
        dup2(output, 2) < 0 || chdir(start.workingFolder.c_str()) != 0) {
      _exit(125);
    }
    close(input);
    close(output);
    close_range(3, ~0U, 0);  // what the test has open is not the daemon's
    if (setpriority(PRIO_PROCESS, 0, 10) != 0) {
      _exit(125);
    }
    if (start.umask) {
      umask(*start.umask);
    }
    if (start.descriptorsInUse > 0) {
      TakeDescriptors(start.descriptorsInUse);
    }
    signal(SIGTERM, SIG_DFL);
    for (const int number : start.ignoredSignals) {
      signal(number, SIG_IGN);
    }
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int number : start.blockedSignals) {
      sigaddset(&blocked, number);
    }
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    if (start.descriptorLimit) {
      const rlimit limit{*start.descriptorLimit, *start.descriptorLimit};
      setrlimit(RLIMIT_NOFILE, &limit);
    }
    if (start.fileSizeLimit) {
      rlimit limit{};
      getrlimit(RLIMIT_FSIZE, &limit);
      limit.rlim_cur = *start.fileSizeLimit;
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    if (start.refuseFork) {
      RefuseClones(0, CLONE_VM);
    }
    if (start.refuseSpawn) {
      RefuseClones(CLONE_VFORK, 0);
    }
    if (start.closedStreams) {
      close_range(0, 2, 0);
    }
    execve(kProgram, argumentPointers.data(), environmentPointers.data());
    _exit(126);
  }
  running = starter;
  int status = 0;
  if (waitpid(starter, &status, 0) != starter) {
    throw std::runtime_error("the started process cannot be waited for");
  }
  running = 0;
  m_status.reset();
  for (const pid_t child : Children(getpid())) {
    bool isNew = true;
    for (const pid_t known : before) {
      isNew = isNew && known != child;
    }
    if (isNew) {
      m_pid = child;
      running = child;
    }
  }
  return status;
}

void DAEMON::LowerPriority() const {
  constexpr int kNice = 10;
  // A session has a share of its own, with a value of its own, where the kernel groups by session.
  // Before the daemon has made its own one, the value would be that of the test's.
  WaitUntil([this] { return getsid(m_pid) == m_pid; }, milliseconds(2000));
  const std::string path = "/proc/" + std::to_string(m_pid) + "/autogroup";
  // Between two changes an ordinary user has to wait for a moment.
  WaitUntil(
      [&] {
        std::ofstream file(path);
        file << kNice << std::flush;
        return file.good() || access(path.c_str(), F_OK) != 0;
      },
      milliseconds(500));
}

bool DAEMON::Running() {
  return m_pid > 0 && !WaitForEnd(milliseconds(0));
}

void DAEMON::Signal(int number) const {
  if (m_pid > 0 && !m_status) {
    kill(m_pid, number);
  }
}

std::optional<int> DAEMON::WaitForEnd(milliseconds limit) {
  if (m_pid > 0 && !m_status) {
    int status = 0;
    if (WaitUntil([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; }, limit)) {
      running = 0;
      m_status = status;
    }
  }
  return m_status;
}

std::string DAEMON::Output() const {
  return ReadFile(m_outputPath);
}

void DAEMON::Kill() {
  Signal(SIGKILL);
  WaitForEnd();
  // Pauses that were under way.
  KillChildren();
}

}  // namespace support
