#pragma once

#include "tests/soak/Client.h"
#include "tests/soak/FloodLines.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace soak {

/// An onlooker at MON, who reads whatever comes.
class MONITOR : public CLIENT {
 public:
  MONITOR(int port, const WEATHER& weather);
  ~MONITOR() override { Stop(); }

  /// Lines seen so far, but for those of floods: a place to wait from.
  std::uint64_t Seen() const;
  /// Waits until the line has been seen since then.
  bool WaitForLine(const std::string& line, std::uint64_t since, std::chrono::milliseconds limit);
  /// Of the floods, as they are copied here.
  const FLOOD_LINES& Lines() const { return m_lines; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;

 private:
  bool Note(const std::string& line);

  const int m_port;
  FLOOD_LINES m_lines;
  std::optional<support::TCP_CLIENT> m_mon;
  mutable std::mutex m_mutex;  // guards the two below
  std::uint64_t m_seen = 0;
  std::map<std::string, std::uint64_t> m_lastSeen;
  std::condition_variable m_changed;
};

}  // namespace soak
