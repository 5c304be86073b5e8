#include "bench/compare/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kEndLimit{30};
constexpr milliseconds kBetweenLooks{5};

/// Calls with the folder of each of the process's threads.
template <class VISIT>
void ForEachThread(pid_t number, VISIT visit) {
  std::error_code error;  // where the process has gone there are none
  const std::filesystem::path folder = "/proc/" + std::to_string(number) + "/task";
  for (const auto& thread : std::filesystem::directory_iterator(folder, error)) {
    visit(thread.path().string());
  }
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

PROCESS::PROCESS(LOOP& loop, const std::vector<std::string>& words)
    : m_loop(loop), m_number(fork()) {
  if (m_number < 0) {
    FailOf("fork");
  }
  if (m_number > 0) {
    return;
  }
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (nothing >= 0) {
    dup2(nothing, STDIN_FILENO);
  }
  execv(arguments[0], arguments.data());
  _exit(127);
}

PROCESS::~PROCESS() {
  if (HasEnded()) {
    return;
  }
  kill(m_number, SIGTERM);
  const TIME limit = CLOCK::now() + kEndLimit;
  while (!HasEnded() && CLOCK::now() < limit) {
    std::this_thread::sleep_for(kBetweenLooks);
  }
  if (!HasEnded()) {
    kill(m_number, SIGKILL);
    waitpid(m_number, nullptr, 0);
  }
}

bool PROCESS::HasEnded() {
  if (!m_hasEnded) {
    m_hasEnded = waitpid(m_number, &m_status, WNOHANG) != 0;
  }
  return m_hasEnded;
}

void PROCESS::Await(NANOSECONDS limit) {
  const TIME end = CLOCK::now() + limit;
  while (!HasEnded() && CLOCK::now() < end) {
    m_loop.RunFor(kBetweenLooks);
  }
  if (!HasEnded() || m_status != 0) {
    throw FAILURE("a program that was started did not end well");
  }
}

NANOSECONDS PROCESS::ProcessorTime() const {
  std::int64_t sum = 0;
  ForEachThread(m_number, [&sum](const std::string& thread) {
    std::int64_t time = 0;
    std::ifstream(thread + "/schedstat") >> time;
    sum += time;
  });
  return NANOSECONDS(sum);
}

std::uint64_t PROCESS::Sleeps() const {
  std::uint64_t sum = 0;
  ForEachThread(m_number, [&sum](const std::string& thread) {
    std::ifstream status(thread + "/status");
    for (std::string word; status >> word;) {
      std::uint64_t count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) {
        sum += count;
      }
    }
  });
  return sum;
}

void BecomeReaper() {
  if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
    FailOf("subreaper");
  }
}

cpu_set_t AllowedProcessors() {
  cpu_set_t processors;
  CPU_ZERO(&processors);
  if (sched_getaffinity(0, sizeof processors, &processors) != 0) {
    FailOf("sched_getaffinity");
  }
  return processors;
}

void RunOn(const cpu_set_t& processors) {
  if (sched_setaffinity(0, sizeof processors, &processors) != 0) {
    FailOf("sched_setaffinity");
  }
}

cpu_set_t OneOf(const cpu_set_t& processors) {
  cpu_set_t one;
  CPU_ZERO(&one);
  for (std::size_t number = CPU_SETSIZE; number-- > 0;) {
    if (CPU_ISSET(number, &processors)) {
      CPU_SET(number, &one);
      break;
    }
  }
  return one;
}

// --- the kernel's own ---------------------------------------------------------------------------

namespace {

constexpr const char* kWorkersMask = "/sys/devices/virtual/workqueue/cpumask";

void WriteMask(const std::string& mask) {
  std::ofstream file(kWorkersMask);
  file << mask << std::flush;
  if (!file) {
    throw std::runtime_error(std::string("the kernel's workers cannot be moved: ") + kWorkersMask);
  }
}

}  // namespace

KERNEL_WORKERS::KERNEL_WORKERS() {
  std::ifstream file(kWorkersMask);
  file >> m_before;
}

KERNEL_WORKERS::~KERNEL_WORKERS() {
  try {
    WriteMask(m_before);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
  }
}

void KERNEL_WORKERS::RunOn(const cpu_set_t& processors) {
  // Words of 32 processors each, the highest first.
  constexpr std::size_t kWord = 32;
  std::string mask;
  for (std::size_t word = std::min<std::size_t>(CPU_SETSIZE, 256) / kWord; word-- > 0;) {
    std::uint32_t bits = 0;
    for (std::size_t bit = 0; bit < kWord; ++bit) {
      bits |= CPU_ISSET(word * kWord + bit, &processors) ? 1U << bit : 0U;
    }
    if (bits == 0 && mask.empty() && word > 0) {
      continue;
    }
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), mask.empty() ? "%x" : ",%08x", bits);
    mask += text.data();
  }
  WriteMask(mask);
}

// --- others -------------------------------------------------------------------------------------

OTHERS::OTHERS(const PROCESS* subject)
    : m_subject(subject), m_begin(CLOCK::now()), m_foreign(Foreign()) {
}

double OTHERS::Foreign() const {
  // user, nice, system, idle, iowait, irq, softirq, steal; in clock ticks, of all processors
  constexpr int kFields = 8;
  constexpr int kIdle = 3;
  constexpr int kIdleForADevice = 4;
  std::ifstream file("/proc/stat");
  std::string word;
  file >> word;
  double ticks = 0;
  for (int field = 0; field < kFields; ++field) {
    double value = 0;
    file >> value;
    ticks += field == kIdle || field == kIdleForADevice ? 0 : value;
  }
  double own = 0;
  for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    own += Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  }
  if (m_subject != nullptr) {
    own += std::chrono::duration<double>(m_subject->ProcessorTime()).count();
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK)) - own;
}

double OTHERS::Percent() const {
  const std::chrono::duration<double> took = CLOCK::now() - m_begin;
  return std::max(0.0, (Foreign() - m_foreign) / took.count() * 100);
}

double Load() {
  double load = 0;
  std::ifstream("/proc/loadavg") >> load;
  return load;
}

}  // namespace bench
