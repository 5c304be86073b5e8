#include "tests/system/CtlProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace {

constexpr int kNotStarted = 126;

/// The program's environment: the test's own without what would set up a vornctl.
std::vector<std::string> EnvironmentWith(std::map<std::string, std::string> changes) {
  changes.emplace("TERM", "xterm");
  changes.emplace("LC_ALL", "C.UTF-8");
  changes.emplace("TZ", "UTC");
  std::vector<std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const bool isForCtl = text.starts_with("VORNCTL_") || text.starts_with("XDG_");
    if (!isForCtl && !changes.contains(std::string(text.substr(0, text.find('='))))) {
      all.emplace_back(text);
    }
  }
  for (const auto& [name, value] : changes) {
    all.push_back(std::string(name).append("=").append(value));
  }
  return all;
}

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

/// The end that reads and the end that writes.
std::array<sim::DESCRIPTOR, 2> MakePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  return {sim::DESCRIPTOR(ends[0]), sim::DESCRIPTOR(ends[1])};
}

void DoNotBlock(const sim::DESCRIPTOR& descriptor) {
  fcntl(descriptor.Get(), F_SETFL, fcntl(descriptor.Get(), F_GETFL) | O_NONBLOCK);
}

/// What is there now; closes at the end.
void TakeAll(sim::DESCRIPTOR& from, std::string& into) {
  std::array<char, 65536> bytes{};
  while (from) {
    const ssize_t count = read(from.Get(), bytes.data(), bytes.size());
    if (count > 0) {
      into.append(bytes.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EAGAIN) {  // a terminal's end is an error
      from.Close();
    } else {
      return;
    }
  }
}

}  // namespace

CTL_PROCESS::CTL_PROCESS(const CTL_START& start) {
  std::vector<std::string> arguments = start.arguments;
  arguments.insert(arguments.begin(), VORN_CTL_PROGRAM);
  std::vector<std::string> environment = EnvironmentWith(start.environment);
  const std::vector<char*> argumentPointers = PointersTo(arguments);
  const std::vector<char*> environmentPointers = PointersTo(environment);

  std::array<sim::DESCRIPTOR, 3> theirs;
  if (start.hasTerminal) {
    m_output = sim::DESCRIPTOR(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (grantpt(m_output.Get()) != 0 || unlockpt(m_output.Get()) != 0) {
      throw std::runtime_error("no pseudo-terminal");
    }
    const winsize size{kLines, kColumns, 0, 0};
    ioctl(m_output.Get(), TIOCSWINSZ, &size);
    m_input = sim::DESCRIPTOR(fcntl(m_output.Get(), F_DUPFD_CLOEXEC, 3));
    for (sim::DESCRIPTOR& stream : theirs) {
      stream = sim::DESCRIPTOR(open(ptsname(m_output.Get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
    }
  } else {
    std::array<sim::DESCRIPTOR, 2> input = MakePipe();
    std::array<sim::DESCRIPTOR, 2> output = MakePipe();
    std::array<sim::DESCRIPTOR, 2> errors = MakePipe();
    theirs = {std::move(input[0]), std::move(output[1]), std::move(errors[1])};
    m_input = std::move(input[1]);
    m_output = std::move(output[0]);
    m_errors = std::move(errors[0]);
    DoNotBlock(m_errors);
  }
  DoNotBlock(m_input);
  DoNotBlock(m_output);

  m_pid = fork();
  if (m_pid < 0) {
    throw std::runtime_error("fork failed");
  }
  if (m_pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setsid();
    if (start.hasTerminal) {
      ioctl(theirs[0].Get(), TIOCSCTTY, 0);
    }
    for (int stream = 0; stream < 3; ++stream) {
      dup2(theirs.at(static_cast<std::size_t>(stream)).Get(), stream);
    }
    if (!start.outputPath.empty()) {
      const sim::DESCRIPTOR file(open(start.outputPath.c_str(), O_WRONLY | O_CLOEXEC));
      dup2(file.Get(), STDOUT_FILENO);
    }
    close_range(start.hasNoStreams ? 0 : 3, ~0U, 0);
    signal(SIGTERM, SIG_DFL);
    execve(VORN_CTL_PROGRAM, argumentPointers.data(), environmentPointers.data());
    _exit(kNotStarted);
  }
  if (start.input && !start.hasTerminal) {
    m_unwritten = *start.input;
    m_endsInput = true;
    Read();
  }
}

CTL_PROCESS::~CTL_PROCESS() {
  if (!Ended()) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
}

void CTL_PROCESS::Write(const std::string& text) {
  m_unwritten += text;
  Read();
}

void CTL_PROCESS::EndInput() {
  m_endsInput = true;
  Read();
}

void CTL_PROCESS::CloseOutput() {
  m_output.Close();
}

void CTL_PROCESS::Signal(int number) const {
  if (!m_status && m_pid > 0) {
    kill(m_pid, number);
  }
}

void CTL_PROCESS::Read() {
  // Who does not read its input to the end has ended; that is seen elsewhere.
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignored, nullptr);
  if (m_input && !m_unwritten.empty()) {
    const ssize_t written = write(m_input.Get(), m_unwritten.data(), m_unwritten.size());
    m_unwritten.erase(0, written > 0 ? static_cast<std::size_t>(written) : 0);
  }
  if (m_endsInput && m_unwritten.empty()) {
    m_input.Close();
  }
  const std::size_t before = m_out.size();
  TakeAll(m_output, m_out);
  TakeAll(m_errors, m_error);
  m_screen.Write(std::string_view(m_out).substr(before));
}

std::optional<int> CTL_PROCESS::Ended() {
  int status = 0;
  if (!m_status && m_pid > 0 && waitpid(m_pid, &status, WNOHANG) == m_pid) {
    constexpr int kSignalled = 128;
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
  }
  return m_status;
}

bool CTL_PROCESS::WaitForOut(const std::string& text) {
  return WaitUntil([&] { return m_out.find(text) != std::string::npos; });
}

bool CTL_PROCESS::WaitForError(const std::string& text) {
  return WaitUntil([&] { return m_error.find(text) != std::string::npos; });
}

bool CTL_PROCESS::WaitForLines(std::size_t count) {
  return WaitUntil([&] {
    return static_cast<std::size_t>(std::count(m_out.begin(), m_out.end(), '\n')) >= count;
  });
}

std::optional<int> CTL_PROCESS::WaitForEnd() {
  WaitUntil([&] { return Ended().has_value(); });
  Read();
  return m_status;
}
