#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace soak {

/// A vornsim of its own, driven over its control socket. One thread inside reads the events that it
/// prints; the operations may be called from any thread, one lock guards what they share.
class RACK_PROCESS {
 public:
  /// Starts it with its socket in the folder. Throws std::runtime_error when it does not get ready.
  explicit RACK_PROCESS(const std::string& folder);
  ~RACK_PROCESS();
  RACK_PROCESS(const RACK_PROCESS&) = delete;
  RACK_PROCESS& operator=(const RACK_PROCESS&) = delete;

  /// Sends a command; its whole response, which ends with "OK\n" when it was good. Throws
  /// std::runtime_error when none comes within ten seconds.
  std::string Command(const std::string& line) const;
  /// The same; throws when it is refused.
  void Order(const std::string& line) const;

  /// Waits until the last event "NAME = VALUE" of that name ("card 5 block 1") has that value.
  bool WaitForValue(const std::string& name, const std::string& value,
                    std::chrono::milliseconds limit);

  /// It has not ended.
  bool Running();

 private:
  void ReadEvents();
  void Take(const std::string& line);

  const std::string m_socketPath;
  pid_t m_pid = -1;
  int m_output = -1;

  std::mutex m_mutex;  // guards the two below
  std::map<std::string, std::string> m_values;
  bool m_isReady = false;
  std::condition_variable m_changed;
  std::thread m_reader;  // last: everything it uses exists before it runs
};

}  // namespace soak
