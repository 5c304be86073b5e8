#pragma once

#include "tests/support/Wait.h"

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace support {

constexpr const char* kPidPath = "/run/vorn/vorn.pid";

/// How the daemon is started.
struct START {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;  // added to, or in place of, the test's own
  std::string workingFolder = "/";
  std::optional<mode_t> umask;
  bool refuseFork = false;     // the kernel answers EAGAIN to a fork (threads can be created)
  bool refuseSpawn = false;    // the same for a child that runs a command, as popen makes it
  int descriptorsInUse = 0;    // so many low descriptor numbers are taken already
  bool closedStreams = false;  // no standard input, output, error
  std::optional<unsigned int> descriptorLimit{};  // so many may be open
  std::optional<unsigned int> fileSizeLimit{};    // in bytes; may be raised again
  std::vector<int> blockedSignals{};              // as the parent has left them to it
  std::vector<int> ignoredSignals{};
};

/// One run of the daemon, started as a user would and observed from outside: as the nearest
/// subreaper this process becomes the parent of the daemon and sees how it ends. The destructor
/// leaves no process of the run behind.
class DAEMON {
 public:
  /// Standard output and standard error of the run go into the file.
  explicit DAEMON(std::string outputPath);
  ~DAEMON();
  DAEMON(const DAEMON&) = delete;
  DAEMON& operator=(const DAEMON&) = delete;

  /// Gives way to whatever else runs. The daemon counts its reads of the line, and the answers to
  /// them pass through threads of the kernel: on a busy machine it would outrun them, and find a
  /// timeout where there is none.
  void LowerPriority() const;

  /// Starts the program and waits until the process that was started has ended; its status as
  /// waitpid gives it. The daemon, if there is one, is then known by Pid().
  int Start(const START& start = {});

  /// The process that was left when the started one had ended; 0: none.
  pid_t Pid() const { return m_pid; }

  /// It has not ended yet.
  bool Running();

  void Signal(int number) const;

  /// Waits for its end; the status as waitpid gives it, nothing when it still runs after the limit.
  std::optional<int> WaitForEnd(milliseconds limit = kLimit);

  /// What the run wrote to standard output and standard error.
  std::string Output() const;

  /// Kills whatever of the run is still there.
  void Kill();

 private:
  const std::string m_outputPath;
  pid_t m_pid = 0;
  std::optional<int> m_status;  // since it was waited for
};

}  // namespace support
