#include "tests/support/ProcessInfo.h"

#include "tests/support/Text.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace support {
namespace {

namespace fs = std::filesystem;

std::string Folder(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

#if defined(VORN_SANITIZE_THREAD)
// In a forked process both the runtime's fork and its fork handler start a background thread.
constexpr int kForeignThreads = 2;
#elif defined(VORN_EMULATOR)
constexpr int kForeignThreads = 1;  // the emulator's own
#else
constexpr int kForeignThreads = 0;
#endif

/// The parent of a process; 0 when it is gone.
pid_t ParentOf(pid_t pid) {
  const std::string stat = ReadFile(Folder(pid) + "/stat");
  const auto afterName = stat.rfind(')');  // the name may hold anything
  if (afterName == std::string::npos) {
    return 0;
  }
  std::istringstream fields(stat.substr(afterName + 1));
  char state = 0;
  pid_t parent = 0;
  fields >> state >> parent;
  return parent;
}

/// Of a status file; empty when there is none.
std::string FieldOf(const std::string& file, const std::string& name) {
  for (const std::string& line : Lines(ReadFile(file))) {
    if (line.starts_with(name + ":")) {
      const auto begin = line.find_first_not_of(" \t", name.size() + 1);
      return begin == std::string::npos ? std::string() : line.substr(begin);
    }
  }
  return {};
}

}  // namespace

const long kForeignSleepsPerSecond = 20L * kForeignThreads;

long Sleeps(pid_t pid) {
  long sum = 0;
  std::error_code ended;  // a thread, meanwhile
  for (const auto& task : fs::directory_iterator(Folder(pid) + "/task", ended)) {
    const std::string sleeps = FieldOf(task.path().string() + "/status", "voluntary_ctxt_switches");
    sum += sleeps.empty() ? 0 : std::stol(sleeps);
  }
  return sum;
}

std::vector<pid_t> Children(pid_t parent) {
  std::vector<pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const pid_t pid = static_cast<pid_t>(std::atol(entry.path().filename().c_str()));
    if (pid > 0 && ParentOf(pid) == parent) {
      children.push_back(pid);
    }
  }
  return children;
}

void KillChildren() {
  for (;;) {
    const std::vector<pid_t> children = Children(getpid());
    if (children.empty()) {
      return;
    }
    for (const pid_t child : children) {
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
    }
  }
}

int ThreadCount(pid_t pid) {
  return std::atoi(StatusField(pid, "Threads").c_str()) - kForeignThreads;
}

long ResidentKiB(pid_t pid) {
  return std::atol(StatusField(pid, "VmRSS").c_str());
}

std::map<int, std::string> OpenDescriptors(pid_t pid) {
  std::map<int, std::string> descriptors;
  std::error_code error;
  for (fs::directory_iterator entry(Folder(pid) + "/fd", error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code gone;  // closed between the listing and the look
    const fs::path target = fs::read_symlink(entry->path(), gone);
    if (!gone) {
      descriptors[std::atoi(entry->path().filename().c_str())] = target.string();
    }
  }
  return descriptors;
}

std::vector<int> DescriptorsOf(pid_t pid, const std::string& path) {
  std::vector<int> numbers;
  for (const auto& [number, target] : OpenDescriptors(pid)) {
    if (target == path) {
      numbers.push_back(number);
    }
  }
  return numbers;
}

int DescriptorFlags(pid_t pid, int descriptor) {
  std::ifstream info(Folder(pid) + "/fdinfo/" + std::to_string(descriptor));
  for (std::string name, value; info >> name >> value;) {
    if (name == "flags:") {
      return static_cast<int>(std::strtol(value.c_str(), nullptr, 8));
    }
  }
  return -1;
}

std::string StatusField(pid_t pid, const std::string& name) {
  return FieldOf(Folder(pid) + "/status", name);
}

}  // namespace support
